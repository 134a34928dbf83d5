// SPDX-License-Identifier: Apache-2.0
#pragma once

// The lane operations of the fixed-point engine, under the names of the ARM intrinsics and with their
// published meaning. On ARM they are those intrinsics; elsewhere they are modelled here on the vector types
// of GCC and Clang, whose operators work lane by lane.
//
// Portable code calls them unqualified from inside the namespace halvor::vx, or after `using namespace
// halvor::vx`: on ARM they stand in the global namespace, some as macros. Loads and stores need no alignment.
// A single lane is read and written with []. What is told to be a constant has to be one in portable code.

#if defined(__ARM_NEON)

#include <arm_neon.h>

#else

#include <bit>
#include <cstdint>
#include <cstring>

namespace halvor::vx {

using int8x8_t __attribute__((vector_size(8))) = std::int8_t;
using int16x4_t __attribute__((vector_size(8))) = std::int16_t;
using int16x8_t __attribute__((vector_size(16))) = std::int16_t;
using int32x2_t __attribute__((vector_size(8))) = std::int32_t;
using int32x4_t __attribute__((vector_size(16))) = std::int32_t;
using int64x2_t __attribute__((vector_size(16))) = std::int64_t;

struct int16x8x2_t
{
    int16x8_t val[2];
};

namespace detail {

// Unsigned lanes, in which sums and products wrap.
using UInt16x4 __attribute__((vector_size(8))) = std::uint16_t;
using UInt16x8 __attribute__((vector_size(16))) = std::uint16_t;
using UInt32x4 __attribute__((vector_size(16))) = std::uint32_t;
using UInt64x2 __attribute__((vector_size(16))) = std::uint64_t;

}  // namespace detail

// Loads and stores. Those that end in 2 separate even and odd elements, or interleave them again.

inline int8x8_t vld1_s8(const std::int8_t* p)
{
    int8x8_t a;
    std::memcpy(&a, p, sizeof a);
    return a;
}

inline int16x4_t vld1_s16(const std::int16_t* p)
{
    int16x4_t a;
    std::memcpy(&a, p, sizeof a);
    return a;
}

inline int32x2_t vld1_s32(const std::int32_t* p)
{
    int32x2_t a;
    std::memcpy(&a, p, sizeof a);
    return a;
}

inline int16x8_t vld1q_s16(const std::int16_t* p)
{
    int16x8_t a;
    std::memcpy(&a, p, sizeof a);
    return a;
}

inline int32x4_t vld1q_s32(const std::int32_t* p)
{
    int32x4_t a;
    std::memcpy(&a, p, sizeof a);
    return a;
}

inline int16x8x2_t vld2q_s16(const std::int16_t* p)
{
    const int16x8_t first = vld1q_s16(p);
    const int16x8_t second = vld1q_s16(p + 8);
    return {{__builtin_shufflevector(first, second, 0, 2, 4, 6, 8, 10, 12, 14),
             __builtin_shufflevector(first, second, 1, 3, 5, 7, 9, 11, 13, 15)}};
}

inline void vst1_s16(std::int16_t* p, int16x4_t a)
{
    std::memcpy(p, &a, sizeof a);
}

inline void vst1q_s16(std::int16_t* p, int16x8_t a)
{
    std::memcpy(p, &a, sizeof a);
}

inline void vst1q_s32(std::int32_t* p, int32x4_t a)
{
    std::memcpy(p, &a, sizeof a);
}

inline void vst2q_s16(std::int16_t* p, int16x8x2_t a)
{
    vst1q_s16(p, __builtin_shufflevector(a.val[0], a.val[1], 0, 8, 1, 9, 2, 10, 3, 11));
    vst1q_s16(p + 8, __builtin_shufflevector(a.val[0], a.val[1], 4, 12, 5, 13, 6, 14, 7, 15));
}

// Lanes twice as wide, sign extended; lanes half as wide, the upper half dropped.

inline int16x8_t vmovl_s8(int8x8_t a)
{
    return __builtin_convertvector(a, int16x8_t);
}

inline int32x4_t vmovl_s16(int16x4_t a)
{
    return __builtin_convertvector(a, int32x4_t);
}

inline int16x4_t vmovn_s32(int32x4_t a)
{
    return __builtin_convertvector(a, int16x4_t);
}

inline int32x2_t vmovn_s64(int64x2_t a)
{
    return __builtin_convertvector(a, int32x2_t);
}

// Halves of a vector; copies of a lane or of a number.

inline int16x4_t vget_low_s16(int16x8_t a)
{
    return __builtin_shufflevector(a, a, 0, 1, 2, 3);
}

inline int32x2_t vget_low_s32(int32x4_t a)
{
    return __builtin_shufflevector(a, a, 0, 1);
}

inline int16x4_t vget_high_s16(int16x8_t a)
{
    return __builtin_shufflevector(a, a, 4, 5, 6, 7);
}

inline int32x2_t vget_high_s32(int32x4_t a)
{
    return __builtin_shufflevector(a, a, 2, 3);
}

inline int16x8_t vcombine_s16(int16x4_t low, int16x4_t high)
{
    return __builtin_shufflevector(low, high, 0, 1, 2, 3, 4, 5, 6, 7);
}

inline int32x4_t vcombine_s32(int32x2_t low, int32x2_t high)
{
    return __builtin_shufflevector(low, high, 0, 1, 2, 3);
}

inline int32x2_t vdup_n_s32(std::int32_t value)
{
    return int32x2_t{value, value};
}

/// @param lane  0 or 1, a constant
inline int32x2_t vdup_lane_s32(int32x2_t a, int lane)
{
    return vdup_n_s32(a[lane & 1]);
}

inline int16x8_t vdupq_n_s16(std::int16_t value)
{
    return int16x8_t{value, value, value, value, value, value, value, value};
}

inline int32x4_t vdupq_n_s32(std::int32_t value)
{
    return int32x4_t{value, value, value, value};
}

inline int64x2_t vdupq_n_s64(std::int64_t value)
{
    return int64x2_t{value, value};
}

// Sums. Those with an h halve the exact sum or difference and round it down; the others wrap.

inline int16x4_t vadd_s16(int16x4_t a, int16x4_t b)
{
    return std::bit_cast<int16x4_t>(std::bit_cast<detail::UInt16x4>(a) + std::bit_cast<detail::UInt16x4>(b));
}

inline int16x8_t vaddq_s16(int16x8_t a, int16x8_t b)
{
    return std::bit_cast<int16x8_t>(std::bit_cast<detail::UInt16x8>(a) + std::bit_cast<detail::UInt16x8>(b));
}

inline int32x4_t vaddq_s32(int32x4_t a, int32x4_t b)
{
    return std::bit_cast<int32x4_t>(std::bit_cast<detail::UInt32x4>(a) + std::bit_cast<detail::UInt32x4>(b));
}

inline int32x2_t vhadd_s32(int32x2_t a, int32x2_t b)
{
    return (a >> 1) + (b >> 1) + (a & b & 1);
}

inline int16x8_t vhsubq_s16(int16x8_t a, int16x8_t b)
{
    // No step leaves the lane: the halves differ by 32767 at most.
    return (a >> 1) - (b >> 1) - (~a & b & 1);
}

// Products. Those with an l have lanes twice as wide; the others wrap.

inline int16x8_t vmulq_s16(int16x8_t a, int16x8_t b)
{
    return std::bit_cast<int16x8_t>(std::bit_cast<detail::UInt16x8>(a) * std::bit_cast<detail::UInt16x8>(b));
}

inline int32x4_t vmulq_s32(int32x4_t a, int32x4_t b)
{
    return std::bit_cast<int32x4_t>(std::bit_cast<detail::UInt32x4>(a) * std::bit_cast<detail::UInt32x4>(b));
}

inline int32x4_t vmlal_s16(int32x4_t sum, int16x4_t a, int16x4_t b)
{
    return vaddq_s32(sum, vmovl_s16(a) * vmovl_s16(b));
}

inline int64x2_t vmull_s32(int32x2_t a, int32x2_t b)
{
    return __builtin_convertvector(a, int64x2_t) * __builtin_convertvector(b, int64x2_t);
}

/// Upper half of twice the product, rounded half upwards; -2^31 by itself saturates.
inline int32x2_t vqrdmulh_s32(int32x2_t a, int32x2_t b)
{
    constexpr std::int32_t lowest = INT32_MIN;
    const auto product = std::bit_cast<detail::UInt64x2>(vmull_s32(a, b));
    const auto rounded = std::bit_cast<int64x2_t>((product + (std::uint64_t{1} << 30)) >> 31);
    const int32x2_t saturates = (a == lowest) & (b == lowest);
    return vmovn_s64(rounded) ^ saturates;
}

// Shifts. Those with an r round half upwards, without wrapping on the way.

/// @param n  1 to 32, a constant
inline int32x4_t vrshrq_n_s32(int32x4_t a, int n)
{
    if (n < 1 || n > 31)
        return vdupq_n_s32(0);
    return (a >> n) + ((a >> (n - 1)) & 1);
}

/// Shifts each lane by the low byte of the other operand's: left, or right with rounding where it is
/// negative.
inline int64x2_t vrshlq_s64(int64x2_t a, int64x2_t counts)
{
    int64x2_t shifted = vdupq_n_s64(0);
    for (int lane = 0; lane < 2; ++lane) {
        const auto n = static_cast<std::int8_t>(counts[lane]);
        if (n >= 0 && n < 64)
            shifted[lane] = static_cast<std::int64_t>(static_cast<std::uint64_t>(a[lane]) << n);
        else if (n < 0 && n > -64)
            shifted[lane] = (a[lane] >> -n) + ((a[lane] >> (-n - 1)) & 1);
    }
    return shifted;
}

/// @param n  0 to 31, a constant
inline int32x4_t vshlq_n_s32(int32x4_t a, int n)
{
    return std::bit_cast<int32x4_t>(std::bit_cast<detail::UInt32x4>(a) << static_cast<std::uint32_t>(n & 31));
}

}  // namespace halvor::vx

#endif
