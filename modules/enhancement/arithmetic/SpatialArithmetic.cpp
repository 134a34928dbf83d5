// SPDX-License-Identifier: Apache-2.0
#include "enhancement/arithmetic/SpatialArithmetic.h"

#include <algorithm>
#include <cstdlib>

#include "core/base/Kernel.h"
#include "core/base/WrapArithmetic.h"
#include "enhancement/arithmetic/ChainSample.h"

namespace halvor::vx::spatial {
namespace {

constexpr int tilePixels = 256;
constexpr int fullDetail = 32;

using Tile = int[tilePixels];
// With one column more on each side, so that the kernel meets no edge.
using WideTile = int[tilePixels + 2];

/// Division by nine without a divider; exact when nine equal samples were added.
constexpr int div9(int value)
{
    const int s = value + 5;
    const int t = s - (s >> 3);
    return ((t >> 6) + t + (t >> 12)) >> 3;
}

template <typename Pixel>
VX_KERNEL_BODY void loadSamples(const Pixel* in, int* VX_RESTRICT samples, int n)
{
    for (int i = 0; i < n; ++i)
        samples[i] = offsetBinary(in[i]);
}

VX_KERNEL void loadBlock(const int* in, int* samples, int n)
{
    loadSamples(in, samples, n);
}

VX_KERNEL void loadImage(const short* in, int* samples, int n)
{
    loadSamples(in, samples, n);
}

// Gives the filtered samples signed, beyond 16 bits where the detail overshoots. The activity is
// below 2^20, so the single-precision quotient truncates to the integer one.
VX_KERNEL void smooth(const int* above, const int* here, const int* below, int gain, int* VX_RESTRICT result,
                      int n)
{
    const float divisor = static_cast<float>(gain);
    for (int i = 0; i < n; ++i) {
        const int mean = div9(above[i] + above[i + 1] + above[i + 2] + here[i] + here[i + 1] + here[i + 2] +
                              below[i] + below[i + 1] + below[i + 2]);
        int activity = 0;
        for (int j = 0; j < 3; ++j)
            activity +=
                std::abs(above[i + j] - mean) + std::abs(here[i + j] - mean) + std::abs(below[i + j] - mean);
        const int keep = std::min(static_cast<int>(static_cast<float>(activity) / divisor) + 13, fullDetail);
        const int detail = here[i + 1] - mean;
        result[i] = (wrapAdd(wrapMul(detail, keep), 16) >> 5) + mean - 32768;
    }
}

// What a gain of 0 leaves: all of the detail.
VX_KERNEL void passThrough(const int* samples, int* VX_RESTRICT result, int n)
{
    for (int i = 0; i < n; ++i)
        result[i] = samples[i] - 32768;
}

VX_KERNEL void storeMarkedBlock(const int* in, const int* result, int* out, int n)
{
    storeUnmarked(in, result, out, n);
}

VX_KERNEL void storeImage(const short* /*in*/, const int* result, short* out, int n)
{
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<short>(result[i]);
}

void load(const int* in, int* samples, int n)
{
    loadBlock(in, samples, n);
}

void load(const short* in, int* samples, int n)
{
    loadImage(in, samples, n);
}

// Loads the columns first - 1 to first + n of a row, the edge pixels repeated.
template <typename Pixel>
void loadWide(const Pixel* row, int cols, int first, int n, WideTile& samples)
{
    load(row + first, samples + 1, n);
    samples[0] = offsetBinary(row[std::max(first - 1, 0)]);
    samples[n + 1] = offsetBinary(row[std::min(first + n, cols - 1)]);
}

template <typename Pixel>
void filterTile(const FrameView<Pixel>& frame, int y, int first, int n, int gain, int* result)
{
    WideTile above;
    WideTile here;
    WideTile below;
    loadWide(frame.input(y), frame.cols, first, n, here);
    if (gain == 0) {
        passThrough(here + 1, result, n);
        return;
    }
    loadWide(frame.input(y - 1), frame.cols, first, n, above);
    loadWide(frame.input(y + 1), frame.cols, first, n, below);
    smooth(above, here, below, gain, result, n);
}

template <auto store, typename Pixel>
void filterRow(const FrameView<Pixel>& frame, int y, int gain)
{
    for (int first = 0; first < frame.cols; first += tilePixels) {
        const int n = std::min(tilePixels, frame.cols - first);
        if constexpr (store == storeInPlace) {
            filterTile(frame, y, first, n, gain, frame.output(y) + first);
        } else {
            Tile result;
            filterTile(frame, y, first, n, gain, result);
            store(frame.input(y) + first, result, frame.output(y) + first, n);
        }
    }
}

template <auto store, typename Pixel>
void filterRows(const FrameView<Pixel>& frame, int gain)
{
#pragma omp parallel for schedule(static) if (frame.pixelCount() >= lightPassPixels)
    for (int y = 0; y < frame.rows; ++y)
        filterRow<store>(frame, y, gain);
}

}  // namespace

void filterFrame(const FrameView<int>& frame, int gain)
{
    filterRows<storeInPlace>(frame, gain);
}

void filterFrame(const FrameView<short>& frame, int gain)
{
    filterRows<storeImage>(frame, gain);
}

void filterMarkedFrame(const FrameView<int>& frame, int gain)
{
    filterRows<storeMarkedBlock>(frame, gain);
}

}  // namespace halvor::vx::spatial
