// SPDX-License-Identifier: Apache-2.0
// The total-variation operator of the fixed-point solver: rows against pixels, and the corners that targets depend
// on.
#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <random>

#include "enhancement/superresolution/SrIntMinimization.h"
#include "enhancement/superresolution/fixedpoint/FixedChecks.h"

using namespace halvor::vx;

namespace {

using Image = cv::Mat_<short>;

class Operator : public SrIntMinimization
{
public:
    Operator() : SrIntMinimization(16, 12, 1, 2) {}

    template <typename Work>
    std::vector<std::string> linesOf(Work work)
    {
        return vxtest::linesOf(debugChannel_, 11, work);
    }
    Image image(int bound, unsigned seed) const
    {
        std::mt19937 random(seed);
        std::uniform_int_distribution<int> any(-bound, bound);
        Image made(fullHeight_, fullWidth_);
        for (short& sample : made)
            sample = static_cast<short>(any(random));
        return made;
    }
    Image flat(short value) const { return Image(fullHeight_, fullWidth_, value); }
    void freeze(const Image& X, signed char e) { computeLSimplified(X, epsilon_, invEpsilon_, lambda_, e); }
    void freezeByDivision(const Image& X, signed char e) { computeL(X, epsilon_, invEpsilon_, lambda_, e); }
    std::vector<Image> planes() const { return {Lr_.clone(), Ld_.clone(), Ldl_.clone(), Ldr_.clone()}; }
    short entry(int i) const { return lambdaLut_[static_cast<std::size_t>(i)]; }
    /// Weight of a difference between neighbours, with bounds in samples.
    short weight(int difference, short lo, short hi, signed char e)
    {
        Image X = flat(0);
        X(0, 1) = static_cast<short>(difference);
        return computeLpixelSimplified(X[0], 0, 1, 0, 0, false, epsilon_, invEpsilon_, lo, hi, lambda_, e);
    }
    short dividedWeight(short difference, short lo, short hi, signed char e)
    {
        return computeLpixel(difference, 0, false, epsilon_, invEpsilon_, lo, hi, lambda_, e);
    }
    short applied(const Image& in, int y, int x)
    {
        return applyLpixelSimplified(Ldr_[0], Ld_[0], Ldl_[0], Lr_[0], in[0], static_cast<short>(y),
                                     static_cast<short>(x));
    }
};

}  // namespace

TEST(FixedVariation, IsTheSameByRowsAndByPixels)
{
    Operator op;
    for (const float weight : {1.0F, 2.0F, 400.0F, 600.0F})
        for (const int e : {-128, -40, -12, -4, -3, -2, 0, 3, 5, 40, 127}) {
            SCOPED_TRACE(testing::Message() << "weight " << weight << ", exponent " << e);
            op.setWeightTV(weight);
            const Image X = op.image(e < -4 ? 32767 : 90, 3);
            op.freeze(X, static_cast<signed char>(e));
            const std::vector<Image> rows = op.planes();
            op.linesOf([&, e = e] { op.freeze(X, static_cast<signed char>(e)); });
            const std::vector<Image> pixels = op.planes();
            for (std::size_t i = 0; i < rows.size(); ++i)
                ASSERT_TRUE(vxtest::sameBits(rows[i], pixels[i])) << "plane " << i;
            const Image in = op.image(32767, 6);
            Image out = op.flat(77);
            op.applyLSimplified(in, out);
            for (int y = 0; y < out.rows; ++y)
                for (int x = 0; x < out.cols; ++x)
                    ASSERT_EQ(out(y, x), op.applied(in, y, x)) << y << ", " << x;
        }
}

TEST(FixedVariation, LooksWeightsUpByEighths)
{
    Operator op;
    EXPECT_EQ(op.entry(0), 0);
    EXPECT_EQ(op.entry(1), -82);  // -1 / 400 * 2^15
    EXPECT_EQ(op.entry(64), -1);
    EXPECT_EQ(op.weight(3, 3, 40, 0), op.entry(1));    // at lo
    EXPECT_EQ(op.weight(4, 3, 40, 0), op.entry(32));   // a sample is 1: eight eighths each
    EXPECT_EQ(op.weight(40, 3, 40, 0), op.entry(64));  // at hi
    EXPECT_EQ(op.weight(-40, 3, 40, 0), op.entry(64));
    // A sample of 2^-5 is a quarter of a step.
    EXPECT_EQ(op.weight(15, 3, 40, -5), op.entry(3));
    EXPECT_EQ(op.weight(4, 3, 400, -9), op.entry(1));
    EXPECT_EQ(op.weight(30000, 3, 32767, 4), op.entry(127));
}

TEST(FixedVariation, ReplacesAWeightOutOfRangeByZero)
{
    Operator op;
    op.setWeightTV(1.0F);
    EXPECT_EQ(op.entry(1), -32768);
    const auto lines = op.linesOf([&] {
        EXPECT_EQ(op.weight(0, 1, 40, 0), 0);
        EXPECT_EQ(op.weight(2, 1, 40, 0), -2048);
    });
    EXPECT_EQ(lines, std::vector<std::string>{"computeLpixel out of allowed range"});
    Fixpoint lambda(-30000.0F / 32768.0F);
    op.computeLambdaDivByEpsLut(lambda);
    EXPECT_EQ(op.weight(0, 1, 40, 0), -30000);
}

TEST(FixedVariation, RoundsTheFirstCornerApartFromTheOthers)
{
    Operator op;
    EXPECT_EQ(op.computeLc(1, 0, 1, 0, 0, 0, 0, 0), -1);
    EXPECT_EQ(op.computeLc(1, 0, 0, 0, 0, 0, 0, 0), 0);
    EXPECT_EQ(op.computeLc(0, 0, 0, 0, 1, 0, 0, 0), -1);
    EXPECT_EQ(op.computeLc(-4, -1, -4, -2, -4, -3, -4, -5), 19);
    // The halving wraps in 16 bits.
    EXPECT_EQ(op.computeLc(0, 0, 32767, 0, 0, 0, 0, 0), 16384);
}

// With even weights the centre balances its edges; what the shifts of the products drop is below a sample.
TEST(FixedVariation, LeavesAFlatImageFlat)
{
    Operator op;
    op.freezeByDivision(op.flat(500), 0);
    Image bySimple = op.flat(9);
    Image byDivision = op.flat(9);
    op.applyL(op.flat(500), byDivision);
    op.freeze(op.flat(500), 0);
    op.applyLSimplified(op.flat(500), bySimple);
    for (const Image& out : {bySimple, byDivision})
        EXPECT_EQ(cv::countNonZero((out == 0) | (out == -1)), static_cast<int>(out.total()));
}

// The table weighs twice as much as the division, and ends at 8 where the division ends at 1 / epsilon, 10.
TEST(FixedVariation, OfTheEarlierFormAgreesWithTheTable)
{
    Operator op;
    op.setWeightTV(4.0F);
    EXPECT_EQ(op.dividedWeight(16, 3, 40, 0), -16384);  // -1/4 / 16 * 2^20
    EXPECT_EQ(op.dividedWeight(40, 3, 40, 0), -26214);  // 1 / epsilon is 10
    EXPECT_EQ(op.dividedWeight(3, 3, 40, -3), 0);       // at epsilon the weight leaves its range
    Image X = op.flat(0);
    Image out = op.flat(0);
    for (int i = 0; i < static_cast<int>(X.total()); ++i)
        X(i / X.cols, i % X.cols) = static_cast<short>(6 * (i % X.cols) + 12 * (i / X.cols));
    X(10, 10) = static_cast<short>(X(10, 10) + 200);
    op.freezeByDivision(X, -3);
    Image in = op.flat(0);
    in(10, 10) = 8000;
    op.applyL(in, out);
    const short divided = out(10, 10);
    op.freeze(X, -3);
    op.applyLSimplified(in, out);
    EXPECT_GT(divided, 0);
    EXPECT_NEAR(out(10, 10), 2.0 * 10.0 / 8.0 * divided, 5.0);
    EXPECT_LE(out(10, 9), 0);
}

TEST(FixedVariation, ComparesPlanesOnTheChannel)
{
    Operator op;
    Image a(2, 2, short{10});
    a(1, 1) = -21;
    // The mean, -23 / 4, is truncated.
    EXPECT_EQ(op.linesOf([&] { op.checkLCoeffs(a, Image(2, 2, short{2}), 2, "Lr"); }),
              (std::vector<std::string>{"Lr Max diff: 29", "Lr Mean diff: -5"}));
}

TEST(FixedVariation, ConfinesAMantissaToItsBits)
{
    const auto converted = [](short mantissa, signed char exponent, unsigned char bits) {
        Fixpoint value;
        value.setMantissa(mantissa);
        value.setExponent(exponent);
        value.setExponentWidth(7);
        const Fixpoint result = SrIntMinimization::convToXBitMantissa(value, bits);
        return std::pair<int, int>(result.getMantissa(), result.getExponent());
    };
    using Pair = std::pair<int, int>;
    EXPECT_EQ(converted(1000, 0, 8), Pair(250, 2));  // up to 255: only what is above is halved
    EXPECT_EQ(converted(200, 0, 8), Pair(200, 0));
    EXPECT_EQ(converted(3, 0, 8), Pair(192, -6));
    EXPECT_EQ(converted(3, -63, 8), Pair(6, -64));
    EXPECT_EQ(converted(0, 5, 8), Pair(0, -64));
    EXPECT_EQ(converted(-64, 1, 8), Pair(-64, 1));
    EXPECT_THROW(converted(1000, 63, 8), Exception);
    EXPECT_THROW(converted(-65, 0, 8), Exception);  // the bound of negative ones is positive
}
