// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <string>

#include "core/base/Exception.h"
#include "core/base/Kernel.h"
#include "core/base/ParallelPixels.h"
#include "core/base/WrapArithmetic.h"
#include "core/diagnostics/OutputSink.h"
#include "enhancement/arithmetic/HistogramScale.h"
#include "enhancement/arithmetic/PixelConversion.h"
#include "enhancement/histogram.h"

using namespace halvor::vx;

namespace {

constexpr int displayLevels = 256;

// Linear interpolation between the curve's values at both edges of the bin.
inline int interpolate(const HistogramScale& scale, const int* gainTable, int position)
{
    const int lower = gainTable[scale.bin(position)];
    const int upper = gainTable[scale.bin(position) + 1];
    const int rise = wrapMul(scale.frac(position), wrapSub(upper, lower));
    const int one = 1 << scale.fracBits;
    const int value = wrapAdd(one >> 1, wrapAdd(wrapMul(lower, one), rise)) >> scale.fracBits;
    return std::min(std::max(value, 0), 32766);
}

VX_KERNEL void interpolateRun(const HistogramScale& scale, const int* VX_RESTRICT gainTable,
                              const int* VX_RESTRICT position, int* VX_RESTRICT out, int n)
{
    const HistogramScale s = scale;
    for (int i = 0; i < n; ++i)
        out[i] = interpolate(s, gainTable, position[i]);
}

void tellGain(int gain)
{
    OutputSink* sink = OutputSink::current();
    if (sink == nullptr)
        std::printf("pgain%d\n", gain);
    else if (sink->wants(OutputSink::Kind::output))
        sink->write(OutputSink::Kind::output, "output", "pgain" + std::to_string(gain));
}

}  // namespace

void Histogram::ProcessFrame(int frame, ChainMatrix& in, ChainMatrix& out)
{
    tellGain(pgain_);
    ProcessFrame(frame, in.row(0), out.row(0));
}

void Histogram::ProcessFrame(int /*frame*/, const int* in, int* out)
{
    if (isOff()) {
        for (int i = 0; i < pixelCount_; ++i)
            out[i] = ProcessPixel(in[i]);
        return;
    }
    // Of several bins that reach one level the pixel that comes last decides about the level's slope.
    std::array<int, displayLevels> binOfLevel{};
    binOfLevel.fill(-1);
    const HistogramScale scale = currentScale();
    int position[chunkSize];
    for (int start = 0; start < pixelCount_; start += chunkSize) {
        const int n = std::min(chunkSize, pixelCount_ - start);
        int* mapped = out + start;
        scaleSamples(scale, in + start, position, n);
        interpolateRun(scale, gainTable_.data(), position, mapped, n);
        for (int i = 0; i < n; ++i)
            binOfLevel[static_cast<std::size_t>(mapped[i] >> 7)] = scale.bin(position[i]);
    }
    for (std::size_t level = 0; level < binOfLevel.size(); ++level)
        if (binOfLevel[level] >= 0)
            localGain_[level] = localSlope(binOfLevel[level]);
}

int Histogram::ProcessPixel(int pixel)
{
    if (isOff()) {
        localGain_[displayLevel(pixel)] = 1.0;
        return pixel;
    }
    const HistogramScale scale = currentScale();
    const int position = scale.position(pixel);
    const int mapped = interpolate(scale, gainTable_.data(), position);
    localGain_[static_cast<std::size_t>(mapped >> 7)] = localSlope(scale.bin(position));
    return mapped;
}

double Histogram::LocalGain(int pixel) const
{
    return localGain_[displayLevel(pixel)];
}

std::size_t Histogram::displayLevel(int pixel) const
{
    return static_cast<std::size_t>(std::clamp(pixel >> 7, 0, (1 << legalWidth()) - 1));
}

// Mean rise of the curve over eight bins, as output per input level.
double Histogram::localSlope(int bin) const
{
    const int below = gainTable_[static_cast<std::size_t>(std::max(0, bin - 4))];
    const int above = gainTable_[static_cast<std::size_t>(std::min(1 << legalWidth(), bin + 4))];
    const int slope = std::max(8, wrapSub(above, below));
    return wrapMul(pgain_, slope) / 8.0 / (1 << (23 - legalWidth()));
}

template <typename T>
void Histogram::processFrame(const cv::Mat_<T>& src, cv::Mat_<T>& dst) const
{
    if (src.rows != rows_ || src.cols != cols_)
        throw Exception("input data size does not correspond to histogram class configuration!",
                        VX_WHERE("Histogram::processFrame"));
    dst.create(src.size());
    if (isOff()) {
        src.copyTo(dst);
        return;
    }
    const HistogramScale scale = currentScale();
#pragma omp parallel for schedule(static) if (src.total() >= lightPassPixels)
    for (int y = 0; y < rows_; ++y) {
        int sample[chunkSize];
        int position[chunkSize];
        for (int start = 0; start < cols_; start += chunkSize) {
            const int n = std::min(chunkSize, cols_ - start);
            const T* in = src[y] + start;
            std::transform(in, in + n, sample, toChainSample<T>);
            scaleSamples(scale, sample, position, n);
            interpolateRun(scale, gainTable_.data(), position, sample, n);
            std::transform(sample, sample + n, dst[y] + start, fromChainSample<T>);
        }
    }
}

template VXKIT_API void Histogram::processFrame(const cv::Mat_<short>&, cv::Mat_<short>&) const;
template VXKIT_API void Histogram::processFrame(const cv::Mat_<unsigned short>&,
                                                cv::Mat_<unsigned short>&) const;
template VXKIT_API void Histogram::processFrame(const cv::Mat_<int>&, cv::Mat_<int>&) const;
template VXKIT_API void Histogram::processFrame(const cv::Mat_<unsigned int>&, cv::Mat_<unsigned int>&) const;
template VXKIT_API void Histogram::processFrame(const cv::Mat_<float>&, cv::Mat_<float>&) const;
template VXKIT_API void Histogram::processFrame(const cv::Mat_<double>&, cv::Mat_<double>&) const;
