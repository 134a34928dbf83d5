// SPDX-License-Identifier: Apache-2.0
#include "support/Pictures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <vector>

#include "support/Counts.h"

using namespace vxsupport;

static constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

TEST(Pictures, RangeLeavesOutAFewHotPixels)
{
    cv::Mat_<float> image(20, 20, 10.0F);
    image.colRange(0, 10) = 20.0F;
    image(3, 3) = 900.0F;
    image(4, 4) = notANumber;
    image(5, 5) = std::numeric_limits<float>::infinity();
    const ValueRange range = visibleRange(image);
    EXPECT_EQ(range.low, 10.0F);
    EXPECT_EQ(range.high, 20.0F);
    EXPECT_EQ(visibleRange(image, 0.0).high, 900.0F);
    EXPECT_EQ(visibleRange(cv::Mat_<float>(2, 2, notANumber)).high, 0.0F);
}

TEST(Pictures, GreyLevelsSpanTheRange)
{
    const cv::Mat_<float> image = (cv::Mat_<float>(1, 5) << 9.0F, 10.0F, 15.0F, 21.0F, notANumber);
    const cv::Mat_<std::uint8_t> levels = greyLevels(image, {10.0F, 20.0F});
    EXPECT_EQ(std::vector<int>(levels.begin(), levels.end()), (std::vector<int>{0, 0, 128, 255, 0}));
    EXPECT_EQ(greyLevels(image, {5.0F, 5.0F})(0, 0), 255);
}

TEST(Pictures, EveryColourMapKeepsTheOrderOfBrightness)
{
    cv::Mat_<std::uint8_t> levels(1, 2);
    levels << 20, 120;
    for (const std::string& name : colourMapNames()) {
        const cv::Mat_<cv::Vec3b> picture = falseColours(levels, name);
        EXPECT_LT(cv::sum(cv::Vec3d(picture(0, 0)))[0], cv::sum(cv::Vec3d(picture(0, 1)))[0]) << name;
    }
    const auto diverging = [](int level) {
        return cv::Vec3i(falseColours(cv::Mat_<std::uint8_t>(1, 1, static_cast<std::uint8_t>(level)),
                                      divergingColourMap)(0, 0));
    };
    EXPECT_GT(diverging(40)[0], diverging(40)[2] + 100) << "blue below the middle";
    EXPECT_GT(diverging(215)[2], diverging(215)[0] + 100) << "red above";
    EXPECT_GT(std::min({diverging(128)[0], diverging(128)[1], diverging(128)[2]}), 235)
        << "white in the middle";
    EXPECT_THROW(falseColours(levels, "mauve"), std::invalid_argument);
}

TEST(Pictures, PanelsStandSideBySideAboveTheirCaptions)
{
    const cv::Mat_<cv::Vec3b> red(40, 60, cv::Vec3b(0, 0, 200));
    const cv::Mat_<cv::Vec3b> blue(20, 30, cv::Vec3b(200, 0, 0));
    const cv::Mat_<cv::Vec3b> sheet =
        sideBySide({{red, "before"}, {blue, "a caption much wider than its picture"}});
    cv::Mat reds;
    cv::Mat blues;
    cv::inRange(sheet, cv::Scalar(0, 0, 200), cv::Scalar(0, 0, 200), reds);
    cv::inRange(sheet, cv::Scalar(200, 0, 0), cv::Scalar(200, 0, 0), blues);
    EXPECT_EQ(cv::countNonZero(reds), 40 * 60);
    EXPECT_EQ(cv::countNonZero(blues), 20 * 30);
    cv::Mat grey;
    cv::inRange(sheet.rowRange(51, sheet.rows), cv::Scalar(0, 0, 0), cv::Scalar(120, 120, 120), grey);
    const cv::Rect letters = cv::boundingRect(grey);
    EXPECT_GT(letters.height, 4 * 18) << "broken into lines";
    EXPECT_LT(letters.br().x, sheet.cols) << "no word is cut";
    const cv::Mat_<cv::Vec3b> wide(40, 1800, cv::Vec3b(0, 0, 200));
    EXPECT_GT(sideBySide({{wide, "before"}}).rows - 40, 2 * (sideBySide({{red, "before"}}).rows - 40) - 20)
        << "letters grow with the pictures";
    const cv::Mat_<cv::Vec3b> both = stacked({red, blue});
    EXPECT_EQ(both.size(), cv::Size(60, 60));
    EXPECT_EQ(both(50, 59), cv::Vec3b(255, 255, 255));
}

TEST(Pictures, MagnifyingRepeatsPixels)
{
    cv::Mat_<cv::Vec3b> picture(1, 2, cv::Vec3b(1, 2, 3));
    picture(0, 1) = {7, 8, 9};
    const cv::Mat_<cv::Vec3b> large = magnified(picture, 3);
    EXPECT_EQ(large.size(), cv::Size(6, 3));
    EXPECT_EQ(large(2, 2), cv::Vec3b(1, 2, 3));
    EXPECT_EQ(large(0, 3), cv::Vec3b(7, 8, 9));
}

TEST(Counts, AreRoundedAndClamped)
{
    const cv::Mat_<float> values = (cv::Mat_<float>(1, 5) << -50.0F, 20.126F, 20.124F, 1e6F, notANumber);
    const cv::Mat_<std::uint16_t> counts = toCounts(values, {0.01, -40.0});
    EXPECT_EQ(std::vector<int>(counts.begin(), counts.end()), (std::vector<int>{0, 6013, 6012, 65535, 0}));
    EXPECT_THROW(toCounts(values, {0.0, 0.0}), std::invalid_argument);
    EXPECT_THROW(toCounts(values, {1.0, static_cast<double>(notANumber)}), std::invalid_argument);
}
