// SPDX-License-Identifier: Apache-2.0
#include "enhancement/arithmetic/PatternArithmetic.h"

#include <algorithm>
#include <cstdlib>

#include "core/base/Kernel.h"
#include "core/base/WrapArithmetic.h"
#include "enhancement/arithmetic/ChainSample.h"

namespace halvor::vx::pattern {
namespace {

constexpr int reach = 4;  // columns on each side of the window along the row
constexpr short overRange = 32767;

// A cheap ninth; its bias of 25 and the missing correction terms are the hardware's.
constexpr int div9LessAccurate(int value)
{
    return (value - ((value - 25) >> 3)) >> 3;
}

// Drops fractional bits: toward zero, but a whole negative value loses one more, as in the hardware.
constexpr int dropFraction(int value, int bits)
{
    return (value >> bits) + (value < 0 ? 1 : 0);
}

constexpr int limitTo(int value, int limit, int bits)
{
    const int whole = value >> bits;
    const int top = limit << bits;
    const int bottom = (~limit << bits) | ((1 << bits) - 1);
    return whole >= limit ? top : whole <= ~limit ? bottom : value;
}

// The samples stay signed throughout: offset binary would add the same to both sides of every difference
// below.
template <typename Pixel>
VX_KERNEL_BODY void takeSamples(const Pixel* in, std::int16_t* VX_RESTRICT samples, int n)
{
    for (int i = 0; i < n; ++i)
        samples[i] = lowSigned16(in[i]);
}

VX_KERNEL void takeBlock(const int* in, std::int16_t* samples, int n)
{
    takeSamples(in, samples, n);
}

VX_KERNEL void takeImage(const short* in, std::int16_t* samples, int n)
{
    takeSamples(in, samples, n);
}

VX_KERNEL void widen(const std::int16_t* samples, int* VX_RESTRICT wide, int n)
{
    for (int i = 0; i < n; ++i)
        wide[i] = samples[i];
}

VX_KERNEL void measureColumns(const std::int16_t* above, const std::int16_t* here, const std::int16_t* below,
                              std::int16_t* VX_RESTRICT high, std::int16_t* VX_RESTRICT low,
                              int* VX_RESTRICT sum, int n)
{
    for (int i = 0; i < n; ++i) {
        high[i] = std::max(std::max(above[i], here[i]), below[i]);
        low[i] = std::min(std::min(above[i], here[i]), below[i]);
        sum[i] = above[i] + here[i] + below[i];
    }
}

// The extremes include the centre, so neither lies on the far side of the neighbours' mean.
constexpr int deviation(int high, int low, int neighbourSum)
{
    const int mean = neighbourSum >> 3;
    return std::max(high - mean, mean - low);
}

VX_KERNEL void measureSquare(const std::int16_t* high, const std::int16_t* low, const int* columnSum,
                             const int* centre, int* VX_RESTRICT sum, int* VX_RESTRICT dev, int n)
{
    for (int i = 0; i < n; ++i) {
        sum[i] = columnSum[i] + columnSum[i + 1] + columnSum[i + 2] - centre[i];
        const std::int16_t top = std::max(std::max(high[i], high[i + 1]), high[i + 2]);
        const std::int16_t bottom = std::min(std::min(low[i], low[i + 1]), low[i + 2]);
        dev[i] = deviation(top, bottom, sum[i]);
    }
}

VX_KERNEL void measureRow(const std::int16_t* samples, const int* wide, int* VX_RESTRICT sum,
                          int* VX_RESTRICT dev, int n)
{
    for (int i = 0; i < n; ++i) {
        sum[i] = wide[i] + wide[i + 1] + wide[i + 2] + wide[i + 3] + wide[i + 5] + wide[i + 6] + wide[i + 7] +
                 wide[i + 8];
        std::int16_t top = samples[i];
        std::int16_t bottom = samples[i];
        for (int j = 1; j < 2 * reach + 1; ++j) {
            top = std::max(top, samples[i + j]);
            bottom = std::min(bottom, samples[i + j]);
        }
        dev[i] = deviation(top, bottom, sum[i]);
    }
}

VX_KERNEL void updateLine(const Measures& measures, const Settings& settings, int* VX_RESTRICT line,
                          int* VX_RESTRICT earlier, int* VX_RESTRICT later, int n)
{
    const auto [centre, squareSum, squareDeviation, rowSum, rowDeviation] = measures;
    const auto [threshold, th07, limit, unused] = settings;
    for (int i = 0; i < n; ++i) {
        const int old = line[i];
        const int applied = dropFraction(old, 10);
        const int dev3 = squareDeviation[i];
        const int dev9 = rowDeviation[i];
        const int neighbours = dev3 < dev9 - (dev9 >> 2) - (dev9 >> 4) ? squareSum[i] : rowSum[i];
        const int learned = wrapAdd(wrapSub(old, applied), centre[i] * 8 - neighbours);
        const bool isFlat = dev3 < th07 || dev9 < threshold;
        const int value = limitTo(isFlat ? learned : old, limit, 13);
        // A rest of 1 to 3 stays, a negative one doesn't: the hardware's asymmetry.
        line[i] = value > 3 ? value - 4 : value < 0 ? value + 4 : value;
        earlier[i] = applied;
        later[i] = dropFraction(line[i], 10);
    }
}

// Line values around a run of columns: for each, the four to its left, as the scan order shows them, and from
// itself on those of before this row.
struct LineWindow
{
    const int* left[reach];
    const int* rest;
};

// Corrects a run of columns and learns from them. The curvature of the line values under a window is taken
// out of the sum of its neighbours.
VX_KERNEL void updateFrame(const Measures& measures, const LineWindow& window, const Settings& settings,
                           int* VX_RESTRICT frame, int* VX_RESTRICT result, int n)
{
    const auto [centre, squareSum, squareDeviation, rowSum, rowDeviation] = measures;
    const int threshold = settings.threshold;
    const int similar = threshold >> 2;
    const int limit = settings.frameLimit;
    const auto [a, b, c, d] = window.left;
    const int* line = window.rest;
    for (int i = 0; i < n; ++i) {
        const int old = frame[i];
        const int applied = dropFraction(old, 5);
        result[i] = centre[i] - div9LessAccurate(line[i]) - div9LessAccurate(applied);

        const int dev3 = squareDeviation[i];
        const int dev9 = rowDeviation[i];
        const int square = squareSum[i] - div9LessAccurate(3 * d[i] - 6 * line[i] + 3 * line[i + 1]);
        const int row = rowSum[i] - div9LessAccurate(a[i] + b[i] + c[i] + d[i] - 8 * line[i] + line[i + 1] +
                                                     line[i + 2] + line[i + 3] + line[i + 4]);
        const int flatter = dev3 <= dev9 ? square : row;
        const int neighbours = std::abs(dev9 - dev3) < similar ? (square + row) >> 1 : flatter;
        const int learned = wrapAdd(wrapSub(old, applied), centre[i] * 8 - neighbours);
        const bool isFlat = dev3 < threshold || dev9 < threshold;
        const int value = limitTo(isFlat ? learned : old, limit, 8);
        frame[i] = value > 0 ? value - 1 : value < 0 ? value + 1 : 0;
    }
}

VX_KERNEL void storeMarkedBlock(const int* in, const int* result, int* out, int n)
{
    storeUnmarked(in, result, out, n);
}

VX_KERNEL void storeImage(const short* in, const int* result, short* out, int n)
{
    for (int i = 0; i < n; ++i)
        out[i] = in[i] == overRange ? overRange : static_cast<short>(result[i]);
}

// Repeats the edge values of n values that stand behind 'reach' others.
template <typename Value>
void padEdges(Value* padded, int n)
{
    std::fill_n(padded, reach, padded[reach]);
    std::fill_n(padded + reach + n, reach, padded[reach + n - 1]);
}

}  // namespace

PatternRemoval::PatternRemoval(int cols)
    : cols_(cols),
      padded_(static_cast<std::size_t>(cols) + 2 * reach),
      samples_(3 * padded_),
      columnHigh_(padded_),
      columnLow_(padded_),
      columnSum_(padded_),
      centre_(padded_),
      squareSum_(padded_),
      rowSum_(padded_),
      squareDeviation_(padded_),
      rowDeviation_(padded_),
      earlierLine_(padded_),
      laterLine_(padded_),
      result_(padded_)
{}

void PatternRemoval::filterFrame(const FrameView<int>& frame, const Corrections& corrections,
                                 const Settings& settings, const Scan& scan)
{
    filterRows<storeInPlace>(frame, corrections, settings, scan);
}

void PatternRemoval::filterMarkedFrame(const FrameView<int>& frame, const Corrections& corrections,
                                       const Settings& settings, const Scan& scan)
{
    filterRows<storeMarkedBlock>(frame, corrections, settings, scan);
}

void PatternRemoval::filterFrame(const FrameView<short>& frame, const Corrections& corrections,
                                 const Settings& settings, const Scan& scan)
{
    filterRows<storeImage>(frame, corrections, settings, scan);
}

template <auto store, typename Pixel>
void PatternRemoval::filterRows(const FrameView<Pixel>& frame, const Corrections& corrections,
                                const Settings& settings, const Scan& scan)
{
    if (cols_ == 0 || frame.rows == 0)
        return;
    load(frame.input(0), 0);
    for (int y = 0; y < frame.rows; ++y) {
        // A row is taken before the one above it is overwritten, so that the result may replace the input.
        if (y + 1 < frame.rows)
            load(frame.input(y + 1), y + 1);
        measure(y, frame.rows - 1);
        updateLine(measures(0), settings, corrections.line, earlierLine_.data() + reach,
                   laterLine_.data() + reach, cols_);
        // Ahead of column 'lag' no new value is visible, though windows beyond the edge repeat column 0. At
        // the top of a block's first frame none is, and the former ones are still zeros.
        const int hidden = scan.hideLineAtTop && y == 0 ? cols_ : std::min(scan.lag, cols_);
        int* const frameRow = corrections.frame + static_cast<std::size_t>(y) * corrections.frameStride;
        if constexpr (store == storeInPlace) {
            correct(settings, hidden, reach + 1 - scan.lag, frameRow, frame.output(y));
        } else {
            correct(settings, hidden, reach + 1 - scan.lag, frameRow, result_.data());
            store(frame.input(y), result_.data(), frame.output(y), cols_);
        }
    }
}

std::int16_t* PatternRemoval::samples(int y)
{
    return samples_.data() + static_cast<std::size_t>(y % 3) * padded_;
}

void PatternRemoval::load(const int* row, int y)
{
    takeBlock(row, samples(y) + reach, cols_);
    padEdges(samples(y), cols_);
}

void PatternRemoval::load(const short* row, int y)
{
    takeImage(row, samples(y) + reach, cols_);
    padEdges(samples(y), cols_);
}

void PatternRemoval::measure(int y, int lastRow)
{
    const std::int16_t* here = samples(y);
    const std::int16_t* above = samples(std::max(y - 1, 0));
    const std::int16_t* below = samples(std::min(y + 1, lastRow));
    widen(here, centre_.data(), cols_ + 2 * reach);
    constexpr int left = reach - 1;  // the square begins one column to the left of its centre
    measureColumns(above + left, here + left, below + left, columnHigh_.data(), columnLow_.data(),
                   columnSum_.data(), cols_ + 2);
    measureSquare(columnHigh_.data(), columnLow_.data(), columnSum_.data(), centre_.data() + reach,
                  squareSum_.data(), squareDeviation_.data(), cols_);
    measureRow(here, centre_.data(), rowSum_.data(), rowDeviation_.data(), cols_);
}

void PatternRemoval::correct(const Settings& settings, int hidden, int visible, int* frameRow, int* result)
{
    padEdges(earlierLine_.data(), cols_);
    padEdges(laterLine_.data(), cols_);
    const auto update = [&](int first, int n, int newValues) {
        const int* earlier = earlierLine_.data() + first;
        const int* later = laterLine_.data() + first;
        LineWindow window{{}, earlier + reach};
        for (int j = 0; j < reach; ++j)
            window.left[j] = (j < newValues ? later : earlier) + j;
        updateFrame(measures(first), window, settings, frameRow + first, result + first, n);
    };
    update(0, hidden, 0);
    update(hidden, cols_ - hidden, visible);
}

Measures PatternRemoval::measures(int first) const
{
    return {centre_.data() + reach + first, squareSum_.data() + first, squareDeviation_.data() + first,
            rowSum_.data() + first, rowDeviation_.data() + first};
}

}  // namespace halvor::vx::pattern
