// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrFloatConvolution.h"

#include <algorithm>
#include <cstddef>

#include "core/base/Exception.h"
#include "core/base/Kernel.h"
#include "core/diagnostics/DebugLevels.h"
#include "core/diagnostics/DebugSingleton.h"
#include "core/imaging/MeanFilter.h"

namespace halvor::vx {

namespace {

// Rows of the large image per row of a frame. Part of the design, whatever the factor between columns.
constexpr int verticalStride = 2;

// One tap of the vertical scatter: a row of the frame feeds one row of the intermediate.
VX_KERNEL void scatterRow(const float* VX_RESTRICT sample, const std::int8_t* VX_RESTRICT mask, float tap,
                          float* VX_RESTRICT out, int n)
{
    for (int c = 0; c < n; ++c)
        out[c] += static_cast<float>(mask[c]) * sample[c] * tap;
}

// All taps of the horizontal scatter, in ascending order.
VX_KERNEL void spreadRow(const float* VX_RESTRICT in, const float* VX_RESTRICT kernel, int taps, int stride,
                         float* VX_RESTRICT out, int n)
{
    for (int k = 0; k < taps; ++k) {
        const float tap = kernel[k];
        for (int c = 0; c < n; ++c)
            out[static_cast<std::ptrdiff_t>(c) * stride + k] += in[c] * tap;
    }
}

// All taps of the horizontal gather, in ascending order.
VX_KERNEL void collectRow(const float* VX_RESTRICT in, const float* VX_RESTRICT kernel, int taps, int stride,
                          float* VX_RESTRICT out, int n)
{
    for (int k = 0; k < taps; ++k) {
        const float tap = kernel[k];
        for (int c = 0; c < n; ++c)
            out[c] += in[static_cast<std::ptrdiff_t>(c) * stride + k] * tap;
    }
}

// One tap of the vertical gather.
VX_KERNEL void gatherRow(const float* VX_RESTRICT in, float tap, float* VX_RESTRICT out, int n)
{
    for (int c = 0; c < n; ++c)
        out[c] += in[c] * tap;
}

const std::int8_t* signedBytes(const char* mask)
{
    return reinterpret_cast<const std::int8_t*>(mask);
}

}  // namespace

SrFloatConvolution::SrFloatConvolution(int resultWidth, int resultHeight, int tapsX, int tapsY,
                                       float resolutionFactor)
    : DebugChannel("SrFloat"),
      width_(resultWidth),
      height_(resultHeight),
      kernelWidth_(tapsX),
      kernelHeight_(tapsY),
      fullWidth_(resultWidth + tapsX - 1),
      fullHeight_(resultHeight + tapsY - 1),
      factor_(resolutionFactor),
      tmpMat_(fullHeight_, width_),
      tmp_(tmpMat_.ptr<float>())
{
    DebugSingleton::getInstance("").addDebugChannel(this);
}

SrFloatConvolution::~SrFloatConvolution()
{
    DebugSingleton::getInstance("").removeDebugChannel(this);
}

SrFloatConvolution::FrameGrid SrFloatConvolution::frameGrid() const
{
    if (!(factor_ >= static_cast<float>(verticalStride)))
        throw Exception("Resolution factors below 2 are not supported.",
                        VX_WHERE("halvor::vx::SrFloatConvolution::frameGrid"));
    return {static_cast<int>(static_cast<float>(width_) / factor_),
            static_cast<int>(static_cast<float>(height_) / factor_), static_cast<int>(factor_)};
}

void SrFloatConvolution::fullConvFromSparse(const float* sparse, const float* kernelX, const float* kernelY,
                                            const char* mask, float* full)
{
    send("start SrFloat_Convolution.fullConvFromSparse", DebugLevel::step);
    const FrameGrid grid = frameGrid();
    const int lowWidth = grid.lowWidth;
    const int lowHeight = grid.lowHeight;
#pragma omp parallel for schedule(static)
    for (int y = 0; y < fullHeight_; ++y) {
        float* row = tmp_ + static_cast<std::ptrdiff_t>(y) * lowWidth;
        std::fill_n(row, lowWidth, 0.0F);
        for (int k = y % verticalStride; k < kernelHeight_; k += verticalStride) {
            const int r = (y - k) / verticalStride;
            if (y < k || r >= lowHeight)
                continue;
            const std::ptrdiff_t start = static_cast<std::ptrdiff_t>(r) * lowWidth;
            scatterRow(sparse + start, signedBytes(mask) + start, kernelY[k], row, lowWidth);
        }
        float* fullRow = full + static_cast<std::ptrdiff_t>(y) * fullWidth_;
        std::fill_n(fullRow, fullWidth_, 0.0F);
        spreadRow(row, kernelX, kernelWidth_, grid.stride, fullRow, lowWidth);
    }
    send("end SrFloat_Convolution.fullConvFromSparse", DebugLevel::step);
}

void SrFloatConvolution::validCorrToSparse(const float* full, const float* kernelX, const float* kernelY,
                                           float* sparse)
{
    send("start SrFloat_Convolution.validCorrToSparse", DebugLevel::step);
    const FrameGrid grid = frameGrid();
    const int lowWidth = grid.lowWidth;
    const int lowHeight = grid.lowHeight;
#pragma omp parallel
    {
#pragma omp for schedule(static)
        for (int y = 0; y < fullHeight_; ++y) {
            float* row = tmp_ + static_cast<std::ptrdiff_t>(y) * lowWidth;
            std::fill_n(row, lowWidth, 0.0F);
            collectRow(full + static_cast<std::ptrdiff_t>(y) * fullWidth_, kernelX, kernelWidth_, grid.stride,
                       row, lowWidth);
        }
#pragma omp for schedule(static)
        for (int r = 0; r < lowHeight; ++r) {
            float* row = sparse + static_cast<std::ptrdiff_t>(r) * lowWidth;
            std::fill_n(row, lowWidth, 0.0F);
            for (int k = 0; k < kernelHeight_; ++k)
                gatherRow(tmp_ + static_cast<std::ptrdiff_t>(verticalStride * r + k) * lowWidth, kernelY[k],
                          row, lowWidth);
        }
    }
    send("end SrFloat_Convolution.validCorrToSparse", DebugLevel::step);
}

void SrFloatConvolution::blurImageMeanFilter(const cv::Mat_<float>& src, int radius, cv::Mat_<float>& dst)
{
    meanFilter(src, radius, dst);
}

}  // namespace halvor::vx
