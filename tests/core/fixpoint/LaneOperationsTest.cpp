// SPDX-License-Identifier: Apache-2.0
#include "core/fixpoint/LaneOperations.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <numeric>
#include <utility>
#include <vector>

// Loads, stores, halves and widths are held by the convolution in lanes, which must not differ from the plain one.
// Unqualified from inside the namespace, so that the tests hold the native intrinsics too.
namespace halvor::vx {

namespace {

__extension__ using Wide = __int128;

// Bounds, their neighbours and one pattern between each two powers of two.
template <typename Int>
std::vector<Int> corners()
{
    using Limits = std::numeric_limits<Int>;
    std::vector<Int> values{0, Limits::min(), Limits::max(), Limits::min() + 1, Limits::max() - 1};
    for (int bit = 0; bit < Limits::digits; ++bit) {
        const Int power = Int{1} << bit;
        for (const Int value : {power, power - 1, power + power / 3, power / 2 * 3})
            for (const Int signedValue : {value, -value})
                values.push_back(signedValue);
    }
    return values;
}

// Counts second operands for which operation(a, b) fails on some first one, over all pairs of 16 bits.
// Expected are the low bits of what reference() makes of each half in 32 bits.
template <typename Operation, typename Reference>
int failuresOverAllPairs(Operation operation, Reference reference)
{
    int failures = 0;
#pragma omp parallel for reduction(+ : failures)
    for (int b = -32768; b < 32768; ++b) {
        const int16x8_t second = vdupq_n_s16(static_cast<std::int16_t>(b));
        const int32x4_t wideSecond = vdupq_n_s32(b);
        int16x8_t failed = vdupq_n_s16(0);
        for (int a = -32768; a < 32768; a += 8) {
            const int32x4_t low = vdupq_n_s32(a) + int32x4_t{0, 1, 2, 3};
            const int32x4_t high = low + 4;
            const int16x8_t first = vcombine_s16(vmovn_s32(low), vmovn_s32(high));
            const int16x8_t expected =
                vcombine_s16(vmovn_s32(reference(low, wideSecond)), vmovn_s32(reference(high, wideSecond)));
            failed |= operation(first, second) ^ expected;
        }
        for (int lane = 0; lane < 8; ++lane)
            failures += failed[lane] != 0;
    }
    return failures;
}

// Rounded half upwards, without a limit on the way.
std::int64_t rounded(Wide value, int right)
{
    return static_cast<std::int64_t>((value + (Wide{1} << (right - 1))) >> right);
}

}  // namespace

TEST(LaneOperations, SumsAndDifferencesOfAllPairsOf16Bits)
{
    const auto sum = [](int32x4_t a, int32x4_t b) { return a + b; };
    EXPECT_EQ(failuresOverAllPairs([](int16x8_t a, int16x8_t b) { return vaddq_s16(a, b); }, sum), 0);
    const auto sumByHalves = [](int16x8_t a, int16x8_t b) {
        return vcombine_s16(vadd_s16(vget_low_s16(a), vget_low_s16(b)),
                            vadd_s16(vget_high_s16(a), vget_high_s16(b)));
    };
    EXPECT_EQ(failuresOverAllPairs(sumByHalves, sum), 0);
    EXPECT_EQ(failuresOverAllPairs([](int16x8_t a, int16x8_t b) { return vhsubq_s16(a, b); },
                                   [](int32x4_t a, int32x4_t b) { return (a - b) >> 1; }),
              0);
}

TEST(LaneOperations, ProductsOfAllPairsOf16Bits)
{
    const auto product = [](int32x4_t a, int32x4_t b) { return a * b; };
    EXPECT_EQ(failuresOverAllPairs([](int16x8_t a, int16x8_t b) { return vmulq_s16(a, b); }, product), 0);
    // The accumulated form in 32 bits, both halves of a lane folded; 2^30 on top wraps for the largest
    // product.
    const int32x4_t start = vdupq_n_s32(0x40000000);
    const auto folded = [](int32x4_t sum) { return sum ^ (sum >> 16); };
    EXPECT_EQ(failuresOverAllPairs(
                  [start, folded](int16x8_t a, int16x8_t b) {
                      const int32x4_t low = vmlal_s16(start, vget_low_s16(a), vget_low_s16(b));
                      const int32x4_t high = vmlal_s16(start, vget_high_s16(a), vget_high_s16(b));
                      return vcombine_s16(vmovn_s32(folded(low)), vmovn_s32(folded(high)));
                  },
                  [start, folded](int32x4_t a, int32x4_t b) { return folded(vaddq_s32(a * b, start)); }),
              0);
}

TEST(LaneOperations, OperationsOnPairsOf32BitsKeepTheirWidth)
{
    const std::vector<std::int32_t> values = corners<std::int32_t>();
    constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
    for (const std::int32_t a : values) {
        for (const std::int32_t b : values) {
            const auto product = static_cast<std::int64_t>(a) * b;
            const int32x2_t pairA{a, 77};
            const int32x2_t pairB{b, -3};
            ASSERT_EQ(vmull_s32(pairA, pairB)[0], product);
            ASSERT_EQ(vhadd_s32(pairA, pairB)[0], (static_cast<std::int64_t>(a) + b) >> 1);
            ASSERT_EQ(vhadd_s32(pairA, pairB)[1], 37);
            ASSERT_EQ(vaddq_s32(vdupq_n_s32(a), vdupq_n_s32(b))[2],
                      static_cast<std::int32_t>(static_cast<std::int64_t>(a) + b));
            ASSERT_EQ(vmulq_s32(vdupq_n_s32(a), vdupq_n_s32(b))[3], static_cast<std::int32_t>(product));
            const std::int64_t upper =
                a == lowest && b == lowest ? 0x7FFFFFFF : rounded(Wide{2} * product, 32);
            ASSERT_EQ(vqrdmulh_s32(pairA, pairB)[0], upper) << a << " by " << b;
            ASSERT_EQ(vqrdmulh_s32(pairB, pairA)[0], upper) << b << " by " << a;
        }
    }
    EXPECT_EQ(vmull_s32(int32x2_t{1, lowest}, int32x2_t{1, lowest})[1], std::int64_t{1} << 62);
    EXPECT_EQ(vqrdmulh_s32(int32x2_t{1, lowest}, int32x2_t{1, lowest})[1], 0x7FFFFFFF);
}

TEST(LaneOperations, ShiftsByAConstantRoundOrWrap)
{
    for (const std::int32_t v : corners<std::int32_t>()) {
        const int32x4_t lanes = vdupq_n_s32(v);
        std::array<std::int32_t, 32> right{};
        std::array<std::int32_t, 32> left{};
        [&]<int... n>(std::integer_sequence<int, n...>)
        {
            right = {vrshrq_n_s32(lanes, n + 1)[n % 4]...};
            left = {vshlq_n_s32(lanes, n)[n % 4]...};
        }
        (std::make_integer_sequence<int, 32>());
        for (int n = 0; n < 32; ++n) {
            EXPECT_EQ(right[n], rounded(v, n + 1)) << v << " by " << n + 1;
            EXPECT_EQ(left[n], static_cast<std::int32_t>(Wide{v} << n)) << v << " by " << n;
        }
    }
}

TEST(LaneOperations, ShiftByAVectorTakesTheLowByteOfEachCount)
{
    for (const std::int64_t v : corners<std::int64_t>()) {
        for (int n = -128; n < 128; ++n) {
            std::int64_t expected = 0;  // a count that leaves nothing
            if (n >= 0 && n < 64)
                expected = static_cast<std::int64_t>(Wide{v} << n);
            else if (n < 0 && n > -126)
                expected = rounded(v, -n);
            int64x2_t counts = vdupq_n_s64(-n);
            counts[1] = (std::int64_t{0x1234567} << 8) | static_cast<std::uint8_t>(n);
            ASSERT_EQ(vrshlq_s64(vdupq_n_s64(v), counts)[1], expected) << v << " by " << n;
        }
    }
}

}  // namespace halvor::vx
