// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrFloatFft2d.h"

#include <omp.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <vector>

#include "core/base/Kernel.h"
#include "core/base/ParallelPixels.h"
#include "core/imaging/GaussianTaps.h"
#include "core/imaging/LineFft.h"

namespace halvor::vx {

namespace {

// Columns are gathered this many at a time: one cache line of each row.
constexpr int tileColumns = 8;

// The columns of a tile, each without gaps, from rows that lie `rowLength` values apart.
void gatherColumns(const float (*rows)[2], int rowLength, int height, int columns, float (*out)[2])
{
    for (int y = 0; y < height; ++y) {
        const float(*row)[2] = rows + static_cast<std::ptrdiff_t>(y) * rowLength;
        for (int c = 0; c < columns; ++c) {
            float(&value)[2] = out[static_cast<std::ptrdiff_t>(c) * height + y];
            value[0] = row[c][0];
            value[1] = row[c][1];
        }
    }
}

void scatterColumns(const float (*in)[2], int height, int columns, float (*rows)[2], int rowLength)
{
    for (int y = 0; y < height; ++y) {
        float(*row)[2] = rows + static_cast<std::ptrdiff_t>(y) * rowLength;
        for (int c = 0; c < columns; ++c) {
            const float(&value)[2] = in[static_cast<std::ptrdiff_t>(c) * height + y];
            row[c][0] = value[0];
            row[c][1] = value[1];
        }
    }
}

VX_KERNEL void addScaled(const float* VX_RESTRICT in, float factor, float* VX_RESTRICT out, int n)
{
    for (int i = 0; i < n; ++i)
        out[i] += in[i] * factor;
}

VX_KERNEL void subtractScaled(const float* VX_RESTRICT in, float factor, float* VX_RESTRICT out, int n)
{
    for (int i = 0; i < n; ++i)
        out[i] -= in[i] * factor;
}

// Horizontal blur of one row that stops at the row's ends; the kernel is cut off there, not rescaled.
void blurRow(const float* row, int n, const float* kernel, int radius, float* out)
{
    std::fill_n(out, n, 0.0F);
    for (int i = -radius; i <= radius; ++i) {
        const int first = std::max(0, -i);
        addScaled(row + first + i, kernel[std::abs(i)], out + first, n - std::abs(i));
    }
}

}  // namespace

// What one thread works with: tables, a tile of columns before and after its transform, and a row.
struct SrFloatFft2d::ThreadContext
{
    ThreadContext(int width, int height)
        : lines(width, height),
          columnsIn_(2 * tileColumns * static_cast<std::size_t>(height)),
          columnsOut_(columnsIn_.size()),
          rowIn(static_cast<std::size_t>(width)),
          rowOut(static_cast<std::size_t>(width))
    {}

    float (*columnsIn())[2] { return reinterpret_cast<float(*)[2]>(columnsIn_.data()); }
    float (*columnsOut())[2] { return reinterpret_cast<float(*)[2]>(columnsOut_.data()); }

    LineFft lines;
    std::vector<float> columnsIn_;
    std::vector<float> columnsOut_;
    std::vector<float> rowIn;
    std::vector<float> rowOut;
};

SrFloatFft2d::SrFloatFft2d(int frameWidth, int frameHeight)
    : width_(frameWidth), height_(frameHeight), threads_(omp_get_max_threads())
{
    contexts_.reserve(static_cast<std::size_t>(threads_));
    for (int thread = 0; thread < threads_; ++thread)
        contexts_.emplace_back(width_, height_);
}

SrFloatFft2d::~SrFloatFft2d() = default;

void SrFloatFft2d::forward(const float* image, float (*spectrum)[2])
{
#pragma omp parallel num_threads(teamSize())
    {
        ThreadContext& context = contexts_[omp_get_thread_num()];
#pragma omp for schedule(static)
        for (int y = 0; y < height_; ++y)
            forwardRow(context, y, image, spectrum);
#pragma omp for schedule(static)
        for (int tile = 0; tile < tileCount(); ++tile)
            forwardTile(context, tile, spectrum);
    }
}

void SrFloatFft2d::backward(const float (*spectrum)[2], float* image)
{
#pragma omp parallel num_threads(teamSize())
    {
        ThreadContext& context = contexts_[omp_get_thread_num()];
#pragma omp for schedule(static)
        for (int tile = 0; tile < tileCount(); ++tile)
            backwardTile(context, tile, spectrum, image);
#pragma omp for schedule(static)
        for (int y = 0; y < height_; ++y)
            backwardRow(context, y, image);
    }
}

void SrFloatFft2d::backward(int worker, const float (*spectrum)[2], float* image)
{
    ThreadContext& context = contexts_[worker];
    for (int tile = 0; tile < tileCount(); ++tile)
        backwardTile(context, tile, spectrum, image);
    for (int y = 0; y < height_; ++y)
        backwardRow(context, y, image);
}

void SrFloatFft2d::gaussFft(int radius, float sigma, float (*spectrum)[2], float* kernel)
{
    requireKernelFits(radius, width_, height_);
    gaussianTaps(radius, sigma, kernel);

    ThreadContext& context = contexts_.front();
    const float scale = 1.0F / static_cast<float>(static_cast<std::int64_t>(width_) * height_);
    layCircularTaps(kernel, radius, scale, width_, context.rowIn.data(), 1);
    context.lines.rowForward(context.rowIn.data(), context.rowOut.data());
    std::fill(context.columnsIn_.begin(), context.columnsIn_.end(), 0.0F);
    layCircularTaps(kernel, radius, 1.0F, height_, context.columnsIn_.data(), 2);
    context.lines.columnForward(context.columnsIn(), context.columnsOut());

    const int half = width_ / 2 + 1;
    const std::vector<float>& row = context.rowOut;
    for (int y = 0; y < height_; ++y) {
        const float(&column)[2] = context.columnsOut()[y];
        float(*out)[2] = spectrum + static_cast<std::ptrdiff_t>(y) * half;
        for (int k = 0; k < half; ++k) {
            const bool isReal = k == 0 || k == half - 1;
            const float re = row[std::max(2 * k - 1, 0)];
            const float im = isReal ? 0.0F : row[2 * k];
            out[k][0] = column[0] * re - column[1] * im;
            out[k][1] = column[0] * im + column[1] * re;
        }
    }
}

void SrFloatFft2d::repairGaussBlur(const float* source, float* blurred, int radius, const float* kernel)
{
    repairGaussBlur(0, source, blurred, radius, kernel);
}

void SrFloatFft2d::repairGaussBlur(int worker, const float* source, float* blurred, int radius,
                                   const float* kernel)
{
    requireKernelFits(radius, width_, height_);
    unwrapRows(contexts_[worker], source, blurred, radius, kernel);
    unwrapColumns(contexts_[worker], source, blurred, radius, kernel);
    scaleBorder(blurred, radius, kernel);
}

// Never more threads than there are contexts, though the host may have raised their number since.
int SrFloatFft2d::teamSize() const
{
    const std::size_t pixels = static_cast<std::size_t>(width_) * height_;
    return pixels < parallelPixels ? 1 : std::min(threads_, omp_get_max_threads());
}

int SrFloatFft2d::tileCount() const
{
    return (width_ / 2 + tileColumns) / tileColumns;
}

void SrFloatFft2d::forwardRow(ThreadContext& context, int y, const float* image, float (*spectrum)[2]) const
{
    // Packed output, placed one float into the spectrum's row, is in place but for the two real ends.
    float* row = spectrum[static_cast<std::ptrdiff_t>(y) * (width_ / 2 + 1)];
    context.lines.rowForward(image + static_cast<std::ptrdiff_t>(y) * width_, row + 1);
    row[0] = row[1];
    row[1] = 0.0F;
    row[width_ + 1] = 0.0F;
}

void SrFloatFft2d::forwardTile(ThreadContext& context, int tile, float (*spectrum)[2]) const
{
    const int half = width_ / 2 + 1;
    const int first = tile * tileColumns;
    const int count = std::min(tileColumns, half - first);
    gatherColumns(spectrum + first, half, height_, count, context.columnsIn());
    for (int c = 0; c < count; ++c) {
        const std::ptrdiff_t column = static_cast<std::ptrdiff_t>(c) * height_;
        context.lines.columnForward(context.columnsIn() + column, context.columnsOut() + column);
    }
    scatterColumns(context.columnsOut(), height_, count, spectrum + first, half);
}

void SrFloatFft2d::backwardTile(ThreadContext& context, int tile, const float (*spectrum)[2],
                                float* image) const
{
    const int half = width_ / 2 + 1;
    const int first = tile * tileColumns;
    const int count = std::min(tileColumns, half - first);
    gatherColumns(spectrum + first, half, height_, count, context.columnsIn());
    for (int c = 0; c < count; ++c) {
        const std::ptrdiff_t column = static_cast<std::ptrdiff_t>(c) * height_;
        context.lines.columnBackward(context.columnsIn() + column, context.columnsOut() + column);
    }
    // Column k of the packed image row is the pair at 2k - 1; of the two ends only the real part is there.
    for (int y = 0; y < height_; ++y) {
        float* row = image + static_cast<std::ptrdiff_t>(y) * width_;
        for (int c = 0; c < count; ++c) {
            const float(&value)[2] = context.columnsOut()[static_cast<std::ptrdiff_t>(c) * height_ + y];
            const int k = first + c;
            row[std::max(2 * k - 1, 0)] = value[0];
            if (k > 0 && k < half - 1)
                row[2 * k] = value[1];
        }
    }
}

void SrFloatFft2d::backwardRow(ThreadContext& context, int y, float* image) const
{
    float* row = image + static_cast<std::ptrdiff_t>(y) * width_;
    std::copy_n(row, width_, context.rowIn.data());
    context.lines.rowBackward(context.rowIn.data(), row);
}

// Takes out what the rows at the bottom wrapped into those at the top, and the other way round.
void SrFloatFft2d::unwrapRows(ThreadContext& context, const float* source, float* blurred, int radius,
                              const float* kernel) const
{
    float* line = context.rowOut.data();
    const auto rowOf = [this](auto* image, int y) { return image + static_cast<std::ptrdiff_t>(y) * width_; };
    for (int t = 0; t < radius; ++t) {
        blurRow(rowOf(source, height_ - radius + t), width_, kernel, radius, line);
        for (int i = 0; i <= t; ++i)
            subtractScaled(line, kernel[radius - t + i], rowOf(blurred, i), width_);
    }
    for (int t = 0; t < radius; ++t) {
        blurRow(rowOf(source, t), width_, kernel, radius, line);
        for (int i = 0; i < radius - t; ++i)
            subtractScaled(line, kernel[radius - i], rowOf(blurred, height_ - radius + t + i), width_);
    }
}

// The same for the columns at the sides, row by row. Their vertical blur does wrap around: together with the
// cut-off blur of the rows this takes out each wrapped corner once.
void SrFloatFft2d::unwrapColumns(ThreadContext& context, const float* source, float* blurred, int radius,
                                 const float* kernel) const
{
    float* left = context.rowIn.data();
    float* right = context.rowOut.data();
    for (int y = 0; y < height_; ++y) {
        std::fill_n(left, radius, 0.0F);
        std::fill_n(right, radius, 0.0F);
        for (int j = -radius; j <= radius; ++j) {
            const float* row = source + static_cast<std::ptrdiff_t>((y + j + height_) % height_) * width_;
            for (int t = 0; t < radius; ++t) {
                left[t] += row[t] * kernel[std::abs(j)];
                right[t] += row[width_ - radius + t] * kernel[std::abs(j)];
            }
        }
        float* out = blurred + static_cast<std::ptrdiff_t>(y) * width_;
        for (int t = 0; t < radius; ++t) {
            for (int i = 0; i <= t; ++i)
                out[i] -= right[t] * kernel[radius - t + i];
        }
        for (int t = 0; t < radius; ++t) {
            for (int i = 0; i < radius - t; ++i)
                out[width_ - radius + t + i] -= left[t] * kernel[radius - i];
        }
    }
}

// Divides by the part of the kernel that lies inside the frame, first of the rows, then of the columns at
// each distance from the edge.
void SrFloatFft2d::scaleBorder(float* blurred, int radius, const float* kernel) const
{
    const auto scaleRow = [&](int y, float factor) {
        float* row = blurred + static_cast<std::ptrdiff_t>(y) * width_;
        for (int x = 0; x < width_; ++x)
            row[x] *= factor;
    };
    const auto scaleColumn = [&](int x, float factor) {
        for (int y = 0; y < height_; ++y)
            blurred[static_cast<std::ptrdiff_t>(y) * width_ + x] *= factor;
    };
    float mass = 1.0F;
    for (int t = 0; t < radius; ++t) {
        mass -= kernel[radius - t];
        const float factor = 1.0F / mass;
        scaleRow(radius - 1 - t, factor);
        scaleRow(height_ - radius + t, factor);
        scaleColumn(radius - 1 - t, factor);
        scaleColumn(width_ - radius + t, factor);
    }
}

}  // namespace halvor::vx
