// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace vxsupport {

/// Takes what is written to the standard output through std::cout while it lives, and keeps it off the
/// terminal. The reference engine writes there.
class CapturedOutput
{
public:
    CapturedOutput() : console_(std::cout.rdbuf(text_.rdbuf())) {}
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;
    ~CapturedOutput() { std::cout.rdbuf(console_); }

    std::string text() const { return text_.str(); }

    std::vector<std::string> lines() const
    {
        std::istringstream in(text());
        std::vector<std::string> result;
        for (std::string line; std::getline(in, line);)
            result.push_back(line);
        return result;
    }

private:
    std::ostringstream text_;
    std::streambuf* console_;
};

}  // namespace vxsupport
