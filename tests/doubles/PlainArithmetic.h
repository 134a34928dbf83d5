// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

// 32-bit two's complement arithmetic in its plainest form: calculate in 64 bits, keep the low 32.
namespace plain {

constexpr int wrap(std::int64_t value)
{
    return static_cast<int>(static_cast<std::uint32_t>(value));
}

constexpr std::int64_t wide(int value)
{
    return value;
}

}  // namespace plain
