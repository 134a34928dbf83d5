// SPDX-License-Identifier: Apache-2.0
#include "core/registration/CornerFinder.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <type_traits>

#include "core/base/Kernel.h"

namespace halvor::vx {

namespace {

constexpr int blockSize = 3;

// What the gradients are divided by: the sum of the smoothing weights 1, 2, 1, the block, and full scale.
template <typename Pixel>
constexpr auto gradientScale = static_cast<float>(1.0 / (4.0 * blockSize *
                                                         (std::is_same_v<Pixel, float> ? 1.0 : 255.0)));

// `line` points at the first pixel; one more lies at each end.
VX_KERNEL void differenceRow(const float* VX_RESTRICT line, int n, float* VX_RESTRICT across)
{
    for (int i = 0; i < n; ++i)
        across[i] = line[i + 1] - line[i - 1];
}

VX_KERNEL void smoothFolded(const float* VX_RESTRICT line, float scale, int n, float* VX_RESTRICT smooth)
{
    for (int i = 0; i < n; ++i)
        smooth[i] = line[i] * (2.0F * scale) + (line[i - 1] + line[i + 1]) * scale;
}

VX_KERNEL void smoothInOrder(const float* VX_RESTRICT line, float scale, int n, float* VX_RESTRICT smooth)
{
    for (int i = 0; i < n; ++i)
        smooth[i] = line[i - 1] * scale + line[i] * (2.0F * scale) + line[i + 1] * scale;
}

// The products of the gradients of a row, from the differences and smoothed values of it and its neighbours.
VX_KERNEL void productRow(const float* VX_RESTRICT acrossAbove, const float* VX_RESTRICT across,
                          const float* VX_RESTRICT acrossBelow, const float* VX_RESTRICT smoothAbove,
                          const float* VX_RESTRICT smoothBelow, float scale, int n, float* VX_RESTRICT xx,
                          float* VX_RESTRICT xy, float* VX_RESTRICT yy)
{
    for (int i = 0; i < n; ++i) {
        const float x = (acrossAbove[i] + acrossBelow[i]) * scale + across[i] * (2.0F * scale);
        const float y = smoothBelow[i] - smoothAbove[i];
        xx[i] = x * x;
        xy[i] = x * y;
        yy[i] = y * y;
    }
}

VX_KERNEL void sumOfThree(const float* VX_RESTRICT line, int n, double* VX_RESTRICT sums)
{
    for (int i = 0; i < n; ++i)
        sums[i] = static_cast<double>(line[i - 1]) + static_cast<double>(line[i]) +
                  static_cast<double>(line[i + 1]);
}

VX_KERNEL void addRow(const double* VX_RESTRICT row, int n, double* VX_RESTRICT sums)
{
    for (int i = 0; i < n; ++i)
        sums[i] += row[i];
}

// Lets a row enter the running sums, and the first of the three leave.
VX_KERNEL void slideRow(const double* enters, const double* leaves, int n, double* VX_RESTRICT sums,
                        float* VX_RESTRICT block)
{
    for (int i = 0; i < n; ++i) {
        const double sum = sums[i] + enters[i];
        block[i] = static_cast<float>(sum);
        sums[i] = sum - leaves[i];
    }
}

VX_KERNEL void smallerEigenvalues(const float* VX_RESTRICT xx, const float* VX_RESTRICT xy,
                                  const float* VX_RESTRICT yy, int n, float* VX_RESTRICT smaller)
{
    for (int i = 0; i < n; ++i) {
        const float a = xx[i] * 0.5F;
        const float b = xy[i];
        const float c = yy[i] * 0.5F;
        smaller[i] = (a + c) - std::sqrt((a - c) * (a - c) + b * b);
    }
}

VX_KERNEL float largestOf(const float* values, int n)
{
    constexpr int lanes = 16;
    float partial[lanes];
    std::fill(partial, partial + lanes, std::numeric_limits<float>::lowest());
    int i = 0;
    for (; i + lanes <= n; i += lanes)
        for (int lane = 0; lane < lanes; ++lane)
            partial[lane] = values[i + lane] > partial[lane] ? values[i + lane] : partial[lane];
    float largest = partial[0];
    for (const float value : partial)
        largest = value > largest ? value : largest;
    for (; i < n; ++i)
        largest = values[i] > largest ? values[i] : largest;
    return largest;
}

// Whether no neighbour is larger.
bool isPeak(const float* pixel, int step)
{
    for (const float* row : {pixel - step, pixel, pixel + step})
        for (int i = -1; i <= 1; ++i)
            if (row[i] > *pixel)
                return false;
    return true;
}

// Beyond its edges the image goes on as its mirror picture, whose mirror is the last row or column.
int mirrored(int position, int length)
{
    const int inside = position < 0 ? -position : std::min(position, 2 * (length - 1) - position);
    return std::clamp(inside, 0, length - 1);
}

// Fills the first and the last element of a row of n pixels that has one more at each end.
void mirrorEnds(std::vector<float>& row, int n)
{
    row.front() = row[static_cast<std::size_t>(mirrored(-1, n)) + 1];
    row.back() = row[static_cast<std::size_t>(mirrored(n, n)) + 1];
}

}  // namespace

CornerFinder::CornerFinder(const cv::Size& size)
    : size_(size),
      line_(static_cast<std::size_t>(size.width) + 2),
      products_(line_.size()),
      columnSums_(static_cast<std::size_t>(size.width)),
      blockSums_(static_cast<std::size_t>(size.width)),
      eigenvalues_(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height))
{
    const auto n = static_cast<std::size_t>(size.width);
    differences_.assign(3, {std::vector<float>(n), std::vector<float>(n)});
    rowSums_.assign(3, Tensor<double>(n));
}

void CornerFinder::find(const cv::Mat_<float>& image, int maxCorners, double quality, double minDistance,
                        std::vector<cv::Point2f>& corners)
{
    findIn(image, maxCorners, quality, minDistance, corners);
}

void CornerFinder::find(const cv::Mat_<unsigned char>& image, int maxCorners, double quality,
                        double minDistance, std::vector<cv::Point2f>& corners)
{
    findIn(image, maxCorners, quality, minDistance, corners);
}

template <typename Pixel>
void CornerFinder::findIn(const cv::Mat_<Pixel>& image, int maxCorners, double quality, double minDistance,
                          std::vector<cv::Point2f>& corners)
{
    measureEigenvalues(image);
    const float largest = largestOf(eigenvalues_.data(), static_cast<int>(eigenvalues_.size()));
    collectPeaks(static_cast<float>(static_cast<double>(largest) * quality));
    pickDistant(maxCorners, minDistance, corners);
}

// Rows of pixels become rows of gradient products, these are summed along the row and then down the columns.
// Both steps meet the mirror picture beyond the edges.
template <typename Pixel>
void CornerFinder::measureEigenvalues(const cv::Mat_<Pixel>& image)
{
    const int last = size_.height - 1;
    int taken = 0;
    int multiplied = 0;
    const auto multiplyUpTo = [&](int y) {
        for (; multiplied <= std::min(y, last); ++multiplied) {
            for (; taken <= std::min(multiplied + 1, last); ++taken)
                takeRow(image, taken);
            multiplyGradients(multiplied, gradientScale<Pixel>);
        }
    };
    multiplyUpTo(1);
    columnSums_ = rowSums(mirrored(-1, size_.height));
    addRow(rowSums(0).xx.data(), size_.width, columnSums_.xx.data());
    addRow(rowSums(0).xy.data(), size_.width, columnSums_.xy.data());
    addRow(rowSums(0).yy.data(), size_.width, columnSums_.yy.data());
    for (int y = 0; y < size_.height; ++y) {
        multiplyUpTo(y + 1);
        finishRow(y);
    }
}

template <typename Pixel>
void CornerFinder::takeRow(const cv::Mat_<Pixel>& image, int y)
{
    std::copy(image[y], image[y] + size_.width, line_.begin() + 1);
    mirrorEnds(line_, size_.width);
    auto& [across, smooth] = differences(y);
    differenceRow(line_.data() + 1, size_.width, across.data());
    constexpr auto smoothRow = std::is_same_v<Pixel, float> ? smoothFolded : smoothInOrder;
    smoothRow(line_.data() + 1, gradientScale<Pixel>, size_.width, smooth.data());
}

void CornerFinder::multiplyGradients(int y, float scale)
{
    const int n = size_.width;
    const Differences& above = differences(mirrored(y - 1, size_.height));
    const Differences& below = differences(mirrored(y + 1, size_.height));
    auto& [xx, xy, yy] = products_;
    productRow(above.across.data(), differences(y).across.data(), below.across.data(), above.smooth.data(),
               below.smooth.data(), scale, n, xx.data() + 1, xy.data() + 1, yy.data() + 1);
    for (std::vector<float>* row : {&xx, &xy, &yy})
        mirrorEnds(*row, n);
    Tensor<double>& sums = rowSums(y);
    sumOfThree(xx.data() + 1, n, sums.xx.data());
    sumOfThree(xy.data() + 1, n, sums.xy.data());
    sumOfThree(yy.data() + 1, n, sums.yy.data());
}

void CornerFinder::finishRow(int y)
{
    const int n = size_.width;
    const Tensor<double>& enters = rowSums(mirrored(y + 1, size_.height));
    const Tensor<double>& leaves = rowSums(mirrored(y - 1, size_.height));
    auto& [xx, xy, yy] = blockSums_;
    slideRow(enters.xx.data(), leaves.xx.data(), n, columnSums_.xx.data(), xx.data());
    slideRow(enters.xy.data(), leaves.xy.data(), n, columnSums_.xy.data(), xy.data());
    slideRow(enters.yy.data(), leaves.yy.data(), n, columnSums_.yy.data(), yy.data());
    smallerEigenvalues(xx.data(), xy.data(), yy.data(), n, eigenvalueRow(y));
}

// The strongest first, of equal ones the last in the image.
void CornerFinder::collectPeaks(float limit)
{
    peaks_.clear();
    for (int y = 1; y < size_.height - 1; ++y) {
        const float* row = eigenvalueRow(y);
        for (int x = 1; x < size_.width - 1; ++x)
            if (row[x] > limit && row[x] != 0.0F && isPeak(row + x, size_.width))
                peaks_.push_back(y * size_.width + x);
    }
    const auto isStronger = [this](int a, int b) {
        const float strengthA = eigenvalues_[static_cast<std::size_t>(a)];
        const float strengthB = eigenvalues_[static_cast<std::size_t>(b)];
        return strengthA != strengthB ? strengthA > strengthB : a > b;
    };
    std::sort(peaks_.begin(), peaks_.end(), isStronger);
}

void CornerFinder::pickDistant(int maxCorners, double minDistance, std::vector<cv::Point2f>& corners) const
{
    const double limit = minDistance * minDistance;
    corners.clear();
    for (const int peak : peaks_) {
        const cv::Point2f place = cv::Point(peak % size_.width, peak / size_.width);
        const auto isNear = [&](const cv::Point2f& corner) {
            const cv::Point2f away = place - corner;
            return static_cast<double>(away.dot(away)) < limit;
        };
        if (std::any_of(corners.begin(), corners.end(), isNear))
            continue;
        corners.push_back(place);
        if (static_cast<int>(corners.size()) == maxCorners)
            return;
    }
}

}  // namespace halvor::vx
