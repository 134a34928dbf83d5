// SPDX-License-Identifier: Apache-2.0
#include "core/fixpoint/Fixpoint.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

using namespace halvor::vx;

namespace {

Fixpoint pair(int mantissa, int exponent, int width = 8)
{
    Fixpoint f;
    f.setMantissa(static_cast<std::int16_t>(mantissa));
    f.setExponent(static_cast<std::int8_t>(exponent));
    f.setExponentWidth(static_cast<std::int8_t>(width));
    return f;
}

long double valueOf(const Fixpoint& f)
{
    return std::ldexp(static_cast<long double>(f.getMantissa()), f.getExponent());
}

// The nearest number with a full mantissa, ties upwards: what every operation has to give where no width
// confines it.
long double nearest(long double exact)
{
    if (exact == 0.0L)
        return 0.0L;
    for (int e = -300;; ++e) {
        const long double mantissa = std::floor(std::ldexp(exact, -e) + 0.5L);
        if (mantissa >= -32768.0L && mantissa <= 32767.0L)
            return std::ldexp(mantissa, e);
    }
}

Fixpoint randomPair(std::mt19937& random)
{
    const int mantissa = static_cast<std::int16_t>(random()) >> (random() % 16);
    return pair(mantissa, static_cast<int>(random() % 41) - 20);
}

void expectPair(const Fixpoint& f, int mantissa, int exponent)
{
    EXPECT_EQ(f.getMantissa(), mantissa);
    EXPECT_EQ(f.getExponent(), exponent);
}

}  // namespace

TEST(Fixpoint, RealValuesGetAFullMantissaSaturateOrVanish)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    for (const auto& [value, mantissa, exponent] :
         {std::tuple{2000.0F, 32000, -4},
          {1.0F, 16384, -14},
          {-1.0F, -32768, -15},
          {0.007F, 29360, -22},
          {32767.4F, 32767, 0},
          {32767.5F, 16384, 1},    // a tie that leaves the mantissa on its way up
          {-65537.0F, -32768, 1},  // one that comes back into it
          {0.0F, 0, 0},
          {infinity, 32767, 127},
          {-infinity, -32768, 127},
          {std::nanf(""), 0, 0},
          {std::numeric_limits<float>::denorm_min(), 0, 0},
          {std::numeric_limits<float>::min(), 4, -128}})
        expectPair(Fixpoint(value), mantissa, exponent);
    EXPECT_EQ(Fixpoint(0.007F).toFloat(), 29360.0F / 4194304.0F);
    Fixpoint narrow = pair(0, 0, 7);
    for (const auto& [value, mantissa, exponent] :
         {std::tuple{1e30F, 32767, 63}, {-1e30F, -32768, 63}, {0x1.8p-62F, 6, -64}, {0x1.8p-65F, 1, -64}}) {
        narrow.fromFloat(value);
        expectPair(narrow, mantissa, exponent);
    }
    narrow.setExponentWidth(0);  // counts as one bit: exponents -1 and 0
    narrow.fromFloat(1e6F);
    expectPair(narrow, 32767, 0);
}

TEST(Fixpoint, IntegersThatFitKeepTheExponentZero)
{
    Fixpoint f;
    for (int n = -32768; n <= 32767; ++n) {
        ASSERT_EQ(f.fromInt64(n), 0);
        ASSERT_EQ(f.getMantissa(), n);
        ASSERT_EQ(f.getExponent(), 0);
    }
    expectPair(Fixpoint(-7), -7, 0);
    EXPECT_EQ(f.fromInt32(32768), 1);
    expectPair(f, 16384, 1);
    EXPECT_EQ(f.fromInt64(-65537), 1);
    expectPair(f, -32768, 1);
    EXPECT_EQ(f.fromInt64(65535), 2);
    expectPair(f, 16384, 2);
    EXPECT_EQ(f.fromInt64(std::numeric_limits<std::int64_t>::max()), 49);
    expectPair(f, 16384, 49);
    EXPECT_EQ(f.fromInt64(std::numeric_limits<std::int64_t>::min()), 48);
    expectPair(f, -32768, 48);
    f.setExponentWidth(4);
    EXPECT_EQ(f.fromInt64(std::int64_t{1} << 40), 26);  // tells what does not fit
    expectPair(f, 32767, 7);
}

TEST(Fixpoint, IntegersWithAnExponentAreConfinedByTheWidth)
{
    Fixpoint f = pair(0, 0, 7);
    for (const auto& [value, given, mantissa, exponent] : {std::tuple{std::int64_t{100000}, -20, 25000, -18},
                                                           {3, -20, 3, -20},
                                                           {3, 70, 3 * 128, 63},
                                                           {std::int64_t{1} << 40, 60, 32767, 63},
                                                           {-48, -69, -1, -64},  // a tie, upwards
                                                           {-3, -128, 0, 0},
                                                           {0, -20, 0, 0}}) {
        f.fromInt64(value, static_cast<std::int8_t>(given));
        expectPair(f, mantissa, exponent);
    }
}

TEST(Fixpoint, ArithmeticIsExactUpToOneRounding)
{
    std::mt19937 random(11);
    for (int i = 0; i < 20000; ++i) {
        const Fixpoint a = randomPair(random);
        const Fixpoint b = randomPair(random);
        ASSERT_EQ(valueOf(Fixpoint::add(a, b)), nearest(valueOf(a) + valueOf(b)));
        ASSERT_EQ(valueOf(Fixpoint::mul(a, b)), nearest(valueOf(a) * valueOf(b)));
        ASSERT_EQ(valueOf(Fixpoint::neg(a)), -valueOf(a));
        ASSERT_EQ(Fixpoint::lt(a, b), valueOf(a) < valueOf(b));
        if (b.getMantissa() == 0)
            continue;
        ASSERT_NEAR(static_cast<double>(valueOf(Fixpoint::div(a, b)) * valueOf(b)),
                    static_cast<double>(valueOf(a)),
                    std::abs(static_cast<double>(valueOf(a))) * 0x1.0001p-15);
    }
}

TEST(Fixpoint, FarApartExponentsAndRestsOnlyTipTheRounding)
{
    expectPair(Fixpoint::div(pair(-32767, 0), pair(3, 0)), -21845, -1);  // -10922.33
    expectPair(Fixpoint::div(pair(1, 0), pair(-3, 0)), -21845, -16);
    expectPair(Fixpoint::div(pair(-32768, 0), pair(-1, 0)), 16384, 1);
    // 16384.5 is no mantissa: alone it rounds up, with anything less it rounds down.
    const Fixpoint tie = Fixpoint::add(pair(16384, 0), pair(1, -1));
    expectPair(tie, 16385, 0);
    expectPair(Fixpoint::add(pair(16384, 0), pair(32767, -100)), 16384, 0);
    expectPair(Fixpoint::add(pair(16384, 0), pair(-1, -100)), 16384, 0);
    expectPair(Fixpoint::add(pair(-1, -120), pair(1, 0)), 16384, -14);
    expectPair(Fixpoint::add(pair(0, 120), pair(5, -100)), 20480, -112);
    EXPECT_TRUE(Fixpoint::lt(pair(32767, -100), pair(1, 100)));
    EXPECT_FALSE(Fixpoint::lt(pair(1, 100), pair(32767, -100)));
    EXPECT_TRUE(Fixpoint::lt(pair(-1, 100), pair(0, -100)));
    EXPECT_FALSE(Fixpoint::lt(pair(2, 0), pair(1, 1)));
}

TEST(Fixpoint, ResultsTakeTheWiderWidthAndSaturateInIt)
{
    const Fixpoint large = pair(32767, 60, 7);
    const Fixpoint product = Fixpoint::mul(large, large);
    EXPECT_EQ(product.getExponentWidth(), 7);
    expectPair(product, 32767, 63);
    expectPair(Fixpoint::mul(large, pair(-32767, 60, 7)), -32768, 63);
    EXPECT_EQ(Fixpoint::mul(large, pair(1, 0, 8)).getExponentWidth(), 8);
    expectPair(Fixpoint::mul(pair(1, -60, 7), pair(1, -60, 7)), 0, 0);
    expectPair(Fixpoint::neg(pair(-32768, 63, 7)), 32767, 63);
    expectPair(Fixpoint::neg(pair(-32768, 3, 7)), 16384, 4);
    expectPair(Fixpoint::div(pair(3, 0, 7), pair(0, 0, 7)), 32767, 63);
    expectPair(Fixpoint::div(pair(-3, 0), pair(0, 5)), -32768, 127);
    expectPair(Fixpoint::div(pair(0, 0, 7), pair(0, 0, 7)), 0, 0);
}

TEST(Fixpoint, ScaleOfAnImageFollowsTheExponentAlone)
{
    Fixpoint f(2000.0F);
    EXPECT_EQ(f.getFloatFactor(), 0.0625F);
    EXPECT_EQ(f.getIntFactor(), 16.0F);
    EXPECT_EQ(f.getMinValue(), -2048.0F);
    EXPECT_EQ(f.getMaxValue(), 32767.0F / 16.0F);
    f.incrExponent(-3);
    expectPair(f, 32000, -7);
    f.incrExponent(-128);
    expectPair(f, 32000, -128);
    for (int i = 0; i < 3; ++i)
        f.incrExponent(127);
    expectPair(f, 32000, 127);
    EXPECT_TRUE(std::isinf(f.toFloat()));
}
