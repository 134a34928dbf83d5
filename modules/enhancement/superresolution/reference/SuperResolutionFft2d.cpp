// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/reference/SuperResolutionFft2d.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <ostream>

#include "core/diagnostics/OutputSink.h"
#include "core/imaging/GaussianTaps.h"
#include "core/imaging/LineFft.h"

namespace halvor::vx {

namespace {

std::ptrdiff_t at(int row, int column, int rowLength)
{
    return static_cast<std::ptrdiff_t>(row) * rowLength + column;
}

float (*complexView(std::vector<float>& line))[2]
{
    return reinterpret_cast<float(*)[2]>(line.data());
}

}  // namespace

SuperResolutionFft2d::SuperResolutionFft2d(int frameWidth, int frameHeight)
    : width_(frameWidth),
      height_(frameHeight),
      half_(width_ / 2 + 1),
      lines_(std::make_unique<LineFft>(width_, height_)),
      lineIn_(static_cast<std::size_t>(std::max(width_, 2 * height_))),
      lineOut_(lineIn_.size()),
      extended_(2 * static_cast<std::size_t>(height_))
{}

SuperResolutionFft2d::~SuperResolutionFft2d() = default;

void SuperResolutionFft2d::forward(const float* image, float (*spectrum)[2])
{
    for (int y = 0; y < height_; ++y) {
        lines_->rowForward(image + at(y, 0, width_), lineOut_.data());
        float(*row)[2] = spectrum + at(y, 0, half_);
        row[0][0] = lineOut_.front();
        row[0][1] = 0.0F;
        for (int k = 1; k < half_ - 1; ++k) {
            row[k][0] = lineOut_[2 * k - 1];
            row[k][1] = lineOut_[2 * k];
        }
        row[half_ - 1][0] = lineOut_[width_ - 1];
        row[half_ - 1][1] = 0.0F;
    }
    for (int k = 0; k < half_; ++k) {
        gatherColumn(spectrum, k);
        lines_->columnForward(complexView(lineIn_), complexView(lineOut_));
        for (int y = 0; y < height_; ++y) {
            spectrum[at(y, k, half_)][0] = complexView(lineOut_)[y][0];
            spectrum[at(y, k, half_)][1] = complexView(lineOut_)[y][1];
        }
    }
}

void SuperResolutionFft2d::backward(const float (*spectrum)[2], float* image)
{
    for (int k = 0; k < half_; ++k) {
        gatherColumn(spectrum, k);
        lines_->columnBackward(complexView(lineIn_), complexView(lineOut_));
        for (int y = 0; y < height_; ++y) {
            const float(&value)[2] = complexView(lineOut_)[y];
            if (k == 0) {
                image[at(y, 0, width_)] = value[0];
            } else if (k == half_ - 1) {
                image[at(y, width_ - 1, width_)] = value[0];
            } else {
                image[at(y, 2 * k - 1, width_)] = value[0];
                image[at(y, 2 * k, width_)] = value[1];
            }
        }
    }
    for (int y = 0; y < height_; ++y) {
        float* row = image + at(y, 0, width_);
        std::copy_n(row, width_, lineIn_.data());
        lines_->rowBackward(lineIn_.data(), row);
    }
}

void SuperResolutionFft2d::gaussFft(int radius, float sigma, float (*spectrum)[2], float* kernel)
{
    requireKernelFits(radius, width_, height_);
    gaussianTaps(radius, sigma, kernel);
    for (int i = 0; i <= radius; ++i)
        standardOutput() << kernel[i] << std::endl;

    std::fill(lineIn_.begin(), lineIn_.end(), 0.0F);
    layCircularTaps(kernel, radius, 1.0F, height_, lineIn_.data(), 2);
    lines_->columnForward(complexView(lineIn_), complexView(lineOut_));
    for (int y = 0; y < height_; ++y) {
        for (int k = 0; k < half_; ++k) {
            spectrum[at(y, k, half_)][0] = complexView(lineOut_)[y][0];
            spectrum[at(y, k, half_)][1] = complexView(lineOut_)[y][1];
        }
    }

    const float scale = 1.0F / static_cast<float>(static_cast<std::int64_t>(width_) * height_);
    layCircularTaps(kernel, radius, scale, width_, lineIn_.data(), 1);
    lines_->rowForward(lineIn_.data(), lineOut_.data());
    for (int y = 0; y < height_; ++y) {
        for (int k = 0; k < half_; ++k) {
            const bool isEnd = k == 0 || k == half_ - 1;
            const float a = lineOut_[k == 0 ? 0 : 2 * k - 1];
            const float b = isEnd ? 0.0F : lineOut_[2 * k];
            float(&value)[2] = spectrum[at(y, k, half_)];
            const float c = value[0];
            const float d = value[1];
            value[0] = c * a - d * b;
            value[1] = c * b + d * a;
        }
    }
}

void SuperResolutionFft2d::repairGaussBlur(const float* source, float* blurred, int radius,
                                           const float* kernel)
{
    requireKernelFits(radius, width_, height_);
    for (int t = 0; t < radius; ++t) {
        blurRow(source, height_ - radius + t, radius, kernel);
        for (int i = 0; i <= t; ++i)
            subtractFromRow(blurred, i, kernel[radius - t + i]);
    }
    for (int t = 0; t < radius; ++t) {
        blurRow(source, t, radius, kernel);
        for (int i = 0; i <= radius - t - 1; ++i)
            subtractFromRow(blurred, height_ - radius + t + i, kernel[radius - i]);
    }
    for (int t = 0; t < radius; ++t) {
        blurColumn(source, width_ - radius + t, radius, kernel);
        for (int i = 0; i <= t; ++i)
            subtractFromColumn(blurred, i, kernel[radius - t + i]);
    }
    for (int t = 0; t < radius; ++t) {
        blurColumn(source, t, radius, kernel);
        for (int i = 0; i <= radius - t - 1; ++i)
            subtractFromColumn(blurred, width_ - radius + t + i, kernel[radius - i]);
    }
    float mass = 1.0F;
    for (int t = 0; t < radius; ++t) {
        mass -= kernel[radius - t];
        const float factor = 1.0F / mass;
        scaleRow(blurred, radius - 1 - t, factor);
        scaleRow(blurred, height_ - radius + t, factor);
        scaleColumn(blurred, radius - 1 - t, factor);
        scaleColumn(blurred, width_ - radius + t, factor);
    }
}

void SuperResolutionFft2d::gatherColumn(const float (*spectrum)[2], int column)
{
    for (int y = 0; y < height_; ++y) {
        complexView(lineIn_)[y][0] = spectrum[at(y, column, half_)][0];
        complexView(lineIn_)[y][1] = spectrum[at(y, column, half_)][1];
    }
}

// Blurs a row into lineOut_; the kernel stops at the row's ends.
void SuperResolutionFft2d::blurRow(const float* source, int row, int radius, const float* kernel)
{
    const float* in = source + at(row, 0, width_);
    for (int x = 0; x < width_; ++x) {
        float sum = 0.0F;
        for (int i = std::max(-radius, -x); i <= std::min(radius, width_ - 1 - x); ++i)
            sum += in[x + i] * kernel[std::abs(i)];
        lineOut_[x] = sum;
    }
}

// Blurs a column into lineOut_; the column continues at its other end.
void SuperResolutionFft2d::blurColumn(const float* source, int column, int radius, const float* kernel)
{
    const int extendedLength = height_ + 2 * radius;
    for (int i = 0; i < extendedLength; ++i)
        extended_[i] = source[at((i - radius + height_) % height_, column, width_)];
    for (int y = 0; y < height_; ++y) {
        float sum = 0.0F;
        for (int i = -radius; i <= radius; ++i)
            sum += extended_[y + radius + i] * kernel[std::abs(i)];
        lineOut_[y] = sum;
    }
}

void SuperResolutionFft2d::subtractFromRow(float* blurred, int row, float factor) const
{
    for (int x = 0; x < width_; ++x)
        blurred[at(row, x, width_)] -= lineOut_[x] * factor;
}

void SuperResolutionFft2d::subtractFromColumn(float* blurred, int column, float factor) const
{
    for (int y = 0; y < height_; ++y)
        blurred[at(y, column, width_)] -= lineOut_[y] * factor;
}

void SuperResolutionFft2d::scaleRow(float* blurred, int row, float factor) const
{
    for (int x = 0; x < width_; ++x)
        blurred[at(row, x, width_)] *= factor;
}

void SuperResolutionFft2d::scaleColumn(float* blurred, int column, float factor) const
{
    for (int y = 0; y < height_; ++y)
        blurred[at(y, column, width_)] *= factor;
}

}  // namespace halvor::vx
