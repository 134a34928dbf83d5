// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>

#include "apps/vxkit/stream/LookMeasures.h"
#include "apps/vxkit/stream/SampleQuantiles.h"
#include "apps/vxkit/stream/ToneTrack.h"

using namespace vxapp;

namespace {

constexpr ToneSettings straight{0.0, 1.0, 0.002};
constexpr ToneSettings equalised{1.0, 3.0, 0.002};

// Two hundred samples in each row: most in a narrow heap from `low` on, the rest evenly over a thousand counts.
cv::Mat_<int> heapFrame(int low, int rows = 50)
{
    cv::Mat_<int> frame(rows, 200);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < 200; ++x)
            frame(y, x) = low + (x < 160 ? x % 40 : 25 * (x - 160));
    return frame;
}

std::vector<int> levelsOf(const ToneCurve& curve, int first)
{
    return curve.levels(first, 1000, 0.002);
}

}  // namespace

TEST(SampleQuantiles, TakeAWholeSampleForAllThatIsRoundedToIt)
{
    const SampleQuantiles quantiles(cv::Mat_<int>({1, 8}, {-3, -3, -3, -3, 5, 5, 6, 6}));
    EXPECT_DOUBLE_EQ(quantiles.quantile(0.25), -3.0);
    EXPECT_DOUBLE_EQ(quantiles.quantile(0.0), -3.5);
    EXPECT_DOUBLE_EQ(quantiles.quantile(0.875), 6.0);
    EXPECT_DOUBLE_EQ(quantiles.quantile(1.0), 6.5);
    EXPECT_DOUBLE_EQ(quantiles.below(5.0), 0.625);
    EXPECT_DOUBLE_EQ(quantiles.below(100.0), 1.0);
}

TEST(ToneCurve, SpreadsThePercentilesInProportionOrByTheirShare)
{
    const cv::Mat_<int> frame = heapFrame(-500);
    const std::vector<int> flat = levelsOf(ToneCurve(frame, straight), -500);
    const std::vector<int> full = levelsOf(ToneCurve(frame, equalised), -500);
    EXPECT_NEAR(flat[0], 0, 70) << "below the 1st percentile half a level of a display is left";
    EXPECT_NEAR(flat[960], topLevel, 70);
    EXPECT_NEAR(flat[475], 0.5 * topLevel, 0.02 * topLevel);
    EXPECT_NEAR(flat[720] - flat[480], flat[480] - flat[240], 0.002 * topLevel);
    for (const std::vector<int>& levels : {flat, full})
        EXPECT_TRUE(std::is_sorted(levels.begin(), levels.end()));
    // Four fifths of the pixels lie in the heap, of which the plateau leaves three times the straight slope.
    const double slope = (full[35] - full[10]) / static_cast<double>(flat[35] - flat[10]);
    EXPECT_GT(slope, 2.5);
    EXPECT_LT(slope, 10.0);
    EXPECT_EQ(levelsOf(ToneCurve(heapFrame(-500, 200), equalised), -500), full) << "a larger frame";
}

TEST(ToneCurve, TakesAFrameWithoutContrast)
{
    const ToneCurve curve(cv::Mat_<int>(3, 4, 32767), equalised);
    const std::vector<int> levels = curve.levels(32760, 8, 0.002);
    EXPECT_TRUE(std::is_sorted(levels.begin(), levels.end()));
    EXPECT_NEAR(levels.back(), 0.5 * topLevel, 0.1 * topLevel);
    const std::vector<int> two = ToneCurve(cv::Mat_<int>({1, 2}, {7, 8}), straight).levels(7, 2, 0.002);
    EXPECT_LT(two[1] - two[0], topLevel / 3) << "hardly any contrast is not blown up to all of the display";
}

TEST(ToneTrack, FollowsTheLevelAtOnceAndTheShapeSlowly)
{
    ToneTrack track(straight, 3, 2);
    for (const int low : {0, 0, -183, -183, -183, -183, -183})
        track.add(heapFrame(low));
    for (int frame = 0; frame < 2; ++frame)
        EXPECT_EQ(levelsOf(track.at(frame), 0), levelsOf(track.at(5), -183));

    cv::Mat_<int> subject = heapFrame(-183);
    subject(cv::Rect(0, 0, 10, 50)) += 2000;
    for (int frame = 7; frame < 10; ++frame)
        track.add(subject);
    EXPECT_EQ(levelsOf(track.at(4), -183), levelsOf(track.at(2), -183)) << "two frames ahead are seen";
    const auto darkness = [&](int frame) { return levelsOf(track.at(frame), -183)[500]; };
    for (int frame = 5; frame < 10; ++frame)
        EXPECT_LT(darkness(frame), darkness(frame - 1) - 500) << frame;
}

TEST(LookMeasures, CompareFramesWithTheStretchedInput)
{
    LookMeasures measures;
    cv::Mat_<std::uint16_t> input(1, 101);
    for (int x = 0; x < 101; ++x)
        input(x) = static_cast<std::uint16_t>(40000 + 10 * x);
    cv::Mat_<std::uint16_t> shown;
    cv::subtract(input, 40000, shown);
    measures.add(input, shown, 2000);
    cv::add(shown, 100, shown);
    measures.add(input, shown, 2000);
    measures.add(input, shown, 2000);
    EXPECT_EQ(measures.text(),
              "           range used   least   deviation   median's jump   clipped\n"
              "stretched        1.00    1.00        75.8             0.0     4.0 %\n"
              "enhanced         0.49    0.49        37.2            12.8     0.3 %\n");
}
