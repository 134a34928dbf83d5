#include "enhancement/superresolution/reference/SuperResolutionConvolution.h"

#include <algorithm>
#include <cstddef>

namespace halvor::vx {

namespace {

constexpr int debugLevel = 12;

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
    : width(resultWidth),
      height(resultHeight),
      kernelWidth(tapsX),
      kernelHeight(tapsY),
      fullWidth(width + kernelWidth - 1),
      fullHeight(height + kernelHeight - 1),
      factor(resolutionFactor),
      tmp(static_cast<std::size_t>(width) * fullHeight),
      channel_("SR")
{}

void SuperResolutionConvolution::fullConvFromSparse(const float* sparse, const float* kernelX,
                                                    const float* kernelY, const char* mask, float* full)
{
    channel_.send("start SuperResolutionConvolution.fullConvFromSparse", debugLevel);
    const auto [lowWidth, lowHeight, stride, rowJump] = sampling();

    std::fill_n(tmp.begin(), static_cast<std::ptrdiff_t>(fullHeight) * lowWidth, 0.0F);
    for (int k = 0; k < kernelHeight; ++k) {
        std::ptrdiff_t sample = 0;
        std::ptrdiff_t target = static_cast<std::ptrdiff_t>(k) * lowWidth;
        for (int r = 0; r < lowHeight; ++r) {
            for (int c = 0; c < lowWidth; ++c, ++sample, ++target)
                tmp[target] += static_cast<float>(mask[sample]) * sparse[sample] * kernelY[k];
            target += rowJump;
        }
    }

    std::fill_n(full, static_cast<std::ptrdiff_t>(fullWidth) * fullHeight, 0.0F);
    for (int k = 0; k < kernelWidth; ++k) {
        std::ptrdiff_t source = 0;
        for (int r = 0; r < fullHeight; ++r) {
            float* row = full + static_cast<std::ptrdiff_t>(r) * fullWidth + k;
            for (int c = 0; c < lowWidth; ++c, ++source)
                row[c * stride] += tmp[source] * kernelX[k];
        }
    }
    channel_.send("end SuperResolutionConvolution.fullConvFromSparse", debugLevel);
}

void SuperResolutionConvolution::validCorrToSparse(const float* full, const float* kernelX,
                                                   const float* kernelY, float* sparse)
{
    channel_.send("start SuperResolutionConvolution.validCorrToSparse", debugLevel);
    const auto [lowWidth, lowHeight, stride, rowJump] = sampling();

    std::fill_n(tmp.begin(), static_cast<std::ptrdiff_t>(fullHeight) * lowWidth, 0.0F);
    for (int k = 0; k < kernelWidth; ++k) {
        std::ptrdiff_t target = 0;
        for (int r = 0; r < fullHeight; ++r) {
            const float* row = full + static_cast<std::ptrdiff_t>(r) * fullWidth + k;
            for (int c = 0; c < lowWidth; ++c, ++target)
                tmp[target] += row[c * stride] * kernelX[k];
        }
    }

    std::fill_n(sparse, static_cast<std::ptrdiff_t>(lowWidth) * lowHeight, 0.0F);
    for (int k = 0; k < kernelHeight; ++k) {
        std::ptrdiff_t sample = 0;
        std::ptrdiff_t source = static_cast<std::ptrdiff_t>(k) * lowWidth;
        for (int r = 0; r < lowHeight; ++r) {
            for (int c = 0; c < lowWidth; ++c, ++sample, ++source)
                sparse[sample] += tmp[source] * kernelY[k];
            source += rowJump;
        }
    }
    channel_.send("end SuperResolutionConvolution.validCorrToSparse", debugLevel);
}

void SuperResolutionConvolution::sameConvOnes(const float* in, int radius, float* out)
{
    for (int y = 0; y < height; ++y) {
        const std::ptrdiff_t row = static_cast<std::ptrdiff_t>(y) * width;
        boxFilterLine(in + row, width, 1, radius, tmp.data() + row);
    }
    for (int x = 0; x < width; ++x)
        boxFilterLine(tmp.data() + x, height, width, radius, out + x);
}

std::vector<DebugChannel*> SuperResolutionConvolution::getInternalDebugChannelObjects()
{
    return {&channel_};
}

SuperResolutionConvolution::Sampling SuperResolutionConvolution::sampling() const
{
    const int lowWidth = static_cast<int>(static_cast<float>(width) / factor);
    const int lowHeight = static_cast<int>(static_cast<float>(height) / factor);
    const int rowJump = static_cast<int>((factor - 1.0F) * static_cast<float>(lowWidth));
    return {lowWidth, lowHeight, static_cast<int>(factor), rowJump};
}

}  // namespace halvor::vx
