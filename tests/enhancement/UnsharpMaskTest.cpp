#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include "enhancement/UnsharpMask.h"

using halvor::vx::UnsharpMask;

namespace {

cv::Mat step(int type)
{
    cv::Mat image(9, 12, type, cv::Scalar::all(60));
    image.colRange(6, 12).setTo(cv::Scalar::all(100));
    return image;
}

bool same(const cv::Mat& a, const cv::Mat& b)
{
    return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

}  // namespace

TEST(UnsharpMask, SharpensOnlyBrighterDetailAboveTheThreshold)
{
    cv::Mat image = step(CV_8U);
    cv::Mat result;
    ASSERT_EQ(UnsharpMask::unsharp(image, result, 1.0, 1.5, 0.02), 0);
    EXPECT_GT(result.at<uchar>(4, 6), 100);
    EXPECT_EQ(result.at<uchar>(4, 5), 60) << "a darker side of an edge stays";
    EXPECT_EQ(result.at<uchar>(4, 11), 100);
    ASSERT_EQ(UnsharpMask::unsharp(image, result, 1.0, 1.5, 0.5), 0);
    EXPECT_TRUE(same(result, image));
    ASSERT_EQ(UnsharpMask::unsharp(image, result, 0.0, 1.5, 0.0), 0);
    EXPECT_TRUE(same(result, image));
}

TEST(UnsharpMask, WorksInPlace)
{
    cv::Mat image = step(CV_8U);
    cv::Mat result;
    UnsharpMask::unsharp(image, result, 1.0, 1.5, 0.02);
    UnsharpMask::unsharp(image, image, 1.0, 1.5, 0.02);
    EXPECT_TRUE(same(result, image));
}

TEST(UnsharpMask, IgnoresTheThresholdForSeveralChannels)
{
    for (const int type : {CV_8UC3, CV_32FC3, CV_64FC2}) {
        cv::Mat image = step(type);
        cv::Mat low;
        cv::Mat high;
        ASSERT_EQ(UnsharpMask::unsharp(image, low, 2.0, 1.5, 0.0), 0);
        ASSERT_EQ(UnsharpMask::unsharp(image, high, 2.0, 1.5, 1.0), 0);
        EXPECT_TRUE(same(low, high));
        EXPECT_FALSE(same(low, image));
    }
}

TEST(UnsharpMask, RefusesDepthsItDoesNotHandle)
{
    for (const int depth : {CV_16U, CV_16S, CV_32S}) {
        cv::Mat image = step(depth);
        cv::Mat result;
        EXPECT_EQ(UnsharpMask::unsharp(image, result, 1.0, 1.5, 0.0), -1);
        EXPECT_TRUE(result.empty());
    }
    cv::Mat image = step(CV_32F);
    cv::Mat result;
    EXPECT_THROW(UnsharpMask::unsharp(image, result, 1.0, 1.5, 0.0), cv::Exception);
}
