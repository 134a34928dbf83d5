// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/fixedpoint/BoxFilters.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "core/base/Kernel.h"
#include "core/base/ParallelPixels.h"

namespace halvor::vx {

namespace {

// What a pass does for a run of n pixels: tap t of pixel i is taps[t][i]. Along rows the taps are one row at
// neighbouring places, along columns neighbouring rows at one place.
using Taps = const short* const*;

VX_KERNEL void meanOfEight(Taps taps, int n, short* VX_RESTRICT out)
{
    const std::array<const short*, 8> p{taps[0], taps[1], taps[2], taps[3],
                                        taps[4], taps[5], taps[6], taps[7]};
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<short>(
            (p[0][i] + p[1][i] + p[2][i] + p[3][i] + p[4][i] + p[5][i] + p[6][i] + p[7][i]) / 8);
}

VX_KERNEL void nineTapsDivided(Taps taps, int n, short* VX_RESTRICT out)
{
    const std::array<const short*, 9> p{taps[0], taps[1], taps[2], taps[3], taps[4],
                                        taps[5], taps[6], taps[7], taps[8]};
    for (int i = 0; i < n; ++i) {
        const int sum = 4 * p[0][i] + 4 * p[1][i] + 16 * p[2][i] + 24 * p[3][i] + 32 * p[4][i] +
                        24 * p[5][i] + 16 * p[6][i] + 4 * p[7][i] + 4 * p[8][i];
        out[i] = static_cast<short>(sum / 128);
    }
}

// Shifts alone: the weight of 24 is one of 8 and one of 16.
VX_KERNEL void nineTapsShifted(Taps taps, int n, short* VX_RESTRICT out)
{
    const std::array<const short*, 9> p{taps[0], taps[1], taps[2], taps[3], taps[4],
                                        taps[5], taps[6], taps[7], taps[8]};
    for (int i = 0; i < n; ++i) {
        const int by24 = p[3][i] + p[5][i];
        const int sum = ((p[0][i] + p[1][i] + p[7][i] + p[8][i]) << 2) + ((p[2][i] + p[6][i]) << 4) +
                        (by24 << 3) + (by24 << 4) + (p[4][i] << 5);
        out[i] = static_cast<short>(sum >> 7);
    }
}

int repeatedEnd(int i, int n)
{
    return std::clamp(i, 0, n - 1);
}

int mirrored(int i, int n)
{
    const int period = std::max(2 * (n - 1), 1);
    const int place = (i % period + period) % period;
    return std::min(place, period - place);
}

constexpr std::size_t mostTaps = 9;

struct LineFilter
{
    void (*kernel)(Taps taps, int n, short* out);
    int before;  // taps in front of the pixel
    int behind;
    // Where a tap past an end of a line of n samples reads; none: pixels with such taps are copied.
    int (*place)(int i, int n);

    int count() const { return before + 1 + behind; }

    /// Runs the kernel with the taps around place i of a line, of which tapAt(j) gives place j.
    template <typename TapAt>
    void apply(int i, TapAt tapAt, int run, short* out) const
    {
        std::array<const short*, mostTaps> taps{};
        for (int t = 0; t < count(); ++t)
            taps[static_cast<std::size_t>(t)] = tapAt(i + t - before);
        kernel(taps.data(), run, out);
    }
};

void filterRow(const LineFilter& filter, const short* in, int n, short* out)
{
    const auto sample = [&](int i) { return in + i; };
    const auto placedSample = [&](int i) { return in + filter.place(i, n); };
    const auto filterEnds = [&](int from, int to) {
        for (int i = from; i < to; ++i) {
            if (filter.place != nullptr)
                filter.apply(i, placedSample, 1, out + i);
            else
                out[i] = in[i];
        }
    };
    const int first = std::min(filter.before, n);
    const int last = std::max(n - filter.behind, first);
    filterEnds(0, first);
    if (first < last)
        filter.apply(first, sample, last - first, out + first);
    filterEnds(last, n);
}

void filterColumns(const LineFilter& filter, const cv::Mat_<short>& in, int y, short* out)
{
    const bool hasAllTaps = y >= filter.before && y < in.rows - filter.behind;
    if (hasAllTaps)
        filter.apply(
            y, [&](int row) { return in[row]; }, in.cols, out);
    else if (filter.place != nullptr)
        filter.apply(
            y, [&](int row) { return in[filter.place(row, in.rows)]; }, in.cols, out);
    else
        std::copy_n(in[y], in.cols, out);
}

void filterImage(const LineFilter& filter, const cv::Mat_<short>& src, cv::Mat_<short>& scratch,
                 cv::Mat_<short>& dst)
{
    const bool shared = src.total() >= 4 * parallelPixels;
    scratch.create(src.size());
#pragma omp parallel for schedule(static) if (shared)
    for (int y = 0; y < src.rows; ++y)
        filterRow(filter, src[y], src.cols, scratch[y]);
    dst.create(src.size());
#pragma omp parallel for schedule(static) if (shared)
    for (int y = 0; y < dst.rows; ++y)
        filterColumns(filter, scratch, y, dst[y]);
}

}  // namespace

void smoothByEightTaps(const cv::Mat_<short>& src, cv::Mat_<short>& scratch, cv::Mat_<short>& dst)
{
    filterImage({meanOfEight, 3, 4, repeatedEnd}, src, scratch, dst);
}

void smoothByNineTaps(const cv::Mat_<short>& src, cv::Mat_<short>& scratch, cv::Mat_<short>& dst)
{
    filterImage({nineTapsDivided, 4, 4, nullptr}, src, scratch, dst);
}

void smoothByNineTapShifts(const cv::Mat_<short>& src, cv::Mat_<short>& scratch, cv::Mat_<short>& dst)
{
    filterImage({nineTapsShifted, 4, 4, nullptr}, src, scratch, dst);
}

void smoothByMirroredNineTapShifts(const cv::Mat_<short>& src, cv::Mat_<short>& scratch, cv::Mat_<short>& dst)
{
    filterImage({nineTapsShifted, 4, 4, mirrored}, src, scratch, dst);
}

}  // namespace halvor::vx
