// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/motion/FrameTaps.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/base/Kernel.h"
#include "enhancement/superresolution/motion/MotionSettings.h"
#include "enhancement/superresolution/motion/PixelPlace.h"

namespace halvor::vx {

namespace {

constexpr int taps = TapTable::taps;
constexpr int border = MotionSettings::border;

// Pixels of a row are visited in strides, so that one does not wait for the sums that its neighbour stores.
constexpr int stride = 4;

using Eight __attribute__((vector_size(32))) = float;

inline void load(const float* from, Eight& values)
{
    std::memcpy(&values, from, sizeof values);
}

inline void store(const Eight& values, float* to)
{
    std::memcpy(to, &values, sizeof values);
}

inline void evaluate(const TapTable& table, float t, Eight& weights)
{
    Eight power;
    load(table.coefficients[3].data(), weights);
    for (std::size_t k = 3; k-- > 0;) {
        load(table.coefficients[k].data(), power);
        weights = weights * t + power;
    }
}

inline float sumOf(const Eight& values)
{
    return ((values[0] + values[4]) + (values[2] + values[6])) +
           ((values[1] + values[5]) + (values[3] + values[7]));
}

// Where a frame's pixel lies: its first tap and the distance behind it. The pixel's centre is at
// 2 * (pixel - d) + 0.5 of the picture without its border, the first tap at most 2.5 before it.
inline PixelPlace tapPlace(int pixel, float d, int length)
{
    constexpr int before = 2;  // 2.5 - 0.5
    return placeBehind(2 * pixel + border - before, -2.0F * d, -1, length);
}

inline bool fits(const PixelPlace& place, int length)
{
    return place.pixel >= 0 && place.pixel + taps <= length;
}

inline float dotTaps(const Eight& across, const float* down, const float* from, std::ptrdiff_t pitch)
{
    Eight sum{};
    for (int r = 0; r < taps; ++r) {
        Eight row;
        load(from + r * pitch, row);
        sum += row * down[r];
    }
    sum *= across;
    return sumOf(sum);
}

enum class Sum
{
    normal,
    residual,
    coverage,
};

// Adds what each pixel answers to its taps. A clipped pixel adds to the rows of a range only.
template <Sum kind, bool isClipped>
VX_KERNEL_BODY void addPixels(const FrameTaps::Row& row, const TapTable& table, const float* image,
                              float* out, std::ptrdiff_t pitch, const RowRange& range)
{
    for (int i = 0; i < row.count; ++i) {
        const PixelTaps& pixel = row.pixels[i];
        if (isClipped && (pixel.row >= range.end || pixel.row + taps <= range.first))
            continue;
        const std::ptrdiff_t place = pixel.row * pitch + pixel.column;
        Eight across;
        Eight column;
        evaluate(table, pixel.across, across);
        evaluate(table, pixel.down, column);
        float down[taps + 1];
        store(column, down);
        float answer = pixel.weight;
        if constexpr (kind == Sum::normal)
            answer *= dotTaps(across, down, image + place, pitch);
        if constexpr (kind == Sum::residual)
            answer *= pixel.value - dotTaps(across, down, image + place, pitch);
        across *= answer;
        for (int r = 0; r < taps; ++r) {
            if (isClipped && (pixel.row + r < range.first || pixel.row + r >= range.end))
                continue;
            Eight sum;
            load(out + place + r * pitch, sum);
            sum += across * down[r];
            store(sum, out + place + r * pitch);
        }
    }
}

VX_KERNEL void normalRow(const FrameTaps::Row& row, const TapTable& table, const float* image, float* out,
                         std::ptrdiff_t pitch, const RowRange& range)
{
    addPixels<Sum::normal, false>(row, table, image, out, pitch, range);
}

VX_KERNEL void residualRow(const FrameTaps::Row& row, const TapTable& table, const float* image, float* out,
                           std::ptrdiff_t pitch, const RowRange& range)
{
    addPixels<Sum::residual, false>(row, table, image, out, pitch, range);
}

VX_KERNEL void coverageRow(const FrameTaps::Row& row, const TapTable& table, const float* image, float* out,
                           std::ptrdiff_t pitch, const RowRange& range)
{
    addPixels<Sum::coverage, false>(row, table, image, out, pitch, range);
}

VX_KERNEL void normalRowClipped(const FrameTaps::Row& row, const TapTable& table, const float* image,
                                float* out, std::ptrdiff_t pitch, const RowRange& range)
{
    addPixels<Sum::normal, true>(row, table, image, out, pitch, range);
}

VX_KERNEL void residualRowClipped(const FrameTaps::Row& row, const TapTable& table, const float* image,
                                  float* out, std::ptrdiff_t pitch, const RowRange& range)
{
    addPixels<Sum::residual, true>(row, table, image, out, pitch, range);
}

VX_KERNEL void coverageRowClipped(const FrameTaps::Row& row, const TapTable& table, const float* image,
                                  float* out, std::ptrdiff_t pitch, const RowRange& range)
{
    addPixels<Sum::coverage, true>(row, table, image, out, pitch, range);
}

VX_KERNEL void predictPixels(const TapTable& table, const float* picture, std::ptrdiff_t pitch, cv::Size size,
                             int y, const float* dx, const float* dy, int n, float* out)
{
    for (int x = 0; x < n; ++x) {
        const PixelPlace left = tapPlace(x, dx[x], size.width);
        const PixelPlace top = tapPlace(y, dy[x], size.height);
        if (!fits(left, size.width) || !fits(top, size.height)) {
            out[x] = 0.0F;
            continue;
        }
        Eight across;
        Eight column;
        evaluate(table, left.rest, across);
        evaluate(table, top.rest, column);
        float down[taps + 1];
        store(column, down);
        out[x] = dotTaps(across, down, picture + top.pixel * pitch + left.pixel, pitch);
    }
}

template <typename Inner, typename Clipped>
void addFrame(const TapTable& table, const FrameTaps& frame, const float* image, const RowRange& range,
              cv::Mat_<float>& out, Inner inner, Clipped clipped)
{
    for (int y = 0; y < frame.rows(); ++y) {
        const FrameTaps::Row& row = frame.row(y);
        if (row.count == 0 || row.first >= range.end || row.end <= range.first)
            continue;
        const bool isInner = row.first >= range.first && row.end <= range.end;
        if (isInner)
            inner(row, table, image, out[0], out.cols, range);
        else
            clipped(row, table, image, out[0], out.cols, range);
    }
}

}  // namespace

cv::Size borderedPicture(const cv::Size& frame)
{
    return {2 * frame.width + 2 * border, 2 * frame.height + 2 * border};
}

TapTable::TapTable(double sigma)
{
    // Keys' weights of the samples at -1, 0, 1 and 2 as cubics of the place between 0 and 1.
    constexpr std::array<std::array<double, 4>, 4> keys{
        {{0.0, 1.0, 0.0, 0.0}, {-0.5, 0.0, 0.5, 0.0}, {1.0, -2.5, 2.0, -0.5}, {-0.5, 1.5, -1.5, 0.5}}};
    std::array<double, 4> shares{};
    double total = 0.0;
    for (std::size_t cell = 0; cell < 4; ++cell) {
        const double left = static_cast<double>(cell) - 2.0;
        shares[cell] =
            std::erf((left + 1.0) / (std::sqrt(2.0) * sigma)) - std::erf(left / (std::sqrt(2.0) * sigma));
        total += shares[cell];
    }
    for (std::size_t power = 0; power < 4; ++power)
        for (std::size_t tap = 0; tap < static_cast<std::size_t>(taps); ++tap) {
            double sum = 0.0;
            for (std::size_t cell = 0; cell < 4; ++cell)
                if (tap >= cell && tap < cell + 4)
                    sum += shares[cell] / total * keys[power][tap - cell];
            coefficients[power][tap] = static_cast<float>(sum);
        }
}

FrameTaps::FrameTaps(const cv::Size& frame)
    : size_(frame),
      picture_(borderedPicture(frame)),
      pixels_(static_cast<std::size_t>(frame.area())),
      rows_(static_cast<std::size_t>(frame.height))
{}

void FrameTaps::setRow(int y, const float* dx, const float* dy, const float* weight, const float* value)
{
    PixelTaps* const begin = pixels_.data() + static_cast<std::ptrdiff_t>(y) * size_.width;
    PixelTaps* to = begin;
    int first = picture_.height;
    int end = 0;
    for (int phase = 0; phase < stride; ++phase)
        for (int x = phase; x < size_.width; x += stride) {
            const PixelPlace left = tapPlace(x, dx[x], picture_.width);
            const PixelPlace top = tapPlace(y, dy[x], picture_.height);
            if (!(weight[x] > 0.0F) || !fits(left, picture_.width) || !fits(top, picture_.height))
                continue;
            *to++ = {top.pixel, left.pixel, top.rest, left.rest, weight[x], value[x]};
            first = std::min(first, top.pixel);
            end = std::max(end, top.pixel + taps);
        }
    rows_[static_cast<std::size_t>(y)] = {begin, static_cast<int>(to - begin), first, end};
}

void predictRow(const TapTable& table, const cv::Mat_<float>& picture, const cv::Size& size, int y,
                const float* dx, const float* dy, int n, float* out)
{
    predictPixels(table, picture[0], picture.cols, size, y, dx, dy, n, out);
}

void addNormal(const TapTable& table, const FrameTaps& frame, const cv::Mat_<float>& image,
               const RowRange& range, cv::Mat_<float>& out)
{
    addFrame(table, frame, image[0], range, out, normalRow, normalRowClipped);
}

void addResidual(const TapTable& table, const FrameTaps& frame, const cv::Mat_<float>& image,
                 const RowRange& range, cv::Mat_<float>& out)
{
    addFrame(table, frame, image[0], range, out, residualRow, residualRowClipped);
}

void addCoverage(const TapTable& table, const FrameTaps& frame, const RowRange& range, cv::Mat_<float>& out)
{
    addFrame(table, frame, nullptr, range, out, coverageRow, coverageRowClipped);
}

}  // namespace halvor::vx
