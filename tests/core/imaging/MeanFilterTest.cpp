// SPDX-License-Identifier: Apache-2.0
#include "core/imaging/MeanFilter.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <utility>

#include "enhancement/superresolution/reference/SuperResolutionConvolution.h"

using namespace halvor::vx;

// The reference engine's filter runs along one line after the other.
TEST(MeanFilter, EqualsTheReferenceFilterBitForBit)
{
    for (const auto& [size, radius] : {std::pair(cv::Size(300, 11), 0),
                                       {cv::Size(300, 11), 1},
                                       {cv::Size(9, 8), 4},
                                       {cv::Size(20, 61), 4},
                                       {cv::Size(23, 17), 8}}) {
        cv::Mat_<float> image(size);
        cv::RNG(9).fill(image, cv::RNG::UNIFORM, -2.0F, 2.0F);
        cv::Mat_<float> expected(size);
        SuperResolutionConvolution(size.width, size.height, 1, 1, 2.0F)
            .sameConvOnes(image[0], radius, expected[0]);
        cv::Mat_<float> filtered;
        meanFilter(image, radius, filtered);
        ASSERT_EQ(filtered.size(), size);
        EXPECT_EQ(cv::countNonZero(filtered != expected), 0) << size << ", radius " << radius;
        meanFilter(image, radius, image);
        EXPECT_EQ(cv::countNonZero(image != expected), 0) << "in place";
    }
}
