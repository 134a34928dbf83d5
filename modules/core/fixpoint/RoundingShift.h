// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <cstdint>
#include <type_traits>

namespace halvor::vx {

// Rescaling by a power of two, as the fixed-point engine does it everywhere. A right shift rounds to the
// nearest value, ties towards plus infinity; a left shift drops what leaves the operand's width. Every step
// wraps in that width, also the addition that rounds: roundShiftRight16(32767, 1) is -16384. Defined for
// every count.

namespace detail {

template <std::signed_integral Int>
constexpr Int roundShiftRight(Int value, std::uint8_t n)
{
    constexpr int signBit = 8 * static_cast<int>(sizeof(Int)) - 1;
    const int whole = n > 1 ? n - 1 : 0;
    const auto shifted = static_cast<Int>(value >> (whole < signBit ? whole : signBit));
    const auto rounded = static_cast<Int>(static_cast<std::make_unsigned_t<Int>>(shifted) + (shifted & 1));
    return static_cast<Int>(rounded >> 1);
}

template <std::signed_integral Int>
constexpr Int shiftRound(Int value, std::int8_t n)
{
    constexpr int width = 8 * static_cast<int>(sizeof(Int));
    if (n < 0)
        return roundShiftRight(value, static_cast<std::uint8_t>(-n));
    return n < width ? static_cast<Int>(static_cast<std::make_unsigned_t<Int>>(value) << n) : Int{0};
}

}  // namespace detail

/// Right shift by n with rounding. A count of 0 halves the value as a count of 1 does; a count beyond the
/// width leaves 0.
constexpr std::int16_t roundShiftRight16(std::int16_t value, std::uint8_t n)
{
    return detail::roundShiftRight(value, n);
}

/// As roundShiftRight16(), in 32 bits.
constexpr std::int32_t roundShiftRight32(std::int32_t value, std::uint8_t n)
{
    return detail::roundShiftRight(value, n);
}

/// As roundShiftRight16(), in 64 bits.
constexpr std::int64_t roundShiftRight64(std::int64_t value, std::uint8_t n)
{
    return detail::roundShiftRight(value, n);
}

/// Left shift by n, which leaves 0 from a count of the width on; for a negative n right shift by -n with
/// rounding.
constexpr std::int16_t shiftRound16(std::int16_t value, std::int8_t n)
{
    return detail::shiftRound(value, n);
}

/// As shiftRound16(), in 32 bits.
constexpr std::int32_t shiftRound32(std::int32_t value, std::int8_t n)
{
    return detail::shiftRound(value, n);
}

/// As shiftRound16(), in 64 bits.
constexpr std::int64_t shiftRound64(std::int64_t value, std::int8_t n)
{
    return detail::shiftRound(value, n);
}

}  // namespace halvor::vx
