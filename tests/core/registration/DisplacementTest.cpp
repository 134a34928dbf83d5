// SPDX-License-Identifier: Apache-2.0
#include "core/registration/Displacement.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <opencv2/core.hpp>
#include <utility>
#include <vector>

#include "core/registration/CornerFlow.h"
#include "core/registration/FrameOverlap.h"
#include "core/registration/GrayRange.h"

using namespace halvor::vx;

namespace {

constexpr std::int32_t smallest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t largest = std::numeric_limits<std::int32_t>::max();
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

}  // namespace

TEST(FrameOverlap, WindowBandAndStripTileTheReferenceForAnyShift)
{
    const cv::Size size(7, 5);
    const std::vector<int> shifts = {smallest, -1000, -8, -7, -5, -4, -1, 0, 1, 3, 5, 6, 7, 9, largest};
    for (const int y : shifts) {
        for (const int x : shifts) {
            const FrameOverlap overlap = overlapOf(size, {x, y});
            cv::Mat_<int> covered(size, 0);
            for (const cv::Rect& part : {overlap.reference, overlap.band, overlap.strip})
                for (int row = part.y; row < part.y + part.height; ++row)
                    std::for_each_n(covered[row] + part.x, part.width, [](int& count) { ++count; });
            EXPECT_EQ(cv::countNonZero(covered != 1), 0) << x << ", " << y;
            EXPECT_EQ(overlap.frame.size(), overlap.reference.size());
            if (overlap.reference.empty()) {
                EXPECT_TRUE(std::abs(1.0 * x) >= size.width || std::abs(1.0 * y) >= size.height);
            } else {
                EXPECT_EQ(overlap.frame & cv::Rect({0, 0}, size), overlap.frame);
                EXPECT_EQ(overlap.frame.tl() - overlap.reference.tl(), cv::Point(x, y));
            }
        }
    }
}

TEST(Displacement, RoundsHalvesUpwardsAndKeepsToTheIntegers)
{
    for (const auto& [value, pixel] : {std::pair<double, int>(-3.5, -3),
                                       {-3.6F, -4},
                                       {2.5, 3},
                                       {-0.5, 0},
                                       {1e20, largest},
                                       {infinity, largest},
                                       {-1e20, smallest},
                                       {-infinity, smallest},
                                       {notANumber, smallest}})
        EXPECT_EQ(roundToPixel(value), pixel) << value;
    EXPECT_EQ(roundToPixel(std::nextafter(0.5F, 0.0F)), 0)
        << "the half must not be added in single precision";
}

TEST(Displacement, LimitIsStrictAndRefusesWhatIsNotANumber)
{
    const float inside = std::nextafter(60.0F, 0.0F);
    EXPECT_TRUE(isWithin({inside, -inside}, 60));
    EXPECT_FALSE(isWithin({60.0F, 0.0F}, 60));
    EXPECT_FALSE(isWithin({0.0F, -60.0F}, 60));
    EXPECT_FALSE(isWithin({notANumber, 0.0F}, 60));
    EXPECT_FALSE(isWithin({0.0F, notANumber}, 60));
    const std::vector<PointF> displacements = {{1.0F, 1.0F}, {0.0F, notANumber}, {2.0F, 2.0F}};
    EXPECT_EQ(countWithin(displacements.data(), 3, 60), 1);
    EXPECT_EQ(countWithin(displacements.data(), 1, 60), 1);
}

class WholePixelMove : public testing::Test
{
protected:
    WholePixelMove() : frame_(12), moved_(12, -1.0F) { std::iota(frame_.begin(), frame_.end(), 1.0F); }

    std::vector<float> move(PointF& displacement, int usable = 1)
    {
        const float* frames[] = {frame_.data()};
        float* moved[] = {moved_.data()};
        moveByWholePixels({4, 3}, 1, frames, usable, &displacement, moved);
        return moved_;
    }

    std::vector<float> frame_;
    std::vector<float> moved_;
};

TEST_F(WholePixelMove, ZeroesTheEndOfTheFlatArrayThatTheOffsetLeaves)
{
    PointF displacement{1.25F, 0.75F};
    EXPECT_EQ(move(displacement), (std::vector<float>{6, 7, 8, 9, 10, 11, 12, 0, 0, 0, 0, 0}));
    EXPECT_EQ(cv::Point2f(displacement.x, displacement.y), cv::Point2f(0.25F, -0.25F));
    displacement = {0.5F, -1.0F};
    EXPECT_EQ(move(displacement), (std::vector<float>{0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(cv::Point2f(displacement.x, displacement.y), cv::Point2f(-0.5F, 0.0F));
}

TEST_F(WholePixelMove, LeavesNothingOfAFrameThatIsMovedBeyondItsSize)
{
    for (const PointF beyond : {PointF{0.0F, 3.0F}, PointF{-12.0F, 0.0F}, PointF{notANumber, 1.0F},
                                PointF{1e30F, 1e30F}, PointF{-infinity, -infinity}}) {
        PointF displacement = beyond;
        EXPECT_EQ(move(displacement), std::vector<float>(12)) << beyond.x << ", " << beyond.y;
    }
}

TEST_F(WholePixelMove, KeepsBadPixelMarkersBitForBit)
{
    for (const std::uint32_t marker : {0x81U, 0x82U, 0x84U, 0x85U}) {
        frame_[5] = std::bit_cast<float>(marker);
        PointF displacement{1.0F, 1.0F};
        EXPECT_EQ(std::bit_cast<std::uint32_t>(move(displacement)[0]), marker);
    }
}

TEST_F(WholePixelMove, CopiesInPlaceFromTheFirstUnusableFrameOn)
{
    PointF displacement{1.5F, notANumber};
    EXPECT_EQ(move(displacement, 0), frame_);
    EXPECT_EQ(displacement.x, 1.5F);
}

TEST(CornerFlow, AveragesTheFlowsWithinTwoPixelsOfTheUpperMedian)
{
    struct Case
    {
        std::vector<cv::Point2f> flows;
        int count;
        cv::Point2f sum;
    };
    for (const Case& c : {Case{{{0.0F, 1.0F}, {9.0F, 1.0F}, {8.5F, 1.0F}, {1.0F, 1.0F}}, 2, {17.5F, 2.0F}},
                          {{{5.0F, 0.0F}, {7.0F, 0.0F}, {5.0F, -2.0F}, {5.0F, 1.75F}}, 2, {10.0F, 1.75F}},
                          {{{0.0F, 5.0F}, {5.0F, 0.0F}, {10.0F, 10.0F}}, 0, {}}}) {
        const FlowInliers inliers = inliersNearMedian(c.flows);
        EXPECT_EQ(inliers.count, c.count);
        EXPECT_EQ(inliers.sum, c.sum);
    }
}

TEST(GrayRange, IsReplacedOnlyByAFrameThatLeavesIt)
{
    GrayRange range;
    EXPECT_TRUE(range.fit(20.0, 30.0));
    EXPECT_EQ(range.grayMin, 19.0F);
    EXPECT_EQ(range.grayMax, 31.0F);
    EXPECT_EQ(range.grayOffset, -19.0F);
    EXPECT_EQ(range.grayScale, 21.25F);
    EXPECT_FALSE(range.fit(19.0, 31.0));
    EXPECT_EQ(range.grayScale, 21.25F);
    EXPECT_TRUE(range.fit(25.0, 35.0));
    EXPECT_EQ(range.grayMin, 24.0F) << "the new frame alone counts";
    EXPECT_EQ(range.grayMax, 36.0F);
}

TEST(GrayRange, LeavesAnEmptyRangeAndIgnoresAFrameThatIsNotFinite)
{
    GrayRange range;
    range.fit(7.0, 7.0);
    EXPECT_EQ(range.grayScale, infinity);
    EXPECT_TRUE(range.fit(7.0, 8.0));
    EXPECT_FLOAT_EQ(range.grayScale, 212.5F);
    const double huge = std::numeric_limits<float>::max();
    EXPECT_FALSE(range.fit(20.0, infinity));
    EXPECT_FALSE(range.fit(-huge, huge));
    EXPECT_FLOAT_EQ(range.grayMax, 8.1F);
    EXPECT_TRUE(range.fit(10.0, 20.0));
}
