// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/reference/SuperResolutionConvolution.h"

#include <algorithm>
#include <cstddef>

#include "core/diagnostics/DebugLevels.h"

namespace halvor::vx {

namespace {

// One line of a box filter with a running sum; the elements of both lines lie `step` apart.
void boxFilterLine(const float* in, int n, std::ptrdiff_t step, int radius, float* out)
{
    const float inv = 1.0F / (static_cast<float>(radius) * 2.0F + 1.0F);
    float sum = 0.0F;
    for (int i = 0; i < radius; ++i)
        sum += in[i * step];
    int count = radius + 1;
    for (int i = 0; i < radius; ++i) {
        sum += in[(i + radius) * step];
        out[i * step] = sum / static_cast<float>(count);
        ++count;
    }
    for (int i = radius; i < n - radius; ++i) {
        sum += in[(i + radius) * step];
        out[i * step] = sum * inv;
        sum -= in[(i - radius) * step];
    }
    for (int i = n - radius; i < n; ++i) {
        --count;
        out[i * step] = sum / static_cast<float>(count);
        sum -= in[(i - radius) * step];
    }
}

}  // namespace

SuperResolutionConvolution::SuperResolutionConvolution(int resultWidth, int resultHeight, int tapsX,
                                                       int tapsY, float resolutionFactor)
    : width_(resultWidth),
      height_(resultHeight),
      kernelWidth_(tapsX),
      kernelHeight_(tapsY),
      fullWidth_(width_ + kernelWidth_ - 1),
      fullHeight_(height_ + kernelHeight_ - 1),
      factor_(resolutionFactor),
      tmp_(static_cast<std::size_t>(width_) * fullHeight_),
      channel_("SR")
{}

void SuperResolutionConvolution::fullConvFromSparse(const float* sparse, const float* kernelX,
                                                    const float* kernelY, const char* mask, float* full)
{
    channel_.send("start SuperResolutionConvolution.fullConvFromSparse", DebugLevel::detail);
    const auto [lowWidth, lowHeight, stride, rowJump] = sampling();

    std::fill_n(tmp_.begin(), static_cast<std::ptrdiff_t>(fullHeight_) * lowWidth, 0.0F);
    for (int k = 0; k < kernelHeight_; ++k) {
        std::ptrdiff_t sample = 0;
        std::ptrdiff_t target = static_cast<std::ptrdiff_t>(k) * lowWidth;
        for (int r = 0; r < lowHeight; ++r) {
            for (int c = 0; c < lowWidth; ++c, ++sample, ++target)
                tmp_[target] += static_cast<float>(mask[sample]) * sparse[sample] * kernelY[k];
            target += rowJump;
        }
    }

    std::fill_n(full, static_cast<std::ptrdiff_t>(fullWidth_) * fullHeight_, 0.0F);
    for (int k = 0; k < kernelWidth_; ++k) {
        std::ptrdiff_t source = 0;
        for (int r = 0; r < fullHeight_; ++r) {
            float* row = full + static_cast<std::ptrdiff_t>(r) * fullWidth_ + k;
            for (int c = 0; c < lowWidth; ++c, ++source)
                row[c * stride] += tmp_[source] * kernelX[k];
        }
    }
    channel_.send("end SuperResolutionConvolution.fullConvFromSparse", DebugLevel::detail);
}

void SuperResolutionConvolution::validCorrToSparse(const float* full, const float* kernelX,
                                                   const float* kernelY, float* sparse)
{
    channel_.send("start SuperResolutionConvolution.validCorrToSparse", DebugLevel::detail);
    const auto [lowWidth, lowHeight, stride, rowJump] = sampling();

    std::fill_n(tmp_.begin(), static_cast<std::ptrdiff_t>(fullHeight_) * lowWidth, 0.0F);
    for (int k = 0; k < kernelWidth_; ++k) {
        std::ptrdiff_t target = 0;
        for (int r = 0; r < fullHeight_; ++r) {
            const float* row = full + static_cast<std::ptrdiff_t>(r) * fullWidth_ + k;
            for (int c = 0; c < lowWidth; ++c, ++target)
                tmp_[target] += row[c * stride] * kernelX[k];
        }
    }

    std::fill_n(sparse, static_cast<std::ptrdiff_t>(lowWidth) * lowHeight, 0.0F);
    for (int k = 0; k < kernelHeight_; ++k) {
        std::ptrdiff_t sample = 0;
        std::ptrdiff_t source = static_cast<std::ptrdiff_t>(k) * lowWidth;
        for (int r = 0; r < lowHeight; ++r) {
            for (int c = 0; c < lowWidth; ++c, ++sample, ++source)
                sparse[sample] += tmp_[source] * kernelY[k];
            source += rowJump;
        }
    }
    channel_.send("end SuperResolutionConvolution.validCorrToSparse", DebugLevel::detail);
}

void SuperResolutionConvolution::sameConvOnes(const float* in, int radius, float* out)
{
    for (int y = 0; y < height_; ++y) {
        const std::ptrdiff_t row = static_cast<std::ptrdiff_t>(y) * width_;
        boxFilterLine(in + row, width_, 1, radius, tmp_.data() + row);
    }
    for (int x = 0; x < width_; ++x)
        boxFilterLine(tmp_.data() + x, height_, width_, radius, out + x);
}

std::vector<DebugChannel*> SuperResolutionConvolution::getInternalDebugChannelObjects()
{
    return {&channel_};
}

SuperResolutionConvolution::Sampling SuperResolutionConvolution::sampling() const
{
    const int lowWidth = static_cast<int>(static_cast<float>(width_) / factor_);
    const int lowHeight = static_cast<int>(static_cast<float>(height_) / factor_);
    const int rowJump = static_cast<int>((factor_ - 1.0F) * static_cast<float>(lowWidth));
    return {lowWidth, lowHeight, static_cast<int>(factor_), rowJump};
}

}  // namespace halvor::vx
