// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <string_view>

namespace vxc {

/// The text of a failure; it is kept without allocation, since a failure may be want of memory.
class ErrorText
{
public:
    void set(std::string_view text)
    {
        const std::size_t length = std::min(text.size(), text_.size() - 1);
        std::copy_n(text.data(), length, text_.data());
        text_[length] = '\0';
    }
    const char* get() const { return text_.data(); }

private:
    std::array<char, 1024> text_{};
};

}  // namespace vxc
