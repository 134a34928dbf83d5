// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/reference/SuperResolutionBadPixelHandling.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <utility>

#include "enhancement/superresolution/EngineHarness.h"

using namespace halvor::vx;
using namespace vxtest;

namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

std::uint32_t bitsOf(float value)
{
    return std::bit_cast<std::uint32_t>(value);
}

// Every pixel differs from every other, the smallest is first and the largest last.
cv::Mat_<float> ramp(int rows, int cols, float first = 20.0F)
{
    cv::Mat_<float> frame(rows, cols);
    for (int i = 0; i < rows * cols; ++i)
        frame(i / cols, i % cols) = first + static_cast<float>(i);
    return frame;
}

const std::vector<PointF> unmoved{{0.0F, 0.0F}};

// Where a large image of zeros is stamped, as the patterns that stand there.
cv::Mat_<int> stamps(const SuperResolutionBadPixelHandling& handling, cv::Size size = {24, 20},
                     const std::vector<PointF>& shifts = unmoved)
{
    cv::Mat_<float> image(size, 0.0F);
    handling.maskBadPixel(image, shifts);
    return cv::Mat_<int>(image.rows, image.cols, reinterpret_cast<int*>(image.data)).clone();
}

// One frame with a defect in it.
struct OneDefect
{
    explicit OneDefect(float defect, int y = 5, int x = 6) : frame(ramp(10, 12)), before(frame(y, x))
    {
        frame(y, x) = defect;
        result = handling.detectAndReplaceBadPixel(frame);
        after = frame(y, x);
    }

    cv::Mat_<float> refilled(float value, PointF shift) const
    {
        cv::Mat_<float> image(20, 24, value);
        handling.replaceMaskedPixel(image, {shift}, {frame});
        return image;
    }

    SuperResolutionBadPixelHandling handling{1};
    cv::Mat_<float> frame;
    float before;
    float after;
    int result;
};

}  // namespace

TEST(BadPixelRepair, TakesTheMeanOfGoodNeighboursOrWhatTheDefectTellsAndStampsItsKind)
{
    struct Case
    {
        float defect;
        int stamp;
        float inCorner;
        int result;
    };
    const float largest = 20.0F + 10.0F * 12.0F - 1.0F;
    const float smallest = 21.0F;
    for (const Case& c : {Case{marker(0x81), 0x81, largest, 0}, Case{marker(0x82), 0x82, smallest, 0},
                          Case{marker(0x84), 0x84, 0.0F, -2}, Case{marker(0x85), 0x84, 0.0F, -2},
                          Case{infinity, 0x84, largest, -2}, Case{-infinity, 0x84, smallest, -2},
                          Case{notANumber, 0x84, 0.0F, -2}, Case{5000.5F, 0x84, largest, -2},
                          Case{-274.5F, 0x84, smallest, -2}}) {
        SCOPED_TRACE(testing::Message() << std::hex << bitsOf(c.defect));
        const OneDefect inside(c.defect);
        EXPECT_EQ(inside.result, 0);
        EXPECT_EQ(inside.after, inside.before);
        EXPECT_EQ(stamps(inside.handling)(10, 12), c.stamp);
        const OneDefect corner(c.defect, 0, 0);
        EXPECT_EQ(corner.result, c.result);
        EXPECT_EQ(corner.after, c.inCorner);
    }
}

TEST(BadPixelRepair, KeepsValuesAtTheLimitsAndDenormalsThatAreNoMarkers)
{
    for (const float value :
         {-274.0F, -273.5F, 5000.0F, marker(0x80), marker(0x83), marker(0x86), marker(0x80000081), -0.0F}) {
        const OneDefect none(value, 0, 0);
        EXPECT_EQ(none.result, 0);
        cv::Mat_<float> expected = ramp(10, 12);
        expected(0, 0) = value;
        EXPECT_TRUE(sameBits(none.frame, expected)) << value;
        EXPECT_EQ(cv::countNonZero(stamps(none.handling)), 0);
    }
}

TEST(BadPixelRepair, FollowsTheLimitsOfRawCounts)
{
    SuperResolutionBadPixelHandling handling(5);
    handling.setDataIsNUC(true);
    cv::Mat_<float> frame = ramp(5, 20);
    frame(0, 0) = -32768.0F;
    frame(0, 19) = 32767.0F;
    frame(4, 0) = 32768.0F;
    EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), -2);
    EXPECT_EQ(frame(0, 0), -32768.0F);
    EXPECT_EQ(frame(0, 19), 32767.0F);
    EXPECT_EQ(frame(4, 0), 32767.0F);
    handling.setDataIsNUC(false);
    EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), -2);
    EXPECT_NE(frame(0, 0), -32768.0F);
}

TEST(BadPixelRepair, NeedsAllThreeNeighboursAtAnEdgeAndAllFourInside)
{
    SuperResolutionBadPixelHandling handling(5);
    cv::Mat_<float> frame = ramp(8, 10);
    frame(0, 4) = marker(0x84);  // edge, all three good
    frame(4, 4) = marker(0x84);  // its right neighbour is a defect as well
    frame(4, 5) = marker(0x84);  // and sees the first one already repaired to 0
    EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), -2);
    EXPECT_FLOAT_EQ(frame(0, 4), (23.0F + 25.0F + 34.0F) / 3.0F);
    EXPECT_EQ(frame(4, 4), 0.0F);
    EXPECT_FLOAT_EQ(frame(4, 5), (0.0F + 66.0F + 55.0F + 75.0F) / 4.0F);
}

TEST(BadPixelRepair, PassesTenUnrepairablePixelsAndRefusesEleven)
{
    for (const int count : {10, 11}) {
        SuperResolutionBadPixelHandling handling(5);
        cv::Mat_<float> frame = ramp(6, 40);
        // The last pixel of a run sees its neighbours good or already repaired.
        frame.row(3).colRange(5, 5 + count + 1).setTo(notANumber);
        EXPECT_EQ(messageOf([&] { EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), -2); }),
                  count == 10 ? "nothing was thrown" : "Too many defect pixels. No processing possible.");
        // The frame is repaired and its map remembered either way.
        EXPECT_TRUE(cv::checkRange(frame));
        EXPECT_EQ(cv::countNonZero(frame), 6 * 40 - count);
        EXPECT_GT(cv::countNonZero(stamps(handling, {80, 12})), 0);
    }
}

TEST(BadPixelRepair, ReusesItsOldestMapWithoutKeepingItsDefects)
{
    SuperResolutionBadPixelHandling handling(2);
    const auto expectStamps = [&](int newest, int count, const std::vector<PointF>& shifts) {
        cv::Mat_<float> frame = ramp(10, 10);
        if (newest > 0)
            frame(newest, newest) = marker(0x81);
        handling.detectAndReplaceBadPixel(frame);
        EXPECT_EQ(cv::countNonZero(stamps(handling, {20, 20}, shifts)), count);
    };
    expectStamps(5, 49, unmoved);
    expectStamps(0, 49, {{0, 0}, {0, 0}});
    expectStamps(0, 0, {{0, 0}, {0, 0}});
    expectStamps(2, 49, {{100, 0}, {0, 0}});
    EXPECT_EQ(cv::countNonZero(stamps(handling, {20, 20}, {{0, 0}, {100, 0}})), 0);
}

TEST(BadPixelRepair, WorksOnFramesOfOddShapes)
{
    SuperResolutionBadPixelHandling handling(3);
    cv::Mat_<float> empty;
    EXPECT_EQ(handling.detectAndReplaceBadPixel(empty), 0);
    cv::Mat_<float> single(1, 1, marker(0x81));
    EXPECT_EQ(handling.detectAndReplaceBadPixel(single), 0);
    EXPECT_EQ(single(0, 0), -274.0F);  // no good value: the limits, crossed
    cv::Mat_<float> wide = ramp(8, 60);
    cv::Mat_<float> part = wide(cv::Rect(3, 2, 41, 4));
    part(1, 40) = marker(0x82);
    EXPECT_EQ(handling.detectAndReplaceBadPixel(part), 0);
    EXPECT_FLOAT_EQ(part(1, 40), (wide(3, 42) + wide(2, 43) + wide(4, 43)) / 3.0F);
}

TEST(BadPixelExtremes, AgreeWithAPlainScanInValueAndPlace)
{
    std::mt19937 random(11);
    const std::vector<float> defects{marker(0x81), marker(0x82), marker(0x84), marker(0x85), infinity,
                                     -infinity,    notANumber,   6000.0F,      -300.0F};
    const SuperResolutionBadPixelHandling handling(5);
    float low = 1.0F;
    float high = 1.0F;
    cv::Point lowPlace;
    cv::Point highPlace;
    for (int cols = 1; cols < 70; cols += 3) {
        cv::Mat_<float> image(6, cols);
        std::vector<std::pair<float, cv::Point>> good;
        for (int i = 0; i < 6 * cols; ++i) {
            const cv::Point place(i % cols, i / cols);
            const std::size_t kind = random() % 18;
            const int value = static_cast<int>(random() % 7) - 3;
            image(place) = kind < 9 ? defects[kind] : kind < 10 ? -0.0F : static_cast<float>(value);
            if (kind >= 9)
                good.emplace_back(image(place), place);
        }
        const auto byValue = [](const auto& a, const auto& b) { return a.first < b.first; };
        const auto smallest = std::min_element(good.begin(), good.end(), byValue);
        const auto largest = std::max_element(good.begin(), good.end(), byValue);
        ASSERT_FALSE(good.empty());
        handling.getMinMaxVal(image, low, high, &lowPlace, &highPlace);
        EXPECT_EQ(bitsOf(low), bitsOf(smallest->first)) << cols;
        EXPECT_EQ(bitsOf(high), bitsOf(largest->first)) << cols;
        EXPECT_EQ(lowPlace, smallest->second) << cols;
        EXPECT_EQ(highPlace, largest->second) << cols;
    }
    handling.getMinMaxVal(cv::Mat_<float>(3, 3, marker(0x84)), low, high, nullptr, nullptr);
    EXPECT_EQ(low, 5000.0F) << "without a good pixel the limits, crossed";
    EXPECT_EQ(high, -274.0F);
}

TEST(BadPixelMask, StampsSevenBySevenPixelsWhereTheDefectLandedAndOnlyInsideTheImage)
{
    const OneDefect one(marker(0x82));
    // A scene that lies 1.25 pixels further right in the frame comes 2.5 pixels further left in the image.
    cv::Mat_<int> expected(20, 24, 0);
    expected(cv::Rect(9 - 3, 11 - 3, 7, 7)).setTo(0x82);
    EXPECT_TRUE(sameBits(stamps(one.handling, {24, 20}, {{1.25F, -0.75F}}), expected));

    // Its centre is to the right of the image, but the block reaches in.
    expected.setTo(0);
    expected(cv::Rect(22, 7, 2, 7)).setTo(0x82);
    EXPECT_TRUE(sameBits(stamps(one.handling, {24, 20}, {{-6.5F, 0.0F}}), expected));
    // Above or left of the image, or below it, nothing is stamped although a block would reach in.
    for (const PointF outside : {PointF{6.25F, 0.0F}, PointF{0.0F, 5.25F}, PointF{0.0F, -5.0F}})
        EXPECT_EQ(cv::countNonZero(stamps(one.handling, {24, 20}, {outside})), 0);
}

TEST(BadPixelMask, SurvivesShiftsThatAreNoNumberOrBeyondAnyImage)
{
    const OneDefect one(marker(0x81));
    for (const float bad : {notANumber, infinity, -infinity, 1e30F, -1e30F})
        for (const PointF shift : {PointF{bad, 0.0F}, PointF{0.0F, bad}}) {
            EXPECT_EQ(cv::countNonZero(stamps(one.handling, {24, 20}, {shift})), 0);
            EXPECT_EQ(bitsOf(one.refilled(marker(0x81), shift)(10, 10)), 0x81U);
        }
    EXPECT_EQ(cv::countNonZero(stamps(one.handling, {0, 0})), 0);
}

TEST(BadPixelRefill, AveragesTheGoodPixelsOfAllFramesThatSeeThePlace)
{
    SuperResolutionBadPixelHandling handling(3);
    std::vector<cv::Mat_<float>> frames{ramp(10, 12), ramp(10, 12, 120.0F), ramp(10, 12, 220.0F)};
    frames[1](5, 6) = marker(0x82);
    for (cv::Mat_<float>& frame : frames)
        handling.detectAndReplaceBadPixel(frame);
    const std::vector<PointF> shifts{{0.0F, 0.0F}, {0.0F, 0.0F}, {1.5F, -1.0F}};
    cv::Mat_<float> image(20, 24, -7.0F);
    handling.maskBadPixel(image, shifts);
    handling.replaceMaskedPixel(image, shifts, frames);
    // Place (13, 11): frame 0 at (6, 5), frame 1's pixel there is the defect, frame 2 at (8, 4).
    EXPECT_EQ(image(11, 13), (frames[0](5, 6) + frames[2](4, 8)) / 2.0F);
    EXPECT_EQ(image(7, 12), (frames[0](3, 6) + frames[1](3, 6) + frames[2](2, 7)) / 3.0F);
    EXPECT_EQ(image(0, 0), -7.0F);
}

TEST(BadPixelRefill, LeavesTheMarkerWhereNoFrameCanTell)
{
    const OneDefect one(marker(0x84));
    const cv::Mat_<float> image = one.refilled(marker(0x84), unmoved[0]);
    EXPECT_EQ(bitsOf(image(10, 12)), 0x84U);
    EXPECT_EQ(bitsOf(image(11, 13)), 0x84U);
    EXPECT_EQ(image(9, 12), one.frame(4, 6));
    // 0x85 is never stamped, so a value of that pattern is none of the refill's business.
    EXPECT_EQ(bitsOf(one.refilled(marker(0x85), unmoved[0])(0, 0)), 0x85U);
}

TEST(BadPixelRefill, TruncatesTowardsZeroSoThatASmallNegativePlaceIsThePixelAtTheEdge)
{
    const OneDefect none(20.0F);
    const float marked = marker(0x81);
    EXPECT_EQ(none.refilled(marked, {-0.75F, -0.75F})(0, 0), none.frame(0, 0));
    EXPECT_EQ(bitsOf(none.refilled(marked, {-1.0F, 0.0F})(0, 0)), 0x81U);
    const cv::Mat_<float> right = none.refilled(marked, {0.5F, 0.0F});
    EXPECT_EQ(right(0, 22), none.frame(0, 11));
    EXPECT_EQ(bitsOf(right(0, 23)), 0x81U);
}

TEST(BadPixelWindow, TellsWhenItIsOutOfStepAndTakesListsThatAreTooShort)
{
    SuperResolutionBadPixelHandling handling(3);
    cv::Mat_<float> image(20, 24, marker(0x81));
    EXPECT_EQ(messageOf([&] { handling.replaceMaskedPixel(image, {}, {}); }),
              "bad pixel masks not initalized");
    EXPECT_NO_THROW(handling.maskBadPixel(image, {}));

    cv::Mat_<float> frame = ramp(10, 12);
    cv::Mat_<float> smaller = ramp(4, 5);
    handling.detectAndReplaceBadPixel(frame);
    handling.detectAndReplaceBadPixel(smaller);
    EXPECT_EQ(messageOf([&] { handling.maskBadPixel(image, unmoved); }),
              "maskBadPixel(): number of shifts ist not equal to number of defectMaps");
    EXPECT_EQ(bitsOf(image(3, 3)), 0x81U);

    const std::vector<PointF> five(5, PointF{0.0F, 0.0F});
    handling.replaceMaskedPixel(image, five, {});
    EXPECT_EQ(bitsOf(image(19, 23)), 0x81U);
    handling.replaceMaskedPixel(image, five, {frame, smaller, frame, frame});
    EXPECT_EQ(image(19, 23), frame(9, 11));
    EXPECT_EQ(image(0, 0), (frame(0, 0) + smaller(0, 0)) / 2.0F);
}

TEST(BadPixelColours, PaintOnlyRangeMarkers)
{
    cv::Mat_<float> image = (cv::Mat_<float>(1, 4) << marker(0x81), marker(0x82), marker(0x84), 20.0F);
    using Colours = cv::Mat_<cv::Vec3b>;
    const cv::Vec3b grey(9, 9, 9);
    Colours colours(1, 4, grey);
    SuperResolutionBadPixelHandling::colorBadPixel(image, colours);
    const Colours expected = (Colours(1, 4) << cv::Vec3b(0, 0, 255), cv::Vec3b(255, 0, 0), grey, grey);
    EXPECT_TRUE(sameBits(colours, expected));
    Colours tooSmall(1, 3, grey);
    EXPECT_EQ(messageOf([&] { SuperResolutionBadPixelHandling::colorBadPixel(image, tooSmall); }),
              "colorBadPixel(): image and colours have different sizes");
}
