// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <opencv2/core.hpp>
#include <vector>

#include "doubles/BlockFrames.h"
#include "doubles/PlainPattern.h"
#include "doubles/PlainSpatial.h"
#include "doubles/PlainTemporal.h"
#include "doubles/SameBits.h"
#include "doubles/ThreadCount.h"
#include "enhancement/SpatialNoiseRemover.h"
#include "enhancement/StaticPatternRemover.h"
#include "enhancement/TemporalNoiseReduction.h"

using namespace blocktest;
using namespace halvor::vx;
using vxtest::sameBits;

namespace {

cv::Mat_<short> frameOf(Scene scene, Size size, int number)
{
    return asImage(makeFrame(scene, size, number), size);
}

template <typename Filter>
std::vector<cv::Mat_<short>> runStream(Filter&& filter, Scene scene, Size size, int frames)
{
    std::vector<cv::Mat_<short>> results(static_cast<std::size_t>(frames));
    for (int number = 0; number < frames; ++number)
        filter.process(frameOf(scene, size, number), results[static_cast<std::size_t>(number)]);
    return results;
}

template <typename Filter, typename Plain>
void compareStream(Filter filter, Plain plain, Scene scene, Size size, int frames = 4)
{
    const std::vector<cv::Mat_<short>> results = runStream(filter, scene, size, frames);
    cv::Mat_<short> expected(size.rows, size.cols);
    for (int number = 0; number < frames; ++number) {
        plain.process(frameOf(scene, size, number)[0], expected[0]);
        ASSERT_TRUE(sameBits(results[static_cast<std::size_t>(number)], expected))
            << describe(scene, size, 0, number);
    }
}

template <typename Test>
void forEveryStream(Test test)
{
    for (const Scene scene : allScenes)
        for (const Size size : smallSizes)
            test(scene, size);
    test(Scene::wild, sharedSize);
}

template <typename Test>
void forEveryFilter(Test test)
{
    test(TemporalNoiseReduction(10, 0, 90, false));
    test(SpatialNoiseRemover(6));
    test(StaticPatternRemover(60, 31, 31));
}

}  // namespace

TEST(NoiseFilters, GiveTheSameForAnyNumberOfThreads)
{
    forEveryFilter([](const auto& filter) {
        std::vector<cv::Mat_<short>> one;
        for (const int threads : {1, 2, 5}) {
            const vxtest::ThreadCount set(threads);
            auto copy = filter;
            const auto several = runStream(copy, Scene::steps, sharedSize, 3);
            if (threads == 1)
                one = several;
            EXPECT_TRUE(std::equal(one.begin(), one.end(), several.begin(), sameBits)) << threads;
        }
    });
}

TEST(NoiseFilters, TakeWindowsAndWorkInPlace)
{
    forEveryFilter([](const auto& filter) {
        auto whole = filter;
        auto window = filter;
        auto inPlace = filter;
        for (int number = 0; number < 3; ++number) {
            cv::Mat_<short> image = frameOf(Scene::calm, {23, 9}, number);
            cv::Mat_<short> expected;
            whole.process(image, expected);

            cv::Mat_<short> large(11, 27, short{7});
            cv::Mat_<short> dst = large(cv::Rect(1, 1, 23, 9));
            cv::Mat_<short> largeSource;
            cv::copyMakeBorder(image, largeSource, 1, 2, 2, 3, cv::BORDER_CONSTANT, 77);
            window.process(largeSource(cv::Rect(2, 1, 23, 9)), dst);
            EXPECT_TRUE(sameBits(dst, expected)) << number;
            dst = short{7};
            EXPECT_EQ(cv::countNonZero(large != 7), 0) << "written outside the window";

            inPlace.process(image, image);
            EXPECT_TRUE(sameBits(image, expected)) << number;
        }
    });
}

// Lets a filter learn, copies it, and checks that neither the copy nor the original disturbs the other.
TEST(NoiseFilters, CopiesGoOnIndependently)
{
    forEveryFilter([](const auto& filter) {
        auto original = filter;
        cv::Mat_<short> out;
        original.process(frameOf(Scene::calm, {23, 9}, 0), out);
        auto copy = original;
        auto assigned = filter;
        assigned = original;
        cv::Mat_<short> expected;
        copy.process(frameOf(Scene::calm, {23, 9}, 1), expected);
        copy.process(frameOf(Scene::calm, {23, 9}, 2), out);
        for (auto* other : {&original, &assigned}) {
            other->process(frameOf(Scene::calm, {23, 9}, 1), out);
            EXPECT_TRUE(sameBits(out, expected));
        }
    });
}

// Without a threshold the temporal filter's feedback factor falls with every frame, to 205 below its setting.
TEST(NoiseFilters, StartAnewOnAFrameOfAnotherSize)
{
    forEveryFilter([](const auto& filter) {
        auto used = filter;
        for (const Size size : {Size{20, 12}, Size{12, 20}, Size{5, 5}}) {
            auto fresh = filter;
            const auto expected = runStream(fresh, Scene::calm, size, 10);
            const auto restarted = runStream(used, Scene::calm, size, 10);
            EXPECT_TRUE(std::equal(expected.begin(), expected.end(), restarted.begin(), sameBits))
                << size.cols;
        }
    });
}

TEST(NoiseFilters, TakeAnEmptyImage)
{
    forEveryFilter([](auto filter) {
        cv::Mat_<short> dst(3, 3);
        filter.process(cv::Mat_<short>(), dst);
        EXPECT_TRUE(dst.empty());
    });
}

TEST(TemporalNoiseReduction, EqualsItsPlainFormBitForBit)
{
    static const plain::Temporal::Settings usual{};
    static const plain::Temporal::Settings strong{10, 100, 100, false};
    static const plain::Temporal::Settings hardware{70, 15, 100, true};
    for (const plain::Temporal::Settings& s : {std::cref(usual), std::cref(strong), std::cref(hardware)})
        forEveryStream([&](Scene scene, Size size) {
            compareStream(
                TemporalNoiseReduction(s.controlGain, s.globalThreshold, s.feedbackFactor, s.hwUnits),
                plain::Temporal(size.cols, size.rows, s, 0), scene, size);
        });
}

TEST(TemporalNoiseReduction, RefusesSettingsOutOfRangeInAnyUnits)
{
    for (const bool hwUnits : {false, true}) {
        TemporalNoiseReduction filter(10, 100, 0, hwUnits);
        EXPECT_FALSE(filter.setControlGain(11));
        EXPECT_FALSE(filter.setControlGain(-1));
        EXPECT_FALSE(filter.setGlobalThreshold(101));
        EXPECT_FALSE(filter.setGlobalThreshold(-1));
        EXPECT_FALSE(filter.setFeedbackFactor(101));
        EXPECT_FALSE(filter.setFeedbackFactor(-1));
        // A feedback factor of 0 is still in force: every frame passes.
        for (int number = 0; number < 3; ++number) {
            const cv::Mat_<short> src = frameOf(Scene::calm, {9, 9}, number);
            cv::Mat_<short> dst;
            filter.process(src, dst);
            EXPECT_TRUE(sameBits(dst, src));
        }
        EXPECT_TRUE(filter.setControlGain(10));
        EXPECT_TRUE(filter.setGlobalThreshold(100));
        EXPECT_TRUE(filter.setFeedbackFactor(100));
    }
}

TEST(SpatialNoiseRemover, EqualsItsPlainFormBitForBit)
{
    static const int gains[] = {0, 1, 6, 31};
    for (const int& gain : gains)
        forEveryStream([&](Scene scene, Size size) {
            compareStream(SpatialNoiseRemover(gain), plain::Spatial(size.cols, size.rows, gain, 0), scene,
                          size);
        });
}

TEST(SpatialNoiseRemover, RefusesGainsOutOfRange)
{
    SpatialNoiseRemover filter(40);  // stays at 0
    const cv::Mat_<short> src = frameOf(Scene::calm, {9, 9}, 0);
    cv::Mat_<short> dst;
    EXPECT_FALSE(filter.setGain(32));
    EXPECT_FALSE(filter.setGain(-1));
    filter.process(src, dst);
    EXPECT_TRUE(sameBits(dst, src));
    EXPECT_TRUE(filter.setGain(31));
    filter.process(src, dst);
    EXPECT_FALSE(sameBits(dst, src));
}

TEST(StaticPatternRemover, EqualsItsPlainFormBitForBit)
{
    static const plain::Pattern::Settings usual{60, 12, 16};
    static const plain::Pattern::Settings highest{100, 31, 31};
    for (const plain::Pattern::Settings& s : {std::cref(usual), std::cref(highest)})
        forEveryStream([&](Scene scene, Size size) {
            compareStream(StaticPatternRemover(s.threshold, s.lineLimit, s.frameLimit),
                          plain::Pattern(size.cols, size.rows, s), scene, size);
        });
}

// The order in which line values become visible shows only late: within the settings' ranges a row changes
// them by less than one applied step.
TEST(StaticPatternRemover, EqualsItsPlainFormOverManyFrames)
{
    static const plain::Pattern::Settings settings{100, 31, 31};
    compareStream(StaticPatternRemover(100, 31, 31), plain::Pattern(48, 32, settings), Scene::rough, {48, 32},
                  150);
}

// Column 3 deviates by 62 in the square and by far more than the threshold along the row: its line correction
// learns only where 0.7 of 90 is 63.
TEST(StaticPatternRemover, TakesSevenTenthsOfTheThresholdInSinglePrecision)
{
    cv::Mat_<short> src(9, 12, short{0});
    src.col(3) = 82;
    src.col(6) = 1000;
    cv::Mat_<short> dst;
    StaticPatternRemover filter(90, 31, 0);
    for (int i = 0; i < 60; ++i)
        filter.process(src, dst);
    EXPECT_LT(dst(4, 3), 80);
    EXPECT_TRUE(filter.setThreshold(89));  // 62: learns no more
    for (int i = 0; i < 60000; ++i)
        filter.process(src, dst);
    EXPECT_EQ(dst(4, 3), 82);
}

TEST(StaticPatternRemover, RefusesSettingsOutOfRange)
{
    StaticPatternRemover filter(101, 32, -1);  // all stay at 0
    EXPECT_FALSE(filter.setThreshold(101));
    EXPECT_FALSE(filter.setThreshold(-1));
    EXPECT_FALSE(filter.setLineLimit(32));
    EXPECT_FALSE(filter.setFrameLimit(32));
    for (const cv::Mat_<short>& dst : runStream(filter, Scene::calm, {20, 20}, 1))
        EXPECT_TRUE(sameBits(dst, frameOf(Scene::calm, {20, 20}, 0)));
    EXPECT_TRUE(filter.setThreshold(100));
    EXPECT_TRUE(filter.setLineLimit(31));
    EXPECT_TRUE(filter.setFrameLimit(31));
    EXPECT_FALSE(sameBits(runStream(filter, Scene::calm, {20, 20}, 1)[0], frameOf(Scene::calm, {20, 20}, 0)));
}

TEST(StaticPatternRemover, PassesOverRangeSamples)
{
    StaticPatternRemover filter(100, 31, 31);
    cv::Mat_<short> src(8, 8, short{32760});
    src(3, 3) = src(6, 1) = 32767;
    src(4, 3) = 32766;
    cv::Mat_<short> dst;
    for (int i = 0; i < 40; ++i)
        filter.process(src, dst);
    EXPECT_EQ(dst(3, 3), 32767);
    EXPECT_EQ(dst(6, 1), 32767);
    EXPECT_NE(dst(4, 3), 32766);
}
