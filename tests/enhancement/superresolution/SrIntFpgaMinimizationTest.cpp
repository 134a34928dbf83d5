// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrIntFpgaMinimization.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <opencv2/core.hpp>
#include <random>
#include <string>
#include <vector>

#include "enhancement/superresolution/fixedpoint/FixedBurst.h"
#include "enhancement/superresolution/fixedpoint/FixedChecks.h"

using namespace halvor::vx;
using vxtest::linesOf;
using vxtest::sameBits;

namespace {

constexpr short width = 160;
constexpr short height = 120;
constexpr int largeWidth = 325;
constexpr int largeHeight = 245;

template <typename T>
cv::Mat_<T> randomImage(int rows, int columns, int lowest, int highest, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> values(lowest, highest);
    cv::Mat_<T> image(rows, columns);
    for (T& value : image)
        value = static_cast<T>(values(random));
    return image;
}

cv::Mat_<short> randomTaps(unsigned seed)
{
    return randomImage<short>(1, 6, 0, 20000, seed);
}

struct Problem : vxtest::FixedBurst
{
    explicit Problem(vxsupport::SceneKind kind) : FixedBurst({width, height}, kind)
    {
        masks[2](cv::Rect(20, 30, 40, 17)) = 0;
    }
};

}  // namespace

TEST(FpgaStream, ConvolvesAsThePlainKernelWhereAMaskIsSet)
{
    SrIntFpgaMinimization solver(width, height, 5, 2);
    SrIntMinimization& plain = solver;
    cv::Mat_<short> frame = randomImage<short>(height, width, -9000, 9000, 1);
    cv::Mat_<short> rowTaps = randomTaps(2);
    cv::Mat_<short> colTaps = randomTaps(3);
    const auto mask = randomImage<signed char>(height, width, -2, 2, 4);
    cv::Mat_<signed char> isSet;
    cv::Mat(mask != 0).convertTo(isSet, CV_8S, 1.0 / 255.0);
    const auto before = randomImage<short>(largeHeight, largeWidth, -300, 300, 5);

    cv::Mat_<short> expected = before.clone();
    plain.fullConvFromSparse(frame, rowTaps, colTaps, isSet, expected, -16);
    cv::Mat_<short> streamed = before.clone();
    solver.fullConvFromSparseLinewise(frame[0], rowTaps[0], colTaps[0], mask[0], streamed[0]);
    EXPECT_TRUE(sameBits(streamed, expected));
    EXPECT_TRUE(sameBits(streamed.row(244), before.row(244)));
    EXPECT_TRUE(sameBits(streamed.col(324), before.col(324)));

    // Where the plain kernel refuses a sum, the stream wraps.
    frame.setTo(32767);
    colTaps.setTo(32767);
    cv::Mat_<short> unused = before.clone();
    EXPECT_THROW(plain.fullConvFromSparse(frame, rowTaps, colTaps, isSet, unused, -16), Exception);
    EXPECT_NO_THROW(solver.fullConvFromSparseLinewise(frame[0], rowTaps[0], colTaps[0], mask[0], unused[0]));
}

TEST(FpgaStream, CorrelatesAsThePlainKernelForAnyShift)
{
    SrIntFpgaMinimization solver(width, height, 5, 2);
    SrIntMinimization& plain = solver;
    const auto large = randomImage<short>(largeHeight, largeWidth, -9000, 9000, 6);
    cv::Mat_<short> rowTaps = randomTaps(7);
    cv::Mat_<short> colTaps = randomTaps(8);
    for (const int exponent : {-16, -17}) {
        const auto shift = static_cast<signed char>(exponent);
        cv::Mat_<short> expected(height, width);
        plain.validCorrToSparse(large, rowTaps, colTaps, expected, shift);
        cv::Mat_<short> streamed = randomImage<short>(height, width, -5, 5, 9);
        solver.validCorrToSparseLinewise(large[0], rowTaps[0], colTaps[0], streamed[0], shift);
        EXPECT_TRUE(sameBits(streamed, expected)) << exponent;
    }
}

TEST(FpgaStream, RoundsEachProductOfSixteenByThirtyTwoBitsOnce)
{
    EXPECT_EQ(SrIntFpgaMinimization::Mac_16_32(1, INT32_MAX), 0);
    EXPECT_EQ(SrIntFpgaMinimization::Mac_16_32(2, 1 << 30), 1);  // one half goes up
    EXPECT_EQ(SrIntFpgaMinimization::Mac_16_32(-2, 1 << 30), 0);
    EXPECT_EQ(SrIntFpgaMinimization::Mac_16_32(-3, 1 << 30), -1);
    EXPECT_EQ(SrIntFpgaMinimization::Mac_16_32(-32768, INT32_MIN), 16384);
    EXPECT_EQ(SrIntFpgaMinimization::Mac_16_32(-32768, INT32_MAX), -16384);
}

// The asymmetry of the pipeline: in place the bound takes part in the update, from bank to bank it does not.
TEST(FpgaBanks, KeepTheBoundOfASearchDirectionOnlyInPlace)
{
    SrIntFpgaMinimization solver(width, height, 5, 2);
    const cv::Mat_<short> residual(largeHeight, largeWidth, short{30000});
    cv::Mat_<short> direction(largeHeight, largeWidth, short{0});
    direction(100, 200) = 3000;

    cv::Mat_<short> other(largeHeight, largeWidth);
    const auto lines = linesOf(solver.getDebugChannel(), 2, [&] {
        solver.computeS(direction[0], other, residual, 1, 0);
        solver.computeS(direction[0], direction, residual, 1, 0);
    });
    EXPECT_EQ(other(100, 200), static_cast<short>(33000));
    EXPECT_EQ(other(0, 0), 30000);
    EXPECT_EQ(direction(100, 200), static_cast<short>(30000 + 32767));
    EXPECT_EQ(direction(0, 0), 30000);
    EXPECT_EQ(lines, std::vector<std::string>(2, "clamped S value"));
}

TEST(FpgaSolver, GivesTheBitsOfThePlainSolver)
{
    for (const vxsupport::SceneKind kind : {vxsupport::SceneKind::target, vxsupport::SceneKind::facade}) {
        Problem problem(kind);
        SrIntMinimization plain(width, height, 5, 2);
        SrIntFpgaMinimization pipeline(width, height, 5, 2);
        plain.setRelRes(0.003F);
        pipeline.setRelRes(0.003F);
        for (const short budget : {short{8}, short{1}, short{3}, short{40}}) {
            plain.setMaxIter(budget);
            pipeline.setMaxIter(budget);
            const cv::Mat_<float> expected = problem.solve(plain);
            const short steps = problem.steps;
            EXPECT_GT(steps, 0);
            EXPECT_TRUE(sameBits(problem.solve(pipeline), expected)) << "budget " << budget;
            EXPECT_EQ(problem.steps, steps) << "budget " << budget;
        }
    }
}

// The first estimate is read from the right-hand side and never copied, so that no bank holds it.
TEST(FpgaSolver, GivesOutTheFirstBankAsItStandsAfterARunWithoutAStep)
{
    Problem problem(vxsupport::SceneKind::target);
    SrIntFpgaMinimization pipeline(width, height, 5, 2);
    pipeline.setRelRes(1.0F);
    const cv::Mat_<float> first = problem.solve(pipeline);
    EXPECT_EQ(problem.steps, 0);
    EXPECT_EQ(cv::norm(first - first(0, 0), cv::NORM_INF), 0.0);
    EXPECT_NEAR(first(0, 0), cv::mean(problem.frames[1])[0], 1.0);

    pipeline.setRelRes(0.003F);  // takes a second round of steps, which writes the first bank
    pipeline.setMaxIter(40);
    problem.solve(pipeline);
    pipeline.setRelRes(1.0F);
    EXPECT_GT(cv::norm(problem.solve(pipeline) - first, cv::NORM_INF), 100.0);
}

TEST(FpgaSolver, TellsItsStepsOnItsOwnChannelAndRefusesWhatItCannotStream)
{
    Problem problem(vxsupport::SceneKind::target);
    SrIntFpgaMinimization pipeline(width, height, 5, 2);
    const auto lines = linesOf(pipeline.getFpgaChannel(), 11, [&] { problem.solve(pipeline); });
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "start minimize");
    EXPECT_EQ(lines.back(), "end minimize");
    EXPECT_NE(std::find(lines.begin(), lines.end(), "start FPGA gradient"), lines.end());

    cv::Mat_<short> large(largeHeight, largeWidth, short{0});
    const cv::Mat_<short> small(3, 3, short{0});
    for (const int shift : {1, -1})
        EXPECT_THROW(pipeline.computeR(large[0], large[0], small, 1, static_cast<signed char>(shift), 0),
                     Exception);
    try {
        pipeline.computeAlpha(large[0], small, 0);
        FAIL();
    } catch (const Exception& error) {
        EXPECT_STREQ(error.what(), "invalid S or Q frame size");
        EXPECT_NE(error.where().find(" : halvor::vx::SrIntFpgaMinimization::computeAlpha(..)"),
                  std::string::npos);
    }

    const cv::Mat_<signed char> wide(height, width + 8, static_cast<signed char>(1));
    problem.masks[3] = wide(cv::Rect(4, 0, width, height));
    EXPECT_THROW(problem.solve(pipeline), Exception);
    problem.masks[3].create(height - 1, width);
    EXPECT_THROW(problem.solve(pipeline), Exception);
    problem.masks.pop_back();
    EXPECT_THROW(problem.solve(pipeline), Exception);
    EXPECT_THROW(SrIntFpgaMinimization(height, width, 5, 2), Exception);
    EXPECT_THROW(SrIntFpgaMinimization(width, height, 5, 3), Exception);
}
