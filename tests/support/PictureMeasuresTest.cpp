// SPDX-License-Identifier: Apache-2.0
#include "support/PictureMeasures.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "support/Sensor.h"
#include "support/scenes/Scenes.h"

using namespace vxsupport;

namespace {

cv::Mat_<float> waves(int rows, int cols)
{
    cv::Mat_<float> image(rows, cols);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            image(r, c) =
                20.0F + 3.0F * static_cast<float>(std::sin(0.3 * r + 0.17 * c) + std::cos(0.11 * r * c));
    return image;
}

// The measure written out for one window, as its paper gives it.
double similarityOfOneWindow(const cv::Mat_<float>& image, const cv::Mat_<float>& reference)
{
    cv::Mat x;
    cv::Mat y;
    image.convertTo(x, CV_64F);
    reference.convertTo(y, CV_64F);
    const cv::Mat taps = cv::getGaussianKernel(11, 1.5, CV_64F);
    const cv::Mat weights = taps * taps.t();
    const auto mean = [&](const cv::Mat& values) { return weights.dot(values); };
    const double meanX = mean(x);
    const double meanY = mean(y);
    const double varianceX = mean(x.mul(x)) - meanX * meanX;
    const double varianceY = mean(y.mul(y)) - meanY * meanY;
    const double covariance = mean(x.mul(y)) - meanX * meanY;
    double low = 0.0;
    double high = 0.0;
    cv::minMaxLoc(y, &low, &high);
    const double c1 = std::pow(0.01 * (high - low), 2);
    const double c2 = std::pow(0.03 * (high - low), 2);
    return (2 * meanX * meanY + c1) * (2 * covariance + c2) /
           ((meanX * meanX + meanY * meanY + c1) * (varianceX + varianceY + c2));
}

}  // namespace

TEST(Psnr, ComparesTheErrorWithTheReferencesRange)
{
    cv::Mat_<float> reference(4, 4, 10.0F);
    reference(1, 1) = 20.0F;
    EXPECT_NEAR(psnr(cv::Mat(reference + 1.0F), reference), 20.0, 1e-4);
    EXPECT_NEAR(psnr(cv::Mat(reference - 0.1F), reference, 1), 40.0, 1e-3);
    EXPECT_EQ(psnr(reference, reference), std::numeric_limits<double>::infinity());
}

TEST(Psnr, LeavesOutTheMargin)
{
    const cv::Mat_<float> reference = waves(20, 20);
    cv::Mat_<float> image = reference.clone();
    image(0, 7) += 50.0F;
    image(19, 19) -= 50.0F;
    EXPECT_LT(psnr(image, reference), 20.0);
    EXPECT_EQ(psnr(image, reference, 1), std::numeric_limits<double>::infinity());
    EXPECT_EQ(largestDifference(image, reference, 1), 0.0);
    EXPECT_NEAR(largestDifference(image, reference), 50.0, 1e-4);
}

TEST(Ssim, AgreesWithTheWrittenOutMeasure)
{
    const cv::Mat_<float> reference = waves(11, 11);
    cv::Mat_<float> image(cv::Mat(reference + 0.5F));
    image(5, 4) += 2.0F;
    image(7, 7) -= 1.0F;
    EXPECT_NEAR(ssim(image, reference), similarityOfOneWindow(image, reference), 1e-9);
    EXPECT_EQ(ssim(reference, reference), 1.0);
}

TEST(Measures, RefuseDifferentSizesAndTooLargeMargins)
{
    const cv::Mat_<float> image = waves(20, 20);
    EXPECT_THROW(psnr(image, waves(20, 21)), std::invalid_argument);
    EXPECT_THROW(psnr(image, image, 10), std::invalid_argument);
    EXPECT_THROW(psnr(image, image, -1), std::invalid_argument);
    EXPECT_THROW(ssim(image, image, 5), std::invalid_argument);
    EXPECT_THROW(largestDifference(image, waves(19, 20)), std::invalid_argument);
    EXPECT_THROW(withoutShift(image, {40.0F, 0.0F}), std::invalid_argument);
}

TEST(GlobalShift, IsFoundAndRemoved)
{
    const cv::Size frame(96, 72);
    for (const SceneKind kind : allSceneKinds()) {
        const FineScene scene = makeScene({.kind = kind, .frame = frame}, 20);
        const cv::Mat_<float> reference = sampleFrame(scene, frame, {0.0F, 0.0F}, 1.5);
        for (const PointF shift : {PointF{0.31F, -0.42F}, PointF{-3.6F, 2.2F}}) {
            const cv::Mat_<float> image = sampleFrame(scene, frame, shift, 1.5);
            const PointF found = estimateShift(image, reference);
            EXPECT_NEAR(found.x, shift.x, 0.01) << nameOf(kind);
            EXPECT_NEAR(found.y, shift.y, 0.01) << nameOf(kind);
            const int margin = spoiledMargin(found);
            EXPECT_GT(psnr(withoutShift(image, found), reference, margin),
                      psnr(image, reference, margin) + 15.0)
                << nameOf(kind);
        }
    }
}

TEST(GlobalShift, IsZeroWithoutStructureAndForEqualImages)
{
    for (const cv::Mat_<float>& image : {cv::Mat_<float>(40, 40, 5.0F), waves(40, 40)}) {
        EXPECT_NEAR(estimateShift(image, image).x, 0.0F, 1e-4F);
        EXPECT_NEAR(estimateShift(image, image).y, 0.0F, 1e-4F);
    }
}

TEST(GlobalShift, RemovalMovesByWholePixelsExactly)
{
    const cv::Mat_<float> image = waves(30, 30);
    const cv::Mat_<float> moved = withoutShift(image, {2.0F, -3.0F});
    for (int r = 7; r < 23; ++r)
        for (int c = 7; c < 23; ++c)
            ASSERT_NEAR(moved(r, c), image(r - 3, c + 2), 1e-5F);
    EXPECT_EQ(spoiledMargin({0.0F, 0.0F}), 0);
}
