// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "core/fixpoint/RoundingShift.h"
#include "core/imaging/PointSpread.h"
#include "doubles/ThreadCount.h"
#include "enhancement/superresolution/SrIntMinimization.h"
#include "enhancement/superresolution/fixedpoint/FixedChecks.h"

using namespace halvor::vx;
using vxtest::messageOf;
using vxtest::sameBits;

namespace {

using Image = cv::Mat_<short>;
using Mask = cv::Mat_<signed char>;
using FullForm = void (SrIntMinimization::*)(const Image&, const Image&, const Image&, const Mask&, Image&,
                                             signed char);

constexpr signed char tapExponent = -16;

class Solver : public SrIntMinimization
{
public:
    Solver(int width, int height)
        : SrIntMinimization(static_cast<short>(width), static_cast<short>(height), 3, 2)
    {}
    const Image& kernelX(int frame) const { return psfX_[frame]; }
    const Image& kernelY(int frame) const { return psfY_[frame]; }
};

Image kernelOf(const std::vector<short>& taps)
{
    return Image(taps, true).reshape(1, 1);
}

// A burst's frame, mask and large image with the kernels of a sub-pixel shift.
struct Model
{
    Model(int w, int h, int largest = 16383, unsigned seed = 5)
        : width(w), height(h), solver(w, h), frame(h, w), mask(h, w), large(2 * h + 5, 2 * w + 5)
    {
        const PointF shift{0.21F, -0.37F};
        solver.generatePsfs(1, &shift);
        cv::RNG random(seed);
        random.fill(frame, cv::RNG::UNIFORM, -largest, largest + 1);
        random.fill(large, cv::RNG::UNIFORM, -largest, largest + 1);
        random.fill(mask, cv::RNG::UNIFORM, 0, 2);
    }

    Image full(FullForm form = &SrIntMinimization::fullConvFromSparse)
    {
        Image out = large.clone();
        (solver.*form)(frame, solver.kernelX(0), solver.kernelY(0), mask, out, tapExponent);
        return out;
    }

    Image valid() { return correlated(&SrIntMinimization::validCorrToSparse); }
    Image validLinewise() { return correlated(&SrIntMinimization::validCorrToSparseLinewise); }

    int width;
    int height;
    Solver solver;
    Image frame;
    Mask mask;
    Image large;

private:
    template <typename Form>
    Image correlated(Form form)
    {
        Image out(height, width, short{77});
        (solver.*form)(large, solver.kernelX(0), solver.kernelY(0), out, tapExponent);
        return out;
    }
};

short roundedProduct(int sample, int first, int second)
{
    return static_cast<short>(
        shiftRound64(static_cast<std::int64_t>(sample) * first * second, 2 * tapExponent));
}

std::vector<std::string> linesOf(Model& model, FullForm form, Image& out)
{
    return vxtest::linesOf(model.solver.getDebugChannel(), 11, [&] { out = model.full(form); });
}

}  // namespace

TEST(FixedConvolution, TapsAreTheShiftedPointSpreadIn16Bits)
{
    Solver solver(8, 8);
    const std::array<PointF, 3> shifts{PointF{0.0F, 0.5F}, {-0.5F, 0.125F}, {0.0F, 0.0F}};
    solver.generatePsfs(3, shifts.data());
    std::array<float, 6> base{};
    fillBasePsf(0.683F, 2.0F, base);
    for (int k = 0; k < 6; ++k) {
        const auto tap = [&](float value) { return static_cast<int>(std::lround(value * 65536.0F)); };
        EXPECT_EQ(solver.kernelX(0)(0, k), tap(base[k]));
        EXPECT_EQ(solver.kernelY(0)(0, k), tap(k < 5 ? base[k + 1] : 0.0F));
        EXPECT_EQ(solver.kernelX(1)(0, k), tap(k > 0 ? base[k - 1] : 0.0F));
        EXPECT_NEAR(solver.kernelY(1)(0, k),
                    65536.0F * (0.75F * base[k] + (k < 5 ? 0.25F * base[k + 1] : 0.0F)), 1);
    }
    const PointF beyond{0.51F, 0.0F};
    EXPECT_EQ(messageOf([&] { solver.generatePsfs(1, &beyond); }),
              "convertMatFloatToMatInt: value clamped to min");
    EXPECT_EQ(messageOf([&] { solver.generatePsfs(4, shifts.data()); }), "invalid number of frames");
}

TEST(FixedConvolution, PlainPairScattersAndGathersOneTapAfterTheOther)
{
    Model model(5, 4);
    const Image x = model.solver.kernelX(0);
    const Image y = model.solver.kernelY(0);
    model.mask.setTo(1);
    model.large.setTo(0);
    model.frame.setTo(0);
    model.frame(1, 3) = -12345;
    const Image out = model.full();
    for (int r = 0; r < out.rows; ++r)
        for (int c = 0; c < out.cols; ++c) {
            const bool isHit = r >= 2 && r < 8 && c >= 6 && c < 12;
            ASSERT_EQ(out(r, c), isHit ? roundedProduct(-12345, y(0, r - 2), x(0, c - 6)) : 0)
                << r << " " << c;
        }
    model.large(5, 7) = 23456;
    const Image low = model.valid();
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 5; ++c) {
            const bool isHit = 2 * r <= 5 && 2 * r > -1 && 2 * c <= 7 && 2 * c > 1;
            ASSERT_EQ(low(r, c), isHit ? roundedProduct(23456, y(0, 5 - 2 * r), x(0, 7 - 2 * c)) : 0)
                << r << " " << c;
        }
}

TEST(FixedConvolution, FormsOfTheScatteringAgree)
{
    for (const auto& [w, h] : {std::pair{8, 6}, {16, 5}, {1, 1}, {7, 3}, {40, 31}, {12, 2}}) {
        SCOPED_TRACE(w);
        Model model(w, h);
        const Image plain = model.full();
        const Image linewise = model.full(&SrIntMinimization::fullConvFromSparseLinewise);
        EXPECT_LE(cv::norm(linewise, plain, cv::NORM_INF), 4.0);  // products are rounded at other places
        EXPECT_TRUE(sameBits(model.full(&SrIntMinimization::fullConvFromSparseLinewise2), linewise));
        if (w % 4 == 0) {
            EXPECT_TRUE(sameBits(model.full(&SrIntMinimization::fullConvFromSparseLinewise4), linewise));
        }
        if (w % 8 == 0) {
            Image lanes;
            const auto lines = linesOf(model, &SrIntMinimization::fullConvFromSparseNeon, lanes);
            EXPECT_THAT(lines, testing::Not(testing::Contains(testing::HasSubstr("mismatch"))));
            EXPECT_TRUE(sameBits(lanes, plain));
        }
        EXPECT_TRUE(sameBits(model.validLinewise(), model.valid()));
        model.mask.setTo(0);
        EXPECT_TRUE(sameBits(model.full(), model.large));
        EXPECT_TRUE(sameBits(model.full(&SrIntMinimization::fullConvFromSparseLinewise), model.large));
    }
}

TEST(FixedConvolution, LargestSumPassesAndOneMoreFails)
{
    Solver solver(9, 3);
    const Image image(3, 9, short{-32768});
    const Mask mask(3, 9, static_cast<signed char>(-1));
    Image result(11, 23, short{0});
    const Image none = kernelOf({0, 0, 0, 0, 0, 0});
    const auto full = [&](short lastTap) {
        solver.fullConvFromSparse(image, none, kernelOf({32767, 0, 32767, 0, lastTap, 0}), mask, result,
                                  tapExponent);
    };
    full(1);  // 32768 * 65535
    try {
        full(2);
        FAIL();
    } catch (const Exception& error) {
        EXPECT_STREQ(error.what(), "integer out of int32_t range in first loop of fullConvFromSparse");
        EXPECT_THAT(error.where(),
                    testing::HasSubstr(" : halvor::vx::SrIntMinimization::fullConvFromSparse(..)"));
    }

    const Image large(11, 23, short{-32768});
    Image low(3, 9);
    const auto valid = [&](short lastTap) {
        return messageOf([&] {
            solver.validCorrToSparse(large, kernelOf({-32767, -32767, lastTap, 0, 0, 0}), none, low,
                                     tapExponent);
        });
    };
    EXPECT_EQ(valid(-1), "");
    EXPECT_EQ(valid(-2), "integer out of int32_t range in first loop of validCorrToSparse");
}

TEST(FixedConvolution, RowThatLeaves16BitsEndsInFrontOfThePixel)
{
    Solver solver(300, 2);
    Image image(2, 300, short{100});
    image(0, 280) = 32767;
    const Mask mask(2, 300, static_cast<signed char>(1));
    const Image taps = kernelOf({257, 128, 0, 0, 0, 0});
    const Image columns = kernelOf({256, 0, 0, 0, 0, 0});
    Image result(9, 605, short{1});
    EXPECT_EQ(messageOf([&] { solver.fullConvFromSparse(image, taps, columns, mask, result, -8); }),
              "integer out of int16_t range in second loop of fullConvFromSparse");
    EXPECT_EQ(result(0, 558), 101);
    EXPECT_EQ(result(0, 560), 1);
    EXPECT_EQ(result(0, 1), 1) << "the next tap of that row";
    EXPECT_EQ(result(2, 599), 51) << "another row";

    Image large(9, 605, short{100});
    large(2, 400) = 32767;
    Image low(2, 300);
    const Image one = kernelOf({256, 0, 256, 0, 0, 0});
    EXPECT_EQ(messageOf([&] { solver.validCorrToSparse(large, one, one, low, -8); }),
              "integer out of int16_t range in second loop of validCorrToSparse");
}

TEST(FixedConvolution, RefusesImagesAndKernelsThatDoNotFit)
{
    Model model(16, 4);
    const Image six = model.solver.kernelX(0);
    const Image five = kernelOf({1, 2, 3, 4, 5});
    const Image eight = kernelOf({1, 2, 3, 4, 5, 6, 7, 8});
    const Mask wrongMask(4, 15, static_cast<signed char>(1));
    Image wrongResult(13, 36, short{0});
    Image result = model.large.clone();
    const auto full = [&](FullForm form, const Image& image, const Image& x, const Image& y, const Mask& mask,
                          Image& out) {
        return messageOf([&] { (model.solver.*form)(image, x, y, mask, out, tapExponent); });
    };
    const FullForm plain = &SrIntMinimization::fullConvFromSparse;
    EXPECT_EQ(full(plain, model.large, eight, eight, wrongMask, wrongResult), "invalid image frame size");
    EXPECT_EQ(full(plain, model.frame, eight, eight, wrongMask, wrongResult), "invalid row mask size");
    EXPECT_EQ(full(plain, model.frame, six, Image(), wrongMask, wrongResult), "invalid col mask size");
    EXPECT_EQ(full(plain, model.frame, six, five, wrongMask, wrongResult), "invalid input mask size");
    EXPECT_EQ(full(plain, model.frame, six, five, model.mask, wrongResult), "invalid result frame size");
    EXPECT_EQ(full(plain, model.frame, six, five, model.mask, result), "");
    for (const FullForm form :
         {&SrIntMinimization::fullConvFromSparseLinewise, &SrIntMinimization::fullConvFromSparseLinewise2,
          &SrIntMinimization::fullConvFromSparseLinewise4})
        EXPECT_EQ(full(form, model.frame, five, six, model.mask, result), "invalid row mask size");
    Image low(4, 16);
    EXPECT_EQ(messageOf([&] { model.solver.validCorrToSparseLinewise(result, six, five, low, tapExponent); }),
              "invalid col mask size");
    EXPECT_EQ(messageOf([&] { model.solver.validCorrToSparse(result, six, five, wrongResult, tapExponent); }),
              "invalid result frame size");

    Model odd(6, 4);
    EXPECT_EQ(messageOf([&] { odd.full(&SrIntMinimization::fullConvFromSparseNeon); }),
              "the frame's width is not a multiple of 8");
    EXPECT_EQ(messageOf([&] { odd.full(&SrIntMinimization::fullConvFromSparseLinewise4); }),
              "the frame's width is not a multiple of 4");
}

TEST(FixedConvolution, LaneFormTellsWhereItsLanesDifferAndTakesTheScalarValues)
{
    Model model(8, 2);
    model.mask.setTo(1);
    model.mask(1, 5) = 3;  // in 16 bits this product wraps, as a lane does it
    model.frame(1, 5) = 15000;
    Image lanes;
    const auto lines = linesOf(model, &SrIntMinimization::fullConvFromSparseNeon, lanes);
    EXPECT_EQ(lines.back(), "end SrInt_Convolution.fullConvFromSparseNeon");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "mismatch loop 1"), 5);  // a tap of 0 differs nowhere
    EXPECT_THAT(lines,
                testing::Contains(testing::MatchesRegex("mismatch loop 1-5: -?[0-9]+ != -?[0-9]+")).Times(5));
    EXPECT_TRUE(sameBits(lanes, model.full()));
}

TEST(FixedConvolution, FormInPairsOfColumnsTracesItsFirstRows)
{
    Model model(4, 6);
    Image out;
    const auto lines = linesOf(model, &SrIntMinimization::fullConvFromSparseLinewise2, out);
    EXPECT_THAT(lines, testing::Contains("Line2, row 7"));
    for (const char* const stage : {"TempA[0]=", "TempB[3]=", "Result1a[7]=", "Result2a[7]=",
                                    "ResultEvenLine[0]=", "ResultOddLine[7]=", "Results[11]=", "Result[11]="})
        EXPECT_THAT(lines, testing::Contains(testing::HasSubstr(stage)).Times(2)) << stage;
}

TEST(FixedConvolution, BitsDoNotDependOnTheNumberOfThreads)
{
    Model model(272, 160);
    const Image full = model.full();
    const Image low = model.validLinewise();
    for (const int threads : {1, 2, 7}) {
        const vxtest::ThreadCount count(threads);
        EXPECT_TRUE(sameBits(model.full(), full)) << threads;
        EXPECT_TRUE(sameBits(model.full(&SrIntMinimization::fullConvFromSparseNeon), full)) << threads;
        EXPECT_TRUE(sameBits(model.valid(), low)) << threads;
    }
}
