// SPDX-License-Identifier: Apache-2.0
#include "support/PictureMeasures.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <string>

namespace vxsupport {

namespace {

constexpr int lobes = 4;
constexpr int windowSide = 11;

struct Pair
{
    cv::Mat_<float> image;
    cv::Mat_<float> reference;
};

Pair innerParts(const cv::Mat_<float>& image, const cv::Mat_<float>& reference, int margin, int smallest)
{
    if (image.size() != reference.size())
        throw std::invalid_argument("the images have different sizes");
    const cv::Rect inner(margin, margin, reference.cols - 2 * margin, reference.rows - 2 * margin);
    if (margin < 0 || inner.width < smallest || inner.height < smallest)
        throw std::invalid_argument("the margin leaves fewer than " + std::to_string(smallest) +
                                    " rows or columns");
    return {image(inner), reference(inner)};
}

double rangeOf(const cv::Mat_<float>& image)
{
    double low = 0.0;
    double high = 0.0;
    cv::minMaxLoc(image, &low, &high);
    return high - low;
}

// Weighted mean over every window that lies wholly inside.
cv::Mat_<double> windowMeans(const cv::Mat& values)
{
    constexpr int reach = windowSide / 2;
    cv::Mat means;
    cv::GaussianBlur(values, means, {windowSide, windowSide}, 1.5);
    return means(cv::Rect(reach, reach, values.cols - 2 * reach, values.rows - 2 * reach));
}

double sincOf(double x)
{
    return x == 0.0 ? 1.0 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
}

// Taps of a correlation that reads at i + shift; as many on both sides of the middle.
cv::Mat_<double> shiftTaps(double shift)
{
    const int reach = static_cast<int>(std::ceil(std::fabs(shift))) + lobes;
    cv::Mat_<double> taps(1, 2 * reach + 1);
    for (int i = -reach; i <= reach; ++i) {
        const double x = i - shift;
        taps(0, i + reach) = std::fabs(x) < lobes ? sincOf(x) * sincOf(x / lobes) : 0.0;
    }
    taps *= 1.0 / cv::sum(taps)[0];
    return taps;
}

// One Gauss-Newton step for the displacement left between two aligned images.
cv::Point2d remainingShift(const cv::Mat_<float>& image, const cv::Mat_<float>& reference)
{
    double xx = 0.0;
    double xy = 0.0;
    double yy = 0.0;
    double xd = 0.0;
    double yd = 0.0;
    for (int r = 1; r + 1 < image.rows; ++r)
        for (int c = 1; c + 1 < image.cols; ++c) {
            const double gx =
                0.5 * (static_cast<double>(image(r, c + 1)) - static_cast<double>(image(r, c - 1)));
            const double gy =
                0.5 * (static_cast<double>(image(r + 1, c)) - static_cast<double>(image(r - 1, c)));
            const double difference = static_cast<double>(reference(r, c)) - static_cast<double>(image(r, c));
            xx += gx * gx;
            xy += gx * gy;
            yy += gy * gy;
            xd += gx * difference;
            yd += gy * difference;
        }
    const double det = xx * yy - xy * xy;
    if (!(det > 1e-9 * xx * yy))
        return {0.0, 0.0};
    return {(yy * xd - xy * yd) / det, (xx * yd - xy * xd) / det};
}

cv::Point2d startingShift(const Pair& parts)
{
    cv::Mat_<float> window;
    cv::createHanningWindow(window, parts.image.size(), CV_32F);
    const cv::Point2d start = cv::phaseCorrelate(parts.reference.clone(), parts.image.clone(), window);
    const double limit = static_cast<double>(maxRemovableShift) / 2.0;
    return std::fabs(start.x) < limit && std::fabs(start.y) < limit ? start : cv::Point2d(0.0, 0.0);
}

}  // namespace

double psnr(const cv::Mat_<float>& image, const cv::Mat_<float>& reference, int margin)
{
    const Pair parts = innerParts(image, reference, margin, 1);
    const double squares = cv::norm(parts.image, parts.reference, cv::NORM_L2SQR);
    if (squares == 0.0)
        return std::numeric_limits<double>::infinity();
    const double range = rangeOf(parts.reference);
    return 10.0 * std::log10(range * range / (squares / static_cast<double>(parts.reference.total())));
}

double ssim(const cv::Mat_<float>& image, const cv::Mat_<float>& reference, int margin)
{
    const Pair parts = innerParts(image, reference, margin, windowSide);
    if (cv::norm(parts.image, parts.reference, cv::NORM_INF) == 0.0)
        return 1.0;
    const double range = rangeOf(parts.reference);
    const double c1 = 0.01 * range * 0.01 * range;
    const double c2 = 0.03 * range * 0.03 * range;

    cv::Mat_<double> x;
    cv::Mat_<double> y;
    parts.image.convertTo(x, CV_64F);
    parts.reference.convertTo(y, CV_64F);
    const cv::Mat_<double> meanX = windowMeans(x);
    const cv::Mat_<double> meanY = windowMeans(y);
    const cv::Mat_<double> squareX = windowMeans(x.mul(x));
    const cv::Mat_<double> squareY = windowMeans(y.mul(y));
    const cv::Mat_<double> product = windowMeans(x.mul(y));

    double sum = 0.0;
    for (int r = 0; r < meanX.rows; ++r)
        for (int c = 0; c < meanX.cols; ++c) {
            const double mx = meanX(r, c);
            const double my = meanY(r, c);
            const double varianceX = squareX(r, c) - mx * mx;
            const double varianceY = squareY(r, c) - my * my;
            const double covariance = product(r, c) - mx * my;
            sum += (2.0 * mx * my + c1) * (2.0 * covariance + c2) /
                   ((mx * mx + my * my + c1) * (varianceX + varianceY + c2));
        }
    return sum / static_cast<double>(meanX.total());
}

double largestDifference(const cv::Mat_<float>& image, const cv::Mat_<float>& reference, int margin)
{
    const Pair parts = innerParts(image, reference, margin, 1);
    return cv::norm(parts.image, parts.reference, cv::NORM_INF);
}

PointF estimateShift(const cv::Mat_<float>& image, const cv::Mat_<float>& reference, int margin)
{
    const Pair parts = innerParts(image, reference, margin, 4 * lobes);
    constexpr int rounds = 20;
    cv::Point2d shift = startingShift(parts);
    for (int round = 0; round < rounds; ++round) {
        const PointF now{static_cast<float>(shift.x), static_cast<float>(shift.y)};
        const int edge = spoiledMargin(now);
        if (2 * edge + 4 > std::min(parts.image.cols, parts.image.rows))
            return {0.0F, 0.0F};
        const Pair inner = innerParts(withoutShift(parts.image, now), parts.reference, edge, 1);
        const cv::Point2d step = remainingShift(inner.image, inner.reference);
        shift += step;
        if (std::fabs(shift.x) >= static_cast<double>(maxRemovableShift) ||
            std::fabs(shift.y) >= static_cast<double>(maxRemovableShift))
            return {0.0F, 0.0F};
        if (std::fabs(step.x) < 1e-4 && std::fabs(step.y) < 1e-4)
            break;
    }
    return {static_cast<float>(shift.x), static_cast<float>(shift.y)};
}

cv::Mat_<float> withoutShift(const cv::Mat_<float>& image, PointF shift)
{
    if (!(std::fabs(shift.x) < maxRemovableShift && std::fabs(shift.y) < maxRemovableShift))
        throw std::invalid_argument("the shift is too large to be removed");
    cv::Mat_<float> moved;
    cv::sepFilter2D(image, moved, CV_32F, shiftTaps(static_cast<double>(shift.x)),
                    shiftTaps(static_cast<double>(shift.y)), {-1, -1}, 0.0, cv::BORDER_REPLICATE);
    return moved;
}

int spoiledMargin(PointF shift)
{
    if (shift.x == 0.0F && shift.y == 0.0F)
        return 0;
    return static_cast<int>(std::ceil(std::max(std::fabs(shift.x), std::fabs(shift.y)))) + lobes;
}

}  // namespace vxsupport
