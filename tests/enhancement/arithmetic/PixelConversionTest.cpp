// SPDX-License-Identifier: Apache-2.0
#include "enhancement/arithmetic/PixelConversion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <vector>

#include "doubles/AllocationCounter.h"
#include "doubles/PlainChain.h"
#include "enhancement/EnhancerHarness.h"
#include "enhancement/MARLOImageEnhancer.h"

using namespace blocktest;
using halvor::vx::CamInternalSettings;
using halvor::vx::MARLOImageEnhancer;

template <typename T>
class EnhancerPixels : public testing::Test
{};
using Pixels = testing::Types<short, unsigned short, int, unsigned int, float, double>;
TYPED_TEST_SUITE(EnhancerPixels, Pixels);

TYPED_TEST(EnhancerPixels, GivesTheSameFramesAsTheChain)
{
    const QuietOutput quiet;
    const Size size{30, 11};
    for (const int mode : {3, 0}) {
        CamInternalSettings settings;
        settings.histMode = mode;
        MARLOImageEnhancer enhancer(size.cols, size.rows, &settings);
        plain::Chain chain(size.cols, size.rows, settings);
        cv::Mat_<TypeParam> result;
        for (int number = 1; number < 4; ++number) {
            std::vector<int> frame = makeFrame(Scene::calm, size, number);
            for (int& pixel : frame)
                pixel = static_cast<int>(static_cast<TypeParam>(static_cast<short>(pixel)));
            chain.process(frame.data());
            enhancer.processFrame(imageOf<TypeParam>(frame, size), result);
            ASSERT_EQ(contents(enhancer.getInputArray()), frame);
            auto pixel = result.begin();
            for (const int expected : chain.result)
                ASSERT_EQ(*pixel++, static_cast<TypeParam>(expected)) << "mode " << mode;
        }
    }
}

TYPED_TEST(EnhancerPixels, AllocatesNothingFromTheSecondFrameOn)
{
    const QuietOutput quiet;
    for (const Size size : {Size{161, 120}, sharedSize}) {
        MARLOImageEnhancer enhancer(size.cols, size.rows);
        const cv::Mat_<TypeParam> image = imageOf<TypeParam>(makeFrame(Scene::calm, size, 1), size);
        cv::Mat_<TypeParam> result;
        enhancer.processFrame(image, result);
        const vxtest::AllocationCounter counter;
        for (int frame = 0; frame < 3; ++frame)
            enhancer.processFrame(image, result);
        EXPECT_EQ(counter.count(), 0U);
    }
}

TEST(Enhancer, TruncatesFloatingPointPixelsAndSurvivesWhatNoIntHolds)
{
    const QuietOutput quiet;
    MARLOImageEnhancer enhancer(3, 2);
    constexpr float infinite = std::numeric_limits<float>::infinity();
    const cv::Mat_<float> image =
        (cv::Mat_<float>(2, 3) << 1.9F, -1.9F, 3e9F, -infinite, infinite, std::nanf(""));
    cv::Mat_<float> result;
    enhancer.processFrame(image, result);
    const std::vector<int> taken = contents(enhancer.getInputArray());
    EXPECT_EQ(taken[0], 1);
    EXPECT_EQ(taken[1], -1);
    EXPECT_EQ(taken[2], 2147483520);
    EXPECT_EQ(taken[3], std::numeric_limits<int>::min());
}
