// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <bit>
#include <cstdint>

// What a pixel of an engine's frame may hold.
namespace halvor::vx {

/// Bit patterns that stand in the place of a value. As floats they are denormal numbers, so only their bits tell
/// them apart.
struct PixelMarker
{
    static constexpr std::uint32_t overRange = 0x81;
    static constexpr std::uint32_t underRange = 0x82;
    static constexpr std::uint32_t invalid = 0x84;
    static constexpr std::uint32_t otherInvalid = 0x85;

    static constexpr std::array<std::uint32_t, 4> all{overRange, underRange, invalid, otherInvalid};
};

/// Written for row kernels: without a branch.
inline bool isPixelMarker(float value)
{
    const auto bits = std::bit_cast<std::uint32_t>(value);
    constexpr std::uint32_t gap = 0x83;
    return static_cast<bool>(
        (bits - PixelMarker::overRange <= PixelMarker::otherInvalid - PixelMarker::overRange) &
        (bits != gap));
}

/// Values outside of these are defects.
struct PixelLimits
{
    float lowest;
    float highest;
};

/// Degrees Celsius, from just below absolute zero.
inline constexpr PixelLimits temperatureLimits{-274.0F, 5000.0F};
/// Signed 16-bit counts.
inline constexpr PixelLimits countLimits{-32768.0F, 32767.0F};

}  // namespace halvor::vx
