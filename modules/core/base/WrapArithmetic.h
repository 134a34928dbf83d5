// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bit>
#include <cstdint>

// Two's complement arithmetic that wraps, as the modelled hardware does. The sums go through unsigned
// integers, whose overflow is defined; the conversion back is modular.
namespace halvor::vx {

constexpr std::int32_t wrapAdd(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

constexpr std::int32_t wrapSub(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

constexpr std::int32_t wrapMul(std::int32_t a, std::int32_t b)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

constexpr std::int32_t wrapNeg(std::int32_t a)
{
    return wrapSub(0, a);
}

/// Absolute value; that of the smallest integer is itself.
constexpr std::int32_t wrapAbs(std::int32_t a)
{
    return a < 0 ? wrapNeg(a) : a;
}

constexpr std::int64_t wrapAdd64(std::int64_t a, std::int64_t b)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

constexpr std::int64_t wrapSub64(std::int64_t a, std::int64_t b)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

constexpr std::int64_t wrapMul64(std::int64_t a, std::int64_t b)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) * static_cast<std::uint64_t>(b));
}

/// The low 16 bits as a signed sample.
constexpr std::int16_t lowSigned16(std::int32_t a)
{
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(static_cast<std::uint32_t>(a)));
}

}  // namespace halvor::vx
