// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <locale>
#include <string>

namespace vxtest {

/// Lets new streams write one thousand as "1.000" and a half as "0,5", as a host's locale may, for the length
/// of a scope.
class GroupedDigits
{
public:
    GroupedDigits()
        // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): the locale owns its facets
        : before_(std::locale::global(std::locale(std::locale::classic(), new Punctuation)))
    {}
    GroupedDigits(const GroupedDigits&) = delete;
    GroupedDigits& operator=(const GroupedDigits&) = delete;
    ~GroupedDigits() { std::locale::global(before_); }

private:
    class Punctuation : public std::numpunct<char>
    {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };

    std::locale before_;
};

}  // namespace vxtest
