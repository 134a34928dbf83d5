#include "enhancement/superresolution/SrFloatConvolution.h"

#include <algorithm>
#include <cstddef>

#include "core/base/Exception.h"
#include "core/base/Kernel.h"
#include "core/diagnostics/DebugSingleton.h"
#include "core/imaging/MeanFilter.h"

namespace halvor::vx {

namespace {

// Rows of the large image per row of a frame. Part of the design, whatever the factor between columns.
constexpr int verticalStride = 2;
constexpr int debugLevel = 11;

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
      width(resultWidth),
      height(resultHeight),
      kernelWidth(tapsX),
      kernelHeight(tapsY),
      fullWidth(resultWidth + tapsX - 1),
      fullHeight(resultHeight + tapsY - 1),
      factor(resolutionFactor),
      tmpMat(fullHeight, width),
      tmp(tmpMat.ptr<float>())
{
    DebugSingleton::getInstance("").addDebugChannel(this);
}

SrFloatConvolution::~SrFloatConvolution()
{
    DebugSingleton::getInstance("").removeDebugChannel(this);
}

SrFloatConvolution::FrameGrid SrFloatConvolution::frameGrid() const
{
    if (!(factor >= static_cast<float>(verticalStride)))
        throw Exception("Resolution factors below 2 are not supported.",
                        VX_WHERE("halvor::vx::SrFloatConvolution::frameGrid"));
    return {static_cast<int>(static_cast<float>(width) / factor),
            static_cast<int>(static_cast<float>(height) / factor), static_cast<int>(factor)};
}

void SrFloatConvolution::fullConvFromSparse(const float* sparse, const float* kernelX, const float* kernelY,
                                            const char* mask, float* full)
{
    send("start SrFloat_Convolution.fullConvFromSparse", debugLevel);
    const FrameGrid grid = frameGrid();
    const int lowWidth = grid.lowWidth;
    const int lowHeight = grid.lowHeight;
#pragma omp parallel for schedule(static)
    for (int y = 0; y < fullHeight; ++y) {
        float* row = tmp + static_cast<std::ptrdiff_t>(y) * lowWidth;
        std::fill_n(row, lowWidth, 0.0F);
        for (int k = y % verticalStride; k < kernelHeight; k += verticalStride) {
            const int r = (y - k) / verticalStride;
            if (y < k || r >= lowHeight)
                continue;
            const std::ptrdiff_t start = static_cast<std::ptrdiff_t>(r) * lowWidth;
            scatterRow(sparse + start, signedBytes(mask) + start, kernelY[k], row, lowWidth);
        }
        float* fullRow = full + static_cast<std::ptrdiff_t>(y) * fullWidth;
        std::fill_n(fullRow, fullWidth, 0.0F);
        spreadRow(row, kernelX, kernelWidth, grid.stride, fullRow, lowWidth);
    }
    send("end SrFloat_Convolution.fullConvFromSparse", debugLevel);
}

void SrFloatConvolution::validCorrToSparse(const float* full, const float* kernelX, const float* kernelY,
                                           float* sparse)
{
    send("start SrFloat_Convolution.validCorrToSparse", debugLevel);
    const FrameGrid grid = frameGrid();
    const int lowWidth = grid.lowWidth;
    const int lowHeight = grid.lowHeight;
#pragma omp parallel
    {
#pragma omp for schedule(static)
        for (int y = 0; y < fullHeight; ++y) {
            float* row = tmp + static_cast<std::ptrdiff_t>(y) * lowWidth;
            std::fill_n(row, lowWidth, 0.0F);
            collectRow(full + static_cast<std::ptrdiff_t>(y) * fullWidth, kernelX, kernelWidth, grid.stride,
                       row, lowWidth);
        }
#pragma omp for schedule(static)
        for (int r = 0; r < lowHeight; ++r) {
            float* row = sparse + static_cast<std::ptrdiff_t>(r) * lowWidth;
            std::fill_n(row, lowWidth, 0.0F);
            for (int k = 0; k < kernelHeight; ++k)
                gatherRow(tmp + static_cast<std::ptrdiff_t>(verticalStride * r + k) * lowWidth, kernelY[k],
                          row, lowWidth);
        }
    }
    send("end SrFloat_Convolution.validCorrToSparse", debugLevel);
}

void SrFloatConvolution::blurImageMeanFilter(const cv::Mat_<float>& src, int radius, cv::Mat_<float>& dst)
{
    meanFilter(src, radius, dst);
}

}  // namespace halvor::vx
