// SPDX-License-Identifier: Apache-2.0
#include "core/registration/CornerFinder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <opencv2/imgproc.hpp>

#include "support/EngineRuns.h"

using namespace halvor::vx;

namespace {

template <typename Pixel>
void expectTheCornersOfTheLibrary(const cv::Mat_<Pixel>& image, double quality)
{
    std::vector<cv::Point2f> found;
    std::vector<cv::Point2f> expected;
    CornerFinder(image.size()).find(image, 100, quality, 2.0, found);
    cv::goodFeaturesToTrack(image, expected, 100, quality, 2.0, cv::noArray(), 3, false, 0.04);
    ASSERT_FALSE(expected.empty());
    const auto isFound = [&](const cv::Point2f& corner) {
        return std::find(found.begin(), found.end(), corner) != found.end();
    };
    // One of twenty may differ, as the last bits of the library's eigenvalues depend on the processor.
    const std::ptrdiff_t others = std::ssize(expected) / 20;
    EXPECT_GE(std::count_if(expected.begin(), expected.end(), isFound), std::ssize(expected) - others);
    EXPECT_LE(std::abs(std::ssize(found) - std::ssize(expected)), others);
}

}  // namespace

TEST(CornerFinder, FindsTheCornersOfTheImageLibrary)
{
    using vxsupport::SceneKind;
    for (const SceneKind kind : {SceneKind::facade, SceneKind::board, SceneKind::outdoor}) {
        cv::Mat_<float> image;
        cv::GaussianBlur(vxsupport::checkBurst(kind, {98, 75}, 3).frames[0], image, {5, 5}, 1.0);
        expectTheCornersOfTheLibrary(image, 0.1);
        cv::Mat_<unsigned char> gray;
        cv::normalize(image, gray, 0, 255, cv::NORM_MINMAX, CV_8U);
        expectTheCornersOfTheLibrary(gray, 0.05);
    }
}

TEST(CornerFinder, KeepsTheStrongestAndTheirDistance)
{
    cv::Mat_<float> image(40, 60, 0.0F);
    image(cv::Rect(10, 10, 12, 14)) = 5.0F;
    image(cv::Rect(36, 20, 10, 9)) = 2.0F;
    CornerFinder finder(image.size());
    std::vector<cv::Point2f> corners;
    finder.find(image, 100, 0.01, 4.0, corners);
    ASSERT_EQ(corners.size(), 8U);
    finder.find(image, 4, 0.01, 4.0, corners);
    ASSERT_EQ(corners.size(), 4U);
    for (const cv::Point2f& corner : corners)
        EXPECT_LT(corner.x, 25.0F) << corner;
    finder.find(image, 100, 0.9, 4.0, corners);
    EXPECT_EQ(corners.size(), 4U);
    finder.find(image, 100, 0.01, 100.0, corners);
    EXPECT_EQ(corners.size(), 1U);
}

TEST(CornerFinder, FindsNothingWithoutStructureOrRoom)
{
    std::vector<cv::Point2f> corners(3);
    for (const cv::Size size : {cv::Size(20, 15), cv::Size(1, 9), cv::Size(9, 1), cv::Size(2, 2)}) {
        CornerFinder(size).find(cv::Mat_<float>(size, 3.0F), 100, 0.1, 2.0, corners);
        EXPECT_TRUE(corners.empty()) << size;
    }
}
