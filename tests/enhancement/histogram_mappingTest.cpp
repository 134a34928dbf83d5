// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <opencv2/core.hpp>
#include <utility>
#include <vector>

#include "core/base/Exception.h"
#include "doubles/BlockFrames.h"
#include "enhancement/EqualiserScale.h"
#include "enhancement/histogram.h"

using blocktest::makeFrame;
using blocktest::Scene;
using blocktest::Size;
using testing::Each;

// Of several bins that reach one level the pixel that comes last decides about the level's slope.
TEST(Equaliser, MapsAFrameAsItMapsOnePixelAfterTheOther)
{
    constexpr int big = std::numeric_limits<int>::max();
    constexpr int small = std::numeric_limits<int>::min();
    std::vector<HistogramParam> params;
    for (int mode = 0; mode <= 4; ++mode)
        for (const int width : {1, 5, 8, 12, 15}) {
            params.push_back(hardwareBranch(mode));
            params.back().hw = width == 8 ? 1 : 0;
            params.back().width = width;
            params.back().gamma = mode * 5 - 10;
        }
    for (const auto& [field, value] : {std::pair(&HistogramParam::offset, big),
                                       {&HistogramParam::offset, small},
                                       {&HistogramParam::range, 31},
                                       {&HistogramParam::speed, 31},
                                       {&HistogramParam::gamma, big},
                                       {&HistogramParam::gamma, small},
                                       {&HistogramParam::gain, big},
                                       {&HistogramParam::gainlow, small}}) {
        params.push_back(hardwareBranch(2));
        params.back().*field = value;
    }
    const Size size{61, 13};
    for (const HistogramParam& param : params) {
        Histogram whole(size.cols, size.rows);
        Histogram single(size.cols, size.rows);
        whole.param = single.param = param;
        std::vector<int> binData(binRoom);
        int number = 0;
        for (const Scene scene : {Scene::calm, Scene::steps, Scene::extremes, Scene::wild, Scene::calm}) {
            const std::vector<int> in = makeFrame(scene, size, ++number);
            std::vector<int> out(in.size());
            std::vector<int> expected;
            for (Histogram* equaliser : {&whole, &single})
                equaliser->MeasureFrame(number / 2, in.data(), binData.data());
            whole.ProcessFrame(number / 2, in.data(), out.data());
            for (const int pixel : in)
                expected.push_back(single.ProcessPixel(pixel));
            ASSERT_EQ(out, expected) << "mode " << param.mode << ", width " << param.width;
            const double* slopes = whole.getLocalGain();
            ASSERT_TRUE(std::equal(slopes, slopes + Histogram::tableSize, single.getLocalGain()));
            for (Histogram* equaliser : {&whole, &single})
                equaliser->Update(number / 2);
        }
    }
}

TEST_F(EqualiserScale, InterpolatesBetweenTheCurvesValuesWithRounding)
{
    int* curve = equaliser_.getGainTable();
    curve[10] = 1000;
    curve[11] = 1013;
    curve[20] = curve[21] = 40000;
    curve[30] = curve[31] = -5;
    equaliser_.param.offset = 64;  // half a bin
    EXPECT_EQ(equaliser_.ProcessPixel(10), 1007);
    EXPECT_EQ(equaliser_.ProcessPixel(20), 32766);
    EXPECT_EQ(equaliser_.ProcessPixel(30), 0);
}

TEST_F(EqualiserScale, TakesTheSlopeOverEightBinsAsLocalGain)
{
    int* curve = equaliser_.getGainTable();
    for (int i = 0; i <= 256; ++i)
        curve[i] = i * i / 2;
    for (const auto& [sample, rise] :
         {std::pair(100, 104 * 104 - 96 * 96), {2, 6 * 6}, {254, 256 * 256 - 250 * 250}})
        EXPECT_EQ(equaliser_.LocalGain(equaliser_.ProcessPixel(sample)), rise / 16.0) << sample;
    std::fill_n(curve, 257, 9);
    EXPECT_EQ(equaliser_.LocalGain(equaliser_.ProcessPixel(100)), 1.0) << "at least one level per bin";
}

TEST(Equaliser, LeavesPixelsAloneWhenOffOrBypassed)
{
    Histogram equaliser(4, 1);
    const std::vector<int> image = {-70000, -1, 20000, 40000};
    std::vector<int> out(4);
    equaliser.setBypass(true);
    EXPECT_TRUE(equaliser.isBypassed());
    equaliser.ProcessFrame(0, image.data(), out.data());
    EXPECT_EQ(out, image);
    equaliser.setBypass(false);
    equaliser.param.mode = 0;
    equaliser.getLocalGain()[255] = 7.0;
    EXPECT_EQ(equaliser.ProcessPixel(40000), 40000);
    EXPECT_EQ(equaliser.LocalGain(40000), 1.0);
}

TEST(Equaliser, PrintsTheInputGainOncePerFrame)
{
    Histogram equaliser(4, 4);
    halvor::vx::ChainMatrix in(4, 4);
    halvor::vx::ChainMatrix out(4, 4);
    testing::internal::CaptureStdout();
    equaliser.ProcessFrame(0, in, out);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "pgain32768\n");
}

template <typename T>
class EqualiserImage : public testing::Test
{};
using Pixels = testing::Types<short, unsigned short, int, unsigned int, float, double>;
TYPED_TEST_SUITE(EqualiserImage, Pixels);

// Frames of the second size are shared among threads.
TYPED_TEST(EqualiserImage, MapsLikeTheBlockWithoutTouchingTheState)
{
    for (const Size size : {Size{530, 5}, blocktest::sharedSize}) {
        Histogram equaliser(size.cols, size.rows);
        const std::vector<int> frame = makeFrame(Scene::calm, size, 1);
        equaliser.MeasureFrame(0, frame.data(), nullptr);
        equaliser.param.offset = 300;
        const cv::Mat samples = blocktest::asImage(frame, size);
        const cv::Mat_<TypeParam> image(samples);
        const std::vector<double> slopes(equaliser.getLocalGain(), equaliser.getLocalGain() + 256);
        cv::Mat_<TypeParam> mapped;
        equaliser.processFrame(image, mapped);
        EXPECT_TRUE(std::equal(slopes.begin(), slopes.end(), equaliser.getLocalGain()));
        ASSERT_EQ(mapped.size(), image.size());
        const auto differs = [&](TypeParam pixel, TypeParam result) {
            return static_cast<int>(result) != equaliser.ProcessPixel(static_cast<int>(pixel));
        };
        EXPECT_EQ(std::inner_product(image.begin(), image.end(), mapped.begin(), 0, std::plus<>(), differs),
                  0);

        equaliser.setBypass(true);
        equaliser.processFrame(image, mapped);
        EXPECT_TRUE(std::equal(image.begin(), image.end(), mapped.begin()));
    }
}

TEST(Equaliser, RefusesAnImageOfAnotherSizeBeforeTheResultIsTouched)
{
    Histogram equaliser(8, 6);
    cv::Mat_<short> mapped(1, 1, short{42});
    testing::internal::CaptureStderr();
    EXPECT_THROW(equaliser.processFrame(cv::Mat_<short>(8, 6), mapped), halvor::vx::Exception);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::AllOf(testing::HasSubstr(
                                   "input data size does not correspond to histogram class configuration!"),
                               testing::HasSubstr("Histogram::processFrame")));
    EXPECT_EQ(mapped.total(), 1U);
    EXPECT_EQ(mapped(0, 0), 42);
}

TEST(Equaliser, TakesFloatingPointPixelsBeyondAllIntegers)
{
    Histogram equaliser(4, 1);
    constexpr double infinite = std::numeric_limits<double>::infinity();
    const cv::Mat_<double> image = (cv::Mat_<double>(1, 4) << 1e300, -infinite, infinite, std::nan(""));
    cv::Mat_<double> mapped;
    equaliser.param.rangedis = 1;
    equaliser.processFrame(image, mapped);
    EXPECT_THAT(std::vector<double>(mapped.begin(), mapped.end()),
                Each(testing::AllOf(testing::Ge(0.0), testing::Le(32766.0))));
}
