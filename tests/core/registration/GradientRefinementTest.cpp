// SPDX-License-Identifier: Apache-2.0
#include "core/registration/GradientRefinement.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <utility>

using namespace halvor::vx;

namespace {

constexpr int width = 61;
constexpr int height = 47;
constexpr float regError = 0.0001F;
constexpr int blurRadius = 3;

// A smooth texture without a preferred direction, seen by a frame whose scene lies (dx, dy) further right and
// lower.
cv::Mat_<float> displacedTexture(double dx, double dy, const cv::Size& size = {width, height})
{
    cv::Mat_<float> frame(size);
    for (int r = 0; r < size.height; ++r) {
        for (int c = 0; c < size.width; ++c) {
            const double x = c - dx;
            const double y = r - dy;
            frame(r, c) =
                static_cast<float>(20.0 + std::sin(0.31 * x + 0.17 * y) + std::cos(0.23 * y - 0.11 * x) +
                                   0.5 * std::sin(0.41 * y + 0.29 * x + 1.0));
        }
    }
    return frame;
}

struct Refined
{
    PointF displacement;
    cv::Mat_<char> mask;
};

Refined refine(const cv::Mat_<float>& reference, const cv::Mat_<float>& frame, PointI shift)
{
    GradientRefinement refinement(reference.size());
    refinement.setReference(reference);
    Refined result{{}, cv::Mat_<char>(reference.size(), '\0')};
    result.displacement = refinement.refine(0, frame, shift, regError, blurRadius, result.mask[0]);
    return result;
}

}  // namespace

// Starts in each direction, such that all kinds of overlaps, strips and mask windows occur. The reference engine's
// plain form of the method is held against this one with the registrations.
TEST(GradientRefinement, FindsTheDisplacementAndMasksWhatDisagrees)
{
    for (const auto& [start, truth] : {std::pair(PointI{0, 0}, cv::Point2d(0.3, -0.2)),
                                       {PointI{4, 3}, cv::Point2d(4.4, 2.7)},
                                       {PointI{-5, 2}, cv::Point2d(-5.6, 2.3)},
                                       {PointI{3, -6}, cv::Point2d(2.6, -5.7)},
                                       {PointI{-2, -1}, cv::Point2d(-1.6, -1.4)}}) {
        cv::Mat_<float> frame = displacedTexture(truth.x, truth.y);
        frame(cv::Rect(25, 20, 6, 5)) += 0.5F;  // an object that only this frame holds
        const Refined result = refine(displacedTexture(0.0, 0.0), frame, start);
        EXPECT_NEAR(result.displacement.x, truth.x, 0.08);
        EXPECT_NEAR(result.displacement.y, truth.y, 0.08);
        EXPECT_EQ(result.mask(22 - start.y, 28 - start.x), 0);
        EXPECT_GT(cv::countNonZero(result.mask), width * height / 2);
    }
}

TEST(GradientRefinement, LeavesTheMaskAloneOutsideTheWindow)
{
    GradientRefinement refinement({width, height});
    refinement.setReference(displacedTexture(0.0, 0.0));
    cv::Mat_<char> mask(height, width, static_cast<char>(7));
    refinement.refine(0, displacedTexture(3.2, -2.1), {3, -2}, regError, blurRadius, mask[0]);
    const cv::Rect window(0, 2, width - 3, height - 2);
    EXPECT_EQ(cv::countNonZero(mask == 7), width * height - window.area());
    EXPECT_EQ(cv::countNonZero(mask(window) == 7), 0);
}

// Where noise lets most pixels disagree, those beside the strip that the frame doesn't see hardly agree more often.
TEST(GradientRefinement, CountsTheErrorLimitOutsideTheOverlap)
{
    constexpr int strip = 6;
    cv::Mat_<float> frame = displacedTexture(strip, 0.0);
    cv::Mat_<float> noise(frame.size());
    cv::RNG random(5);
    random.fill(noise, cv::RNG::NORMAL, 0.0, 0.2);
    frame += noise;
    const cv::Mat_<char> mask = refine(displacedTexture(0.0, 0.0), frame, {strip, 0}).mask;
    const auto agreeing = [&](int column, int columns) {
        return cv::countNonZero(mask.colRange(column, column + columns)) /
               static_cast<double>(columns * height);
    };
    EXPECT_LT(agreeing(width - strip - 2, 2), agreeing(10, 30) + 0.2);
}

TEST(GradientRefinement, WithoutAnOverlapIsNotANumberAndMarksNothing)
{
    const cv::Mat_<float> texture = displacedTexture(0.0, 0.0);
    constexpr auto far = std::numeric_limits<std::int32_t>::min();
    for (const PointI shift : {PointI{width, 0}, PointI{0, -height}, PointI{far, far}, PointI{2, 1000}}) {
        const Refined result = refine(texture, texture, shift);
        EXPECT_TRUE(std::isnan(result.displacement.x)) << shift.x << ", " << shift.y;
        EXPECT_TRUE(std::isnan(result.displacement.y)) << shift.x << ", " << shift.y;
        EXPECT_EQ(cv::countNonZero(result.mask), 0);
    }
}

TEST(GradientRefinement, TakesFramesOfOneRowOrColumn)
{
    for (const cv::Size size : {cv::Size(40, 1), cv::Size(1, 40)}) {
        GradientRefinement refinement(size);
        const cv::Mat_<float> texture = displacedTexture(0.0, 0.0, size);
        refinement.setReference(texture);
        cv::Mat_<char> mask(size, '\0');
        const PointF displacement = refinement.refine(0, texture, {0, 0}, regError, 0, mask[0]);
        EXPECT_TRUE(std::isnan(displacement.x)) << "structure in one direction alone has no unique solution";
    }
}
