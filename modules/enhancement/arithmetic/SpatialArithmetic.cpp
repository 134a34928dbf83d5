#include "enhancement/SpatialArithmetic.h"

#include <algorithm>
#include <cstdlib>

#include "core/base/Kernel.h"
#include "core/base/WrapArithmetic.h"
#include "enhancement/ChainSample.h"

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

// Gives the filtered samples in offset binary, beyond 16 bits where the detail overshoots. The activity is
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
        result[i] = (wrapAdd(wrapMul(detail, keep), 16) >> 5) + mean;
    }
}

VX_KERNEL void storeBlock(const int* result, int* VX_RESTRICT out, int n)
{
    for (int i = 0; i < n; ++i)
        out[i] = result[i] - 32768;
}

VX_KERNEL void storeMarkedBlock(const int* in, const int* result, int* VX_RESTRICT out, int n)
{
    for (int i = 0; i < n; ++i)
        out[i] = isMarked(in[i]) ? in[i] : maskedPattern(result[i]);
}

VX_KERNEL void storeImage(const int* result, short* VX_RESTRICT out, int n)
{
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<short>(result[i] - 32768);
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

/// @param store  callable with the tile's first column, its result and its number of columns
template <typename Pixel, typename Store>
void filterRow(const FrameView<Pixel>& frame, int y, int gain, Store store)
{
    WideTile above;
    WideTile here;
    WideTile below;
    Tile result;
    for (int first = 0; first < frame.cols; first += tilePixels) {
        const int n = std::min(tilePixels, frame.cols - first);
        loadWide(frame.input(y), frame.cols, first, n, here);
        if (gain == 0) {
            store(first, here + 1, n);
            continue;
        }
        loadWide(frame.input(y - 1), frame.cols, first, n, above);
        loadWide(frame.input(y + 1), frame.cols, first, n, below);
        smooth(above, here, below, gain, result, n);
        store(first, result, n);
    }
}

/// @param storeRow  gives the store of a row
template <typename Pixel, typename StoreRow>
void filterRows(const FrameView<Pixel>& frame, int gain, StoreRow storeRow)
{
#pragma omp parallel for schedule(static) if (frame.pixelCount() >= lightPassPixels)
    for (int y = 0; y < frame.rows; ++y)
        filterRow(frame, y, gain, storeRow(y));
}

}  // namespace

void filterFrame(const FrameView<int>& frame, int gain)
{
    filterRows(frame, gain, [&](int y) {
        return [out = frame.output(y)](int first, const int* result, int n) {
            storeBlock(result, out + first, n);
        };
    });
}

void filterFrame(const FrameView<short>& frame, int gain)
{
    filterRows(frame, gain, [&](int y) {
        return [out = frame.output(y)](int first, const int* result, int n) {
            storeImage(result, out + first, n);
        };
    });
}

void filterMarkedFrame(const FrameView<int>& frame, int gain)
{
    filterRows(frame, gain, [&](int y) {
        return [in = frame.input(y), out = frame.output(y)](int first, const int* result, int n) {
            storeMarkedBlock(in + first, result, out + first, n);
        };
    });
}

}  // namespace halvor::vx::spatial
