// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include "doubles/SameBits.h"
#include "enhancement/UnsharpMask.h"

using halvor::vx::UnsharpMask;

namespace {

cv::Mat step(int type)
{
    cv::Mat image(9, 12, type, cv::Scalar::all(60));
    image.colRange(6, 12).setTo(cv::Scalar::all(100));
    return image;
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
    cv::Mat inPlace = image.clone();
    UnsharpMask::unsharp(inPlace, inPlace, 1.0, 1.5, 0.02);
    EXPECT_TRUE(vxtest::sameBits(inPlace, result));
    ASSERT_EQ(UnsharpMask::unsharp(image, result, 1.0, 1.5, 0.5), 0);
    EXPECT_TRUE(vxtest::sameBits(result, image));
    ASSERT_EQ(UnsharpMask::unsharp(image, result, 0.0, 1.5, 0.0), 0);
    EXPECT_TRUE(vxtest::sameBits(result, image));
}

TEST(UnsharpMask, IgnoresTheThresholdForSeveralChannels)
{
    for (const int type : {CV_8UC3, CV_32FC3, CV_64FC2}) {
        cv::Mat image = step(type);
        cv::Mat low;
        cv::Mat high;
        ASSERT_EQ(UnsharpMask::unsharp(image, low, 2.0, 1.5, 0.0), 0);
        ASSERT_EQ(UnsharpMask::unsharp(image, high, 2.0, 1.5, 1.0), 0);
        EXPECT_TRUE(vxtest::sameBits(low, high));
        EXPECT_FALSE(vxtest::sameBits(low, image));
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
