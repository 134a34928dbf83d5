#include "enhancement/superresolution/reference/SuperResolutionBadPixelHandling.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <opencv2/core.hpp>
#include <random>
#include <string>
#include <vector>

#include "core/base/Exception.h"

using namespace halvor::vx;

namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

float marker(std::uint32_t bits)
{
    return std::bit_cast<float>(bits);
}

std::uint32_t bitsOf(float value)
{
    return std::bit_cast<std::uint32_t>(value);
}

// Every pixel differs from every other, the smallest is first and the largest last.
cv::Mat_<float> ramp(int rows, int cols, float first = 20.0F)
{
    cv::Mat_<float> frame(rows, cols);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x)
            frame(y, x) = first + static_cast<float>(y * cols + x);
    return frame;
}

std::string messageOf(const std::function<void()>& work)
{
    testing::internal::CaptureStderr();
    std::string message = "nothing was raised";
    try {
        work();
    } catch (const Exception& failure) {
        message = failure.what();
    }
    testing::internal::GetCapturedStderr();
    return message;
}

// Where a large image of zeros is stamped, as the patterns that stand there.
cv::Mat_<int> stamps(const SuperResolutionBadPixelHandling& handling, cv::Size size,
                     const std::vector<PointF>& shifts)
{
    cv::Mat_<float> image(size, 0.0F);
    handling.maskBadPixel(image, shifts);
    return cv::Mat_<int>(image.rows, image.cols, reinterpret_cast<int*>(image.data)).clone();
}

const std::vector<PointF> unmoved{{0.0F, 0.0F}};

}  // namespace

TEST(BadPixelRepair, LeavesAGoodFrameAloneAndRemembersThatItWasGood)
{
    SuperResolutionBadPixelHandling handling(5);
    cv::Mat_<float> frame = ramp(9, 37);
    const cv::Mat_<float> before = frame.clone();
    EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), 0);
    EXPECT_EQ(cv::norm(frame, before, cv::NORM_INF), 0.0);
    EXPECT_EQ(cv::countNonZero(stamps(handling, {74, 18}, unmoved)), 0);
}

TEST(BadPixelRepair, TakesTheMeanOfFourGoodNeighboursWhateverTheDefect)
{
    for (const float defect : {marker(0x81), marker(0x82), marker(0x84), marker(0x85), infinity, -infinity,
                               notANumber, 5000.5F, -274.5F}) {
        SuperResolutionBadPixelHandling handling(5);
        cv::Mat_<float> frame = ramp(7, 40);
        const float expected = frame(3, 21);
        frame(3, 21) = defect;
        EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), 0);
        EXPECT_EQ(frame(3, 21), expected) << std::hex << bitsOf(defect);
    }
}

TEST(BadPixelRepair, KeepsValuesAtTheLimitsAndDenormalsThatAreNoMarkers)
{
    for (const float value :
         {-274.0F, -273.5F, 5000.0F, marker(0x80), marker(0x83), marker(0x86), marker(0x80000081), -0.0F}) {
        SuperResolutionBadPixelHandling handling(5);
        cv::Mat_<float> frame = ramp(5, 20);
        frame(0, 0) = value;
        EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), 0);
        EXPECT_EQ(bitsOf(frame(0, 0)), bitsOf(value));
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

TEST(BadPixelRepair, FallsBackInACornerAsTheDefectTells)
{
    struct Case
    {
        float defect;
        float expected;
        int result;
    };
    const float largest = 20.0F + 7.0F * 9.0F - 1.0F;
    const float smallest = 21.0F;
    for (const Case& c :
         {Case{marker(0x81), largest, 0}, Case{marker(0x82), smallest, 0}, Case{marker(0x84), 0.0F, -2},
          Case{marker(0x85), 0.0F, -2}, Case{infinity, largest, -2}, Case{-infinity, smallest, -2},
          Case{notANumber, 0.0F, -2}, Case{6000.0F, largest, -2}, Case{-300.0F, smallest, -2}}) {
        SuperResolutionBadPixelHandling handling(5);
        cv::Mat_<float> frame = ramp(7, 9);
        frame(0, 0) = c.defect;
        EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), c.result) << std::hex << bitsOf(c.defect);
        EXPECT_EQ(frame(0, 0), c.expected) << std::hex << bitsOf(c.defect);
    }
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
        const std::string message =
            messageOf([&] { EXPECT_EQ(handling.detectAndReplaceBadPixel(frame), -2); });
        EXPECT_EQ(message,
                  count == 10 ? "nothing was raised" : "Too many defect pixels. No processing possible.");
        // The frame is repaired and its map remembered either way.
        EXPECT_TRUE(cv::checkRange(frame));
        EXPECT_EQ(cv::countNonZero(frame), 6 * 40 - count);
        EXPECT_GT(cv::countNonZero(stamps(handling, {80, 12}, unmoved)), 0);
    }
}

TEST(BadPixelRepair, ReusesItsOldestMapWithoutKeepingItsDefects)
{
    SuperResolutionBadPixelHandling handling(2);
    const std::vector<PointF> two(2, PointF{0.0F, 0.0F});
    cv::Mat_<float> bad = ramp(10, 10);
    bad(5, 5) = marker(0x81);
    cv::Mat_<float> good = ramp(10, 10);
    handling.detectAndReplaceBadPixel(bad);
    handling.detectAndReplaceBadPixel(good);
    EXPECT_EQ(cv::countNonZero(stamps(handling, {20, 20}, two)), 49);
    handling.detectAndReplaceBadPixel(good);
    EXPECT_EQ(cv::countNonZero(stamps(handling, {20, 20}, two)), 0);
    bad(2, 2) = marker(0x82);
    handling.detectAndReplaceBadPixel(bad);
    EXPECT_EQ(cv::countNonZero(stamps(handling, {20, 20}, {{0, 0}, {100, 0}})), 0);
    EXPECT_EQ(cv::countNonZero(stamps(handling, {20, 20}, {{100, 0}, {0, 0}})), 49);
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
    std::uniform_int_distribution<int> values(-3, 3);
    std::uniform_int_distribution<int> kinds(0, 19);
    const std::vector<float> defects{marker(0x81), marker(0x82), marker(0x84), marker(0x85), infinity,
                                     -infinity,    notANumber,   6000.0F,      -300.0F,      -0.0F};
    const SuperResolutionBadPixelHandling handling(5);
    for (int cols = 1; cols < 70; cols += 3) {
        cv::Mat_<float> image(6, cols);
        for (float& pixel : image) {
            const int kind = kinds(random);
            pixel = kind < 10 ? defects[static_cast<std::size_t>(kind)] : static_cast<float>(values(random));
        }
        float minimum = 5000.0F;
        float maximum = -274.0F;
        cv::Point minimumPlace(-1, -1);
        cv::Point maximumPlace(-1, -1);
        for (int y = 0; y < image.rows; ++y) {
            for (int x = 0; x < image.cols; ++x) {
                const float pixel = image(y, x);
                const std::uint32_t bits = bitsOf(pixel);
                if (!(std::abs(pixel) <= 100.0F) || (bits > 0 && bits < 0x100))
                    continue;
                if (pixel > maximum) {
                    maximum = pixel;
                    maximumPlace = {x, y};
                }
                if (pixel < minimum) {
                    minimum = pixel;
                    minimumPlace = {x, y};
                }
            }
        }
        float low = 1.0F;
        float high = 1.0F;
        cv::Point lowPlace(-1, -1);
        cv::Point highPlace(-1, -1);
        handling.getMinMaxVal(image, low, high, &lowPlace, &highPlace);
        EXPECT_EQ(bitsOf(low), bitsOf(minimum)) << cols;
        EXPECT_EQ(bitsOf(high), bitsOf(maximum)) << cols;
        EXPECT_EQ(lowPlace, minimumPlace) << cols;
        EXPECT_EQ(highPlace, maximumPlace) << cols;
    }
}

TEST(BadPixelExtremes, AreTheCrossedLimitsWithoutAGoodPixelAndAcceptNullPlaces)
{
    const SuperResolutionBadPixelHandling handling(5);
    float low = 0.0F;
    float high = 0.0F;
    handling.getMinMaxVal(cv::Mat_<float>(3, 3, marker(0x84)), low, high, nullptr, nullptr);
    EXPECT_EQ(low, 5000.0F);
    EXPECT_EQ(high, -274.0F);
    handling.getMinMaxVal(ramp(4, 4), low, high, nullptr, nullptr);
    EXPECT_EQ(low, 20.0F);
    EXPECT_EQ(high, 35.0F);
}

TEST(BadPixelMask, StampsSevenBySevenPixelsWhereTheDefectLandedAndOnlyInsideTheImage)
{
    SuperResolutionBadPixelHandling handling(1);
    cv::Mat_<float> frame = ramp(10, 12);
    frame(5, 6) = marker(0x82);
    handling.detectAndReplaceBadPixel(frame);
    // A scene that lies 1.25 pixels further right in the frame comes 2.5 pixels further left in the image.
    cv::Mat_<int> expected(20, 24, 0);
    expected(cv::Rect(9 - 3, 11 - 3, 7, 7)).setTo(0x82);
    EXPECT_EQ(cv::norm(stamps(handling, {24, 20}, {{1.25F, -0.75F}}), expected, cv::NORM_INF), 0.0);

    // Its centre is to the right of the image, but the block reaches in.
    expected.setTo(0);
    expected(cv::Rect(22, 7, 2, 7)).setTo(0x82);
    EXPECT_EQ(cv::norm(stamps(handling, {24, 20}, {{-6.5F, 0.0F}}), expected, cv::NORM_INF), 0.0);
    // Above or left of the image, or below it, nothing is stamped although a block would reach in.
    for (const PointF outside : {PointF{6.25F, 0.0F}, PointF{0.0F, 5.25F}, PointF{0.0F, -5.0F}})
        EXPECT_EQ(cv::countNonZero(stamps(handling, {24, 20}, {outside})), 0);
}

TEST(BadPixelMask, MarksByTheDefectsKind)
{
    struct Case
    {
        float defect;
        int stamp;
    };
    for (const Case& c : {Case{marker(0x81), 0x81}, Case{marker(0x82), 0x82}, Case{marker(0x84), 0x84},
                          Case{marker(0x85), 0x84}, Case{infinity, 0x84}, Case{-300.0F, 0x84}}) {
        SuperResolutionBadPixelHandling handling(1);
        cv::Mat_<float> frame = ramp(10, 12);
        frame(5, 6) = c.defect;
        handling.detectAndReplaceBadPixel(frame);
        EXPECT_EQ(stamps(handling, {24, 20}, unmoved)(10, 12), c.stamp);
    }
}

TEST(BadPixelMask, SurvivesShiftsThatAreNoNumberOrBeyondAnyImage)
{
    SuperResolutionBadPixelHandling handling(1);
    cv::Mat_<float> frame = ramp(10, 12);
    frame(5, 6) = marker(0x81);
    handling.detectAndReplaceBadPixel(frame);
    cv::Mat_<float> marked(20, 24, marker(0x81));
    for (const float bad : {notANumber, infinity, -infinity, 1e30F, -1e30F}) {
        for (const PointF shift : {PointF{bad, 0.0F}, PointF{0.0F, bad}}) {
            EXPECT_EQ(cv::countNonZero(stamps(handling, {24, 20}, {shift})), 0);
            handling.replaceMaskedPixel(marked, {shift}, {frame});
            EXPECT_EQ(bitsOf(marked(10, 10)), 0x81U);
        }
    }
    EXPECT_EQ(cv::countNonZero(stamps(handling, {0, 0}, unmoved)), 0);
}

TEST(BadPixelRefill, AveragesTheGoodPixelsOfAllFramesThatSeeThePlace)
{
    SuperResolutionBadPixelHandling handling(3);
    std::vector<cv::Mat_<float>> frames{ramp(10, 12), ramp(10, 12, 120.0F), ramp(10, 12, 220.0F)};
    frames[1](5, 6) = marker(0x84);
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
    SuperResolutionBadPixelHandling handling(1);
    cv::Mat_<float> frame = ramp(10, 12);
    frame(5, 6) = marker(0x84);
    handling.detectAndReplaceBadPixel(frame);
    cv::Mat_<float> image(20, 24, 1.0F);
    handling.maskBadPixel(image, unmoved);
    handling.replaceMaskedPixel(image, unmoved, {frame});
    EXPECT_EQ(bitsOf(image(10, 12)), 0x84U);
    EXPECT_EQ(bitsOf(image(11, 13)), 0x84U);
    EXPECT_EQ(image(9, 12), frame(4, 6));

    // 0x85 is never stamped, so a value of that pattern is none of the refill's business.
    image(0, 0) = marker(0x85);
    handling.replaceMaskedPixel(image, unmoved, {frame});
    EXPECT_EQ(bitsOf(image(0, 0)), 0x85U);
}

TEST(BadPixelRefill, TruncatesTowardsZeroSoThatASmallNegativePlaceIsThePixelAtTheEdge)
{
    SuperResolutionBadPixelHandling handling(1);
    cv::Mat_<float> frame = ramp(10, 12);
    handling.detectAndReplaceBadPixel(frame);
    cv::Mat_<float> image(20, 24, marker(0x81));
    handling.replaceMaskedPixel(image, {{-0.75F, -0.75F}}, {frame});
    EXPECT_EQ(image(0, 0), frame(0, 0));
    image.setTo(marker(0x81));
    handling.replaceMaskedPixel(image, {{-1.0F, 0.0F}}, {frame});
    EXPECT_EQ(bitsOf(image(0, 0)), 0x81U);
    image.setTo(marker(0x81));
    handling.replaceMaskedPixel(image, {{0.5F, 0.0F}}, {frame});
    EXPECT_EQ(image(0, 22), frame(0, 11));
    EXPECT_EQ(bitsOf(image(0, 23)), 0x81U);
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
    cv::Mat_<float> image = ramp(2, 3);
    image(0, 0) = marker(0x81);
    image(0, 2) = marker(0x82);
    image(1, 0) = marker(0x84);
    using Colour = cv::Vec<unsigned char, 3>;
    const Colour grey(9, 9, 9);
    cv::Mat_<Colour> colours(2, 3, grey);
    SuperResolutionBadPixelHandling::colorBadPixel(image, colours);
    EXPECT_EQ(colours(0, 0), Colour(0, 0, 255));
    EXPECT_EQ(colours(0, 2), Colour(255, 0, 0));
    EXPECT_EQ(colours(1, 0), grey);
    EXPECT_EQ(colours(0, 1), grey);
    cv::Mat_<Colour> tooSmall(1, 3, grey);
    EXPECT_EQ(messageOf([&] { SuperResolutionBadPixelHandling::colorBadPixel(image, tooSmall); }),
              "colorBadPixel(): image and colours have different sizes");
}
