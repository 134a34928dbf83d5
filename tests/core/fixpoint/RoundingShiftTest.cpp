// SPDX-License-Identifier: Apache-2.0
#include "core/fixpoint/RoundingShift.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>

using namespace halvor::vx;

TEST(RoundingShift, RoundsEvery16BitValueToTheNearestWithTiesUpwards)
{
    for (int n = 1; n < 256; ++n) {
        for (int v = -32768; v <= 32767; ++v) {
            const int half = n > 17 ? 1 << 17 : 1 << (n - 1);  // above 17 bits every value rounds to 0
            const int expected = v == 32767 && n == 1 ? -16384 : (v + half) >> (n > 17 ? 18 : n);
            ASSERT_EQ(roundShiftRight16(static_cast<std::int16_t>(v), static_cast<std::uint8_t>(n)), expected)
                << v << " by " << n;
        }
    }
}

TEST(RoundingShift, WiderFormsAgreeWithTheNarrowOneAndWrapInTheirOwnWidth)
{
    std::mt19937_64 random(7);
    for (int i = 0; i < 200000; ++i) {
        const auto v = static_cast<std::int64_t>(random()) >> (random() % 64);
        const int n = static_cast<int>(random() % 63) + 1;
        const std::int64_t exact = (v >> n) + ((v >> (n - 1)) & 1);
        if (v != std::numeric_limits<std::int64_t>::max()) {
            ASSERT_EQ(roundShiftRight64(v, static_cast<std::uint8_t>(n)), exact);
        }
        const auto narrow = static_cast<std::int32_t>(v);
        if (narrow == v && n < 32 && v != std::numeric_limits<std::int32_t>::max()) {
            ASSERT_EQ(roundShiftRight32(narrow, static_cast<std::uint8_t>(n)), exact);
        }
    }
    EXPECT_EQ(roundShiftRight32(0x7FFFFFFF, 1), -0x40000000);
    EXPECT_EQ(roundShiftRight64(0x7FFFFFFFFFFFFFFF, 1), -0x4000000000000000);
    EXPECT_EQ(roundShiftRight32(0x7FFFFFFF, 2), 0x20000000);
}

TEST(RoundingShift, TiesAndUselessCountsAreDefined)
{
    EXPECT_EQ(roundShiftRight32(5, 0), 3);
    EXPECT_EQ(roundShiftRight16(5, 0), 3);
    EXPECT_EQ(roundShiftRight64(-5, 0), -2);
    for (const int n : {32, 33, 64, 65, 128, 255}) {
        const auto count = static_cast<std::uint8_t>(n);
        EXPECT_EQ(roundShiftRight32(0x7FFFFFFF, count), 0);
        EXPECT_EQ(roundShiftRight32(-0x7FFFFFFF, count), 0);
        EXPECT_EQ(roundShiftRight64(-1, count), 0);
    }
}

TEST(RoundingShift, SignedCountShiftsLeftPlainlyAndRightWithRounding)
{
    EXPECT_EQ(shiftRound32(3, -1), 2);
    EXPECT_EQ(shiftRound32(-3, -1), -1);
    EXPECT_EQ(shiftRound32(-3, 0), -3);
    EXPECT_EQ(shiftRound16(0x4001, 1), static_cast<std::int16_t>(0x8002));
    EXPECT_EQ(shiftRound16(0x4001, 2), 4);
    EXPECT_EQ(shiftRound16(-1, 16), 0);
    EXPECT_EQ(shiftRound32(-1, 31), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(shiftRound32(-1, 32), 0);
    EXPECT_EQ(shiftRound64(1, 40), std::int64_t{1} << 40);
    EXPECT_EQ(shiftRound64(-1, 64), 0);
    EXPECT_EQ(shiftRound64(std::int64_t{3} << 40, -41), 2);
    EXPECT_EQ(shiftRound64(-1, -128), 0);
    EXPECT_EQ(shiftRound16(-32768, -128), 0);
}
