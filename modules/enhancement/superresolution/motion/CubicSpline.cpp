// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/motion/CubicSpline.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <opencv2/core.hpp>

#include "core/base/Kernel.h"
#include "enhancement/superresolution/motion/PixelPlace.h"

namespace halvor::vx {

namespace {

constexpr float pole = -0.267949192F;  // sqrt(3) - 2
constexpr float gain = 6.0F;           // (1 - pole) * (1 - 1 / pole)
constexpr int horizon = 24;            // pixels after which the pole's powers are below a float's last bit
constexpr int margin = 4;

int mirrored(int position, int length)
{
    return cv::borderInterpolate(position, length, cv::BORDER_REFLECT_101);
}

VX_KERNEL void scaleRow(float factor, const float* VX_RESTRICT in, float* VX_RESTRICT out, int n)
{
    for (int i = 0; i < n; ++i)
        out[i] = factor * in[i];
}

VX_KERNEL void addScaledRow(float factor, const float* VX_RESTRICT in, float* VX_RESTRICT out, int n)
{
    for (int i = 0; i < n; ++i)
        out[i] += factor * in[i];
}

// row = pole * (below - row): the second sweep of the recursive filter.
VX_KERNEL void sweepBack(const float* VX_RESTRICT below, float* VX_RESTRICT row, int n)
{
    for (int i = 0; i < n; ++i)
        row[i] = pole * (below[i] - row[i]);
}

// The first coefficient of the first sweep, and the last one of the second, for a mirrored line.
float startOf(const float* line, int n)
{
    float sum = line[0];
    float power = pole;
    for (int k = 1; k <= horizon; ++k, power *= pole)
        sum += power * line[mirrored(k, n)];
    return sum;
}

void fitLine(float* line, int n)
{
    if (n == 1)
        return;
    for (int i = 0; i < n; ++i)
        line[i] *= gain;
    line[0] = startOf(line, n);
    for (int i = 1; i < n; ++i)
        line[i] += pole * line[i - 1];
    line[n - 1] = pole / (pole * pole - 1.0F) * (line[n - 1] + pole * line[n - 2]);
    for (int i = n - 2; i >= 0; --i)
        line[i] = pole * (line[i + 1] - line[i]);
}

using Four __attribute__((vector_size(16))) = float;

inline Four load(const float* from)
{
    Four values;
    std::memcpy(&values, from, sizeof values);
    return values;
}

// Weights of the four coefficients around a place, by its distance t behind the second one.
inline Four splineWeights(float t)
{
    constexpr Four constant{1.0F / 6.0F, 4.0F / 6.0F, 1.0F / 6.0F, 0.0F};
    constexpr Four linear{-0.5F, 0.0F, 0.5F, 0.0F};
    constexpr Four square{0.5F, -1.0F, 0.5F, 0.0F};
    constexpr Four cube{-1.0F / 6.0F, 0.5F, -0.5F, 1.0F / 6.0F};
    return ((cube * t + square) * t + linear) * t + constant;
}

VX_KERNEL void sampleAt(const float* origin, std::ptrdiff_t pitch, cv::Point last, int y, const float* dx,
                        const float* dy, float* VX_RESTRICT out)
{
    for (int x = 0; x <= last.x; ++x) {
        const PixelPlace across = placeBehind(x, -dx[x], -2, last.x + 2);
        const PixelPlace down = placeBehind(y, -dy[x], -2, last.y + 2);
        const float* from = origin + (down.pixel - 1) * pitch + across.pixel - 1;
        const Four rows = splineWeights(down.rest);
        Four sum = load(from) * rows[0];
        sum += load(from + pitch) * rows[1];
        sum += load(from + 2 * pitch) * rows[2];
        sum += load(from + 3 * pitch) * rows[3];
        sum *= splineWeights(across.rest);
        out[x] = (sum[0] + sum[2]) + (sum[1] + sum[3]);
    }
}

}  // namespace

CubicSpline::CubicSpline(const cv::Size& size)
    : size_(size), coefficients_(size.height + 2 * margin, size.width + 2 * margin, 0.0F)
{}

void CubicSpline::fit(const cv::Mat_<float>& image)
{
    for (int y = 0; y < size_.height; ++y)
        std::copy_n(image[y], size_.width, coefficients_[y + margin] + margin);
    fitRows();
    fitColumns();
    mirrorEdges();
}

void CubicSpline::fitRows()
{
    for (int y = 0; y < size_.height; ++y)
        fitLine(coefficients_[y + margin] + margin, size_.width);
}

void CubicSpline::fitColumns()
{
    const int n = size_.height;
    const int width = size_.width;
    if (n == 1)
        return;
    const auto row = [this](int y) { return coefficients_[y + margin] + margin; };
    float* first = coefficients_[0] + margin;  // in the margin, which is filled later
    scaleRow(gain, row(0), first, width);
    float power = pole;
    for (int k = 1; k <= horizon; ++k, power *= pole)
        addScaledRow(gain * power, row(mirrored(k, n)), first, width);
    std::copy_n(first, width, row(0));
    for (int y = 1; y < n; ++y) {
        scaleRow(gain, row(y), first, width);
        addScaledRow(pole, row(y - 1), first, width);
        std::copy_n(first, width, row(y));
    }
    scaleRow(pole / (pole * pole - 1.0F), row(n - 1), first, width);
    addScaledRow(pole * pole / (pole * pole - 1.0F), row(n - 2), first, width);
    std::copy_n(first, width, row(n - 1));
    for (int y = n - 2; y >= 0; --y)
        sweepBack(row(y + 1), row(y), width);
}

void CubicSpline::mirrorEdges()
{
    for (int y = 0; y < size_.height; ++y) {
        float* row = coefficients_[y + margin] + margin;
        for (int i = 1; i <= margin; ++i) {
            row[-i] = row[mirrored(-i, size_.width)];
            row[size_.width - 1 + i] = row[mirrored(size_.width - 1 + i, size_.width)];
        }
    }
    for (int i = 1; i <= margin; ++i) {
        const int below = size_.height - 1 + i;
        std::copy_n(coefficients_[mirrored(-i, size_.height) + margin], coefficients_.cols,
                    coefficients_[margin - i]);
        std::copy_n(coefficients_[mirrored(below, size_.height) + margin], coefficients_.cols,
                    coefficients_[below + margin]);
    }
}

void CubicSpline::sampleRow(int y, const float* dx, const float* dy, float* out) const
{
    sampleAt(coefficients_[margin] + margin, coefficients_.cols, {size_.width - 1, size_.height - 1}, y, dx,
             dy, out);
}

}  // namespace halvor::vx
