// SPDX-License-Identifier: Apache-2.0
#include "enhancement/hst_cmod.h"

#include <algorithm>
#include <cstddef>

#include "core/base/Kernel.h"
#include "core/base/WrapArithmetic.h"
#include "enhancement/arithmetic/ChainSample.h"
#include "enhancement/arithmetic/RecursiveFilter.h"

using namespace halvor::vx;

namespace {

// Levels over which a range is spread: 255 bins of 256 but for one.
constexpr int outputLevels = 65279;
constexpr int topLevel = 65535;
constexpr int invalidKey = topLevel + 1;

// Smallest and largest valid sample on the unsigned scale.
struct Extremes
{
    int min;
    int max;
};

struct Scaling
{
    int lo;
    int gain;
    int offset;

    // Then no product of the 32-bit form leaves 32 unsigned bits.
    bool fits32() const { return lo >= 0 && lo <= topLevel && gain >= 0 && gain <= topLevel; }
};

inline bool isInvalid(int sample)
{
    return sample == 0 || sample > 65534;
}

// Where a sample lies: the bin in the upper bits, the position inside it in the lower eight.
template <typename Level, typename Product>
inline int keyOf(int sample, const Scaling& s)
{
    const Level distance = std::max(static_cast<Level>(sample) - static_cast<Level>(s.lo), Level{0});
    const Product product = static_cast<Product>(distance) * static_cast<Product>(s.gain);
    const Level position = static_cast<Level>(product >> 8) + static_cast<Level>(s.offset);
    const Level key = std::min(position, Level{topLevel}) & topLevel;
    return isInvalid(sample) ? invalidKey : static_cast<int>(key);
}

// The extremes see invalid samples shifted to where they don't count: plain selects would keep the compiler
// from vectorising.
template <typename Level, typename Product>
VX_KERNEL_BODY Extremes measureRow(const int* in, const Scaling& scaling, int* VX_RESTRICT key, int n)
{
    const Scaling s = scaling;
    int smallest = topLevel - 1;
    int largest = 1;
    for (int i = 0; i < n; ++i) {
        const int sample = offsetBinary(in[i]);
        smallest = std::min(smallest, (sample - 1) & topLevel);
        largest = std::max(largest, (sample + 1) & topLevel);
        key[i] = keyOf<Level, Product>(sample, s);
    }
    return {smallest + 1, largest - 1};
}

VX_KERNEL Extremes measureRow32(const int* in, const Scaling& scaling, int* key, int n)
{
    return measureRow<int, std::uint32_t>(in, scaling, key, n);
}

// The definition of the scaling; only speeds that no camera uses lead here.
Extremes measureRow64(const int* in, const Scaling& scaling, int* key, int n)
{
    return measureRow<std::int64_t, std::int64_t>(in, scaling, key, n);
}

// Per bin the number of pixels in the upper word and the sum of their positions, in sixteenths, in the lower,
// so that a pixel costs one addition. Neighbouring pixels count into different tables, for they tend to fall
// into the same bin, and an addition would wait for the one before it. The last entry takes invalid pixels.
class PackedBins
{
public:
    void count(const int* key, int n)
    {
        int i = 0;
        for (; i + tableCount <= n; i += tableCount)
            for (int t = 0; t < tableCount; ++t)
                tables_[t][key[i + t] >> 8] += oneAt(key[i + t]);
        for (; i < n; ++i)
            tables_[0][key[i] >> 8] += oneAt(key[i]);
    }

    // Triangular splitting: a pixel counts 16, shared by its bin and the next; the last bin takes all.
    void unpack(std::array<int, HstCmod::binCount>& bins) const
    {
        int carried = 0;
        for (int b = 0; b < HstCmod::binCount; ++b) {
            std::uint64_t packed = 0;
            for (const auto& table : tables_)
                packed += table[b];
            const int pixels = static_cast<int>(packed >> 32);
            const int positions = b < HstCmod::binCount - 1 ? static_cast<int>(packed & 0xFFFFFFFFU) : 0;
            bins[static_cast<std::size_t>(b)] = wrapAdd(wrapSub(wrapMul(16, pixels), positions), carried);
            carried = positions;
        }
    }

private:
    static std::uint64_t oneAt(int key)
    {
        return (std::uint64_t{1} << 32) | static_cast<std::uint64_t>((key & 255) >> 4);
    }

    static constexpr int tableCount = 4;
    std::uint64_t tables_[tableCount][HstCmod::binCount + 1] = {};
};

}  // namespace

HstCmod::HstCmod(int frameCols, int frameRows, int shiftUp, int shiftDown, int hold, int smallestRange,
                 int noOffset, int noRange)
    : cols_(frameCols),
      rows_(frameRows),
      speedUp_(shiftUp),
      speedDown_(shiftDown),
      holdFrames_(hold),
      minRange_(smallestRange),
      offsetDisable_(noOffset),
      rangeDisable_(noRange),
      binLines_(cols_ > 0 ? (cols_ + valueWords - 1) / cols_ : 0),
      binSize_(binLines_ * cols_)
{}

void HstCmod::MeasureFrame(const int* in)
{
    countPixels(in);
    trackRange();
    computeGain();
    firstFrame_ = 0;
}

void HstCmod::countPixels(const int* in)
{
    constexpr int chunk = 512;
    int key[chunk];
    const Scaling scaling{lo_, gain_, offset_};
    const auto measure = scaling.fits32() ? measureRow32 : measureRow64;
    PackedBins counts;
    min_ = topLevel;
    max_ = 0;
    const std::ptrdiff_t pixels = static_cast<std::ptrdiff_t>(cols_) * rows_;
    for (std::ptrdiff_t start = 0; start < pixels; start += chunk) {
        const int n = static_cast<int>(std::min<std::ptrdiff_t>(chunk, pixels - start));
        const Extremes extremes = measure(in + start, scaling, key, n);
        min_ = std::min(min_, extremes.min);
        max_ = std::max(max_, extremes.max);
        counts.count(key, n);
    }
    counts.unpack(bins_);
}

void HstCmod::trackRange()
{
    if (firstFrame_ != 0) {
        lo_ = min_;
        hi_ = max_;
        return;
    }
    // The hardware's tests are not symmetric: an equal value shrinks the range at the bottom and grows it at
    // the top.
    trackEnd(lo_, holdLow_, min_, lo_ <= min_);
    trackEnd(hi_, holdHigh_, max_, hi_ > max_);
}

void HstCmod::trackEnd(int& end, int& hold, int measured, bool shrinks) const
{
    if (!shrinks || hold == 0)
        end = filterStep(end, measured, shrinks ? speedDown_ : speedUp_, 0);
    if (hold != 0)
        hold = wrapSub(hold, 1);
    if (!shrinks)
        hold = holdFrames_;
}

void HstCmod::computeGain()
{
    if (rangeDisable_ != 0) {
        gain_ = 256;
        offset_ = 0;
        return;
    }
    const int range = wrapAdd(wrapSub(hi_, lo_), 1);
    const int spread = std::max(range, minRange_);
    gain_ = spread == 0 ? topLevel : std::min(outputLevels * 256 / spread, topLevel);
    // The offset centres the range as it is, not the one raised to the smallest.
    offset_ = offsetDisable_ != 0 ? 0 : wrapSub(outputLevels, wrapMul(range, gain_) >> 8) >> 1;
}

void HstCmod::GetBinData(int* out)
{
    if (out == nullptr)
        return;
    for (int i = 0; i < binCount; ++i) {
        const int count = firstRead_ != 0 ? 1 : bins_[static_cast<std::size_t>(i)];
        out[2 * i] = count & 0xFFFF;
        out[2 * i + 1] = count >> 16;
    }
    int* values = out + 2 * binCount;
    for (const int value : {min_, max_, lo_, hi_, gain_, offset_})
        *values++ = value;
    if (binSize_ > valueWords)
        std::fill(values, out + binSize_, 0);
    firstRead_ = 0;
}
