#include "core/imaging/GradientRefinement.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <tuple>
#include <vector>

#include "core/imaging/Displacement.h"

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

double gradientAt(const cv::Mat_<float>& image, int r, int c, int down, int right)
{
    const int extent = down != 0 ? image.rows : image.cols;
    const int position = down != 0 ? r : c;
    const int before = position > 0 ? 1 : 0;
    const int after = position < extent - 1 ? 1 : 0;
    const double difference = static_cast<double>(image(r + after * down, c + after * right)) -
                              static_cast<double>(image(r - before * down, c - before * right));
    return difference / (before + after);
}

// The method in doubles, without the detour over strips: sums over the overlap alone.
Refined refinePlainly(const cv::Mat_<float>& reference, const cv::Mat_<float>& frame, PointI shift,
                      cv::Mat_<double>& localError)
{
    const cv::Rect whole({0, 0}, reference.size());
    double a = 0, b = 0, c = 0, bx = 0, by = 0;
    const auto each = [&](auto visit) {
        for (int y = 0; y < reference.rows; ++y)
            for (int x = 0; x < reference.cols; ++x)
                if (whole.contains({x + shift.x, y + shift.y}))
                    visit(y, x, gradientAt(reference, y, x, 0, 1), gradientAt(reference, y, x, 1, 0),
                          static_cast<double>(frame(y + shift.y, x + shift.x)) -
                              static_cast<double>(reference(y, x)));
    };
    each([&](int, int, double gx, double gy, double d) {
        a += gx * gx;
        b += gx * gy;
        c += gy * gy;
        bx += gx * d;
        by += gy * d;
    });
    const double det = a * c - b * b;
    const double dx = (b * by - c * bx) / det;
    const double dy = (b * bx - a * by) / det;
    cv::Mat_<double> error(reference.size(), regError);
    each([&](int y, int x, double gx, double gy, double d) {
        error(y, x) = std::pow(gx * dx + gy * dy + d, 2.0) / (a + c);
    });

    Refined result{{static_cast<float>(dx + shift.x), static_cast<float>(dy + shift.y)},
                   cv::Mat_<char>(reference.size(), '\0')};
    localError.create(reference.size());
    const PointI rounded = roundToPixels(result.displacement);
    for (int y = 0; y < reference.rows; ++y) {
        for (int x = 0; x < reference.cols; ++x) {
            const cv::Rect box(x - blurRadius, y - blurRadius, 2 * blurRadius + 1, 2 * blurRadius + 1);
            localError(y, x) = cv::mean(error(box & whole))[0];
            if (whole.contains({x + rounded.x, y + rounded.y}))
                result.mask(y, x) = regError > localError(y, x) ? 1 : 0;
        }
    }
    return result;
}

}  // namespace

TEST(GradientStep, WithoutStructureIsNotANumber)
{
    const GradientStep step = solveGradientStep({}, 0.0, 0.0);
    EXPECT_TRUE(std::isnan(step.dx));
    EXPECT_TRUE(std::isnan(step.dy));
}

TEST(GradientRefinement, IdenticalFramesAreNotDisplacedAndAgreeEverywhere)
{
    const cv::Mat_<float> texture = displacedTexture(0.0, 0.0);
    const Refined result = refine(texture, texture, {0, 0});
    EXPECT_EQ(result.displacement.x, 0.0F);
    EXPECT_EQ(result.displacement.y, 0.0F);
    EXPECT_EQ(cv::countNonZero(result.mask), width * height);
}

// Whole-pixel start and displacement, such that overlaps, strips and mask windows of each direction occur.
class RefinementFrom : public testing::TestWithParam<std::tuple<PointI, cv::Point2d>>
{};

TEST_P(RefinementFrom, FindsTheDisplacementAndTheMaskOfThePlainMethod)
{
    const auto& [start, truth] = GetParam();
    const cv::Mat_<float> reference = displacedTexture(0.0, 0.0);
    cv::Mat_<float> frame = displacedTexture(truth.x, truth.y);
    frame(cv::Rect(25, 20, 6, 5)) += 0.5F;  // an object that only this frame holds

    const Refined result = refine(reference, frame, start);
    cv::Mat_<double> localError;
    const Refined plain = refinePlainly(reference, frame, start, localError);
    EXPECT_NEAR(result.displacement.x, plain.displacement.x, 1e-5);
    EXPECT_NEAR(result.displacement.y, plain.displacement.y, 1e-5);
    EXPECT_NEAR(result.displacement.x, truth.x, 0.08);
    EXPECT_NEAR(result.displacement.y, truth.y, 0.08);
    EXPECT_EQ(result.mask(22 - start.y, 28 - start.x), 0);
    const cv::Mat undecided = cv::abs(localError / regError - 1.0) < 1e-4;
    const cv::Mat differs = (result.mask != plain.mask) & ~undecided;
    EXPECT_EQ(cv::countNonZero(differs), 0);
    EXPECT_LT(cv::countNonZero(undecided), width * height / 4);
}

INSTANTIATE_TEST_SUITE_P(Directions, RefinementFrom,
                         testing::Values(std::tuple(PointI{0, 0}, cv::Point2d(0.3, -0.2)),
                                         std::tuple(PointI{4, 3}, cv::Point2d(4.4, 2.7)),
                                         std::tuple(PointI{-5, 2}, cv::Point2d(-5.6, 2.3)),
                                         std::tuple(PointI{3, -6}, cv::Point2d(2.6, -5.7)),
                                         std::tuple(PointI{-2, -1}, cv::Point2d(-1.6, -1.4))));

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
