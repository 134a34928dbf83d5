// SPDX-License-Identifier: Apache-2.0
#include "core/imaging/MeanFilter.h"

#include <algorithm>
#include <cstddef>

#include "core/base/Kernel.h"

namespace halvor::vx {

namespace {

// A running sum is a chain of dependent additions; several rows at once keep the adders busy.

template <int Rows>
inline void filterRows(const float* in, std::ptrdiff_t inStep, float* out, std::ptrdiff_t outStep, int n,
                       int radius)
{
    const float inv = 1.0F / (static_cast<float>(radius) * 2.0F + 1.0F);
    float sum[Rows] = {};
    for (int i = 0; i < radius; ++i)
        for (int r = 0; r < Rows; ++r)
            sum[r] += in[r * inStep + i];
    int count = radius + 1;
    for (int i = 0; i < radius; ++i, ++count)
        for (int r = 0; r < Rows; ++r) {
            sum[r] += in[r * inStep + i + radius];
            out[r * outStep + i] = sum[r] / static_cast<float>(count);
        }
    for (int i = radius; i < n - radius; ++i)
        for (int r = 0; r < Rows; ++r) {
            sum[r] += in[r * inStep + i + radius];
            out[r * outStep + i] = sum[r] * inv;
            sum[r] -= in[r * inStep + i - radius];
        }
    for (int i = n - radius; i < n; ++i) {
        --count;
        for (int r = 0; r < Rows; ++r) {
            out[r * outStep + i] = sum[r] / static_cast<float>(count);
            sum[r] -= in[r * inStep + i - radius];
        }
    }
}

// The same steps down the columns, one row of results at a time: where the window grows from the first rows
// on, where it slides, and where it shrinks towards the last.
VX_KERNEL void growRow(const float* VX_RESTRICT enters, float divisor, int n, float* VX_RESTRICT sums,
                       float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i) {
        sums[i] += enters[i];
        out[i] = sums[i] / divisor;
    }
}

VX_KERNEL void slideRow(const float* enters, const float* leaves, float inv, int n, float* VX_RESTRICT sums,
                        float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i) {
        const float sum = sums[i] + enters[i];
        out[i] = sum * inv;
        sums[i] = sum - leaves[i];
    }
}

VX_KERNEL void shrinkRow(const float* VX_RESTRICT leaves, float divisor, int n, float* VX_RESTRICT sums,
                         float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i) {
        out[i] = sums[i] / divisor;
        sums[i] -= leaves[i];
    }
}

VX_KERNEL void addRow(const float* VX_RESTRICT row, int n, float* VX_RESTRICT sums)
{
    for (int i = 0; i < n; ++i)
        sums[i] += row[i];
}

int wholeStrips(int rows, int stripRows)
{
    return (rows + stripRows - 1) / stripRows * stripRows;
}

std::ptrdiff_t stepOf(const cv::Mat_<float>& image)
{
    return static_cast<std::ptrdiff_t>(image.step1());
}

}  // namespace

MeanFilter::MeanFilter(const cv::Size& size)
    : rows_(size.height),
      columns_(size.width),
      ring_(wholeStrips(size.height, stripRows)),
      strip_(stripRows, size.width),
      rowMeans_(ring_, size.width),
      sums_(static_cast<std::size_t>(size.width)),
      means_(static_cast<std::size_t>(size.width))
{}

void MeanFilter::begin(int radius)
{
    radius_ = radius;
    ring_ = std::min(wholeStrips(2 * radius + stripRows, stripRows), rowMeans_.rows);
    std::fill(sums_.begin(), sums_.end(), 0.0F);
}

void MeanFilter::filterStrip(int first, int count)
{
    if (count == stripRows)
        filterRows<stripRows>(strip_[0], stepOf(strip_), rowMeans(first), stepOf(rowMeans_), columns_,
                              radius_);
    else
        for (int i = 0; i < count; ++i)
            filterRows<1>(strip_[i], 0, rowMeans(first + i), 0, columns_, radius_);
}

const float* MeanFilter::meanRow(int y)
{
    if (y == 0)
        for (int i = 0; i < radius_; ++i)
            addRow(rowMeans(i), columns_, sums_.data());
    if (y < radius_)
        growRow(rowMeans(y + radius_), static_cast<float>(radius_ + 1 + y), columns_, sums_.data(),
                means_.data());
    else if (y < rows_ - radius_)
        slideRow(rowMeans(y + radius_), rowMeans(y - radius_),
                 1.0F / (static_cast<float>(radius_) * 2.0F + 1.0F), columns_, sums_.data(), means_.data());
    else
        shrinkRow(rowMeans(y - radius_), static_cast<float>(radius_ + rows_ - y), columns_, sums_.data(),
                  means_.data());
    return means_.data();
}

void meanFilter(const cv::Mat_<float>& src, int radius, cv::Mat_<float>& dst)
{
    const cv::Mat_<float> image = src;  // dst may be the same object
    dst.create(image.size());
    MeanFilter filter(image.size());
    filter.run(
        radius, [&](int y, float* row) { std::copy_n(image[y], image.cols, row); },
        [&](int y, const float* row) { std::copy_n(row, image.cols, dst[y]); });
}

}  // namespace halvor::vx
