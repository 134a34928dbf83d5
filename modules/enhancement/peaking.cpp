// SPDX-License-Identifier: Apache-2.0
#include "enhancement/peaking.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "core/base/Kernel.h"
#include "core/base/WrapArithmetic.h"
#include "enhancement/ParameterFile.h"
#include "enhancement/arithmetic/PixelConversion.h"
#include "enhancement/arithmetic/RecursiveFilter.h"

using namespace halvor::vx;

namespace {

constexpr int directWeight = 48;
constexpr int diagonalWeight = 16;
constexpr int noHighest = -32767;
constexpr int noLowest = 32767;

// Beyond the largest difference of two 16-bit samples a larger coring changes nothing.
constexpr float largestCore = 65536.0F;

// Row y - 1, y and y + 1, each with its ends repeated: column x stands at index x + 1.
template <typename Sample>
struct PaddedRows
{
    const Sample* above;
    const Sample* here;
    const Sample* below;
};

// The parameters as the arithmetic takes them.
struct Boost
{
    int contrastThreshold;
    int reductGain;
    int limit;
    int gain;
    int lowest;
    int highest;
};

inline int boosted(int centre, int highPass, int contrast, const Boost& b)
{
    int reduction = std::max(wrapSub(contrast, b.contrastThreshold), 0);
    reduction = std::min(wrapMul(reduction, b.reductGain) >> 12, 256);
    int boost = std::min(wrapAbs(highPass), b.limit);
    boost = wrapMul(boost, b.gain) >> 12;
    boost = wrapMul(boost, wrapSub(256, reduction));
    boost = wrapAdd(boost, 128) >> 8;
    const int result = wrapAdd(centre, highPass < 0 ? wrapNeg(boost) : boost);
    return std::min(std::max(result, b.lowest), b.highest);
}

// Difference to the centre with small ones taken as none. The tests see the wrapped difference.
inline int coredDifference(int neighbour, int centre, int core)
{
    const int d = wrapSub(neighbour, centre);
    const int above = std::max(wrapSub(d, core), 0);
    const int below = std::min(wrapAdd(d, core), 0);
    return d > 0 ? above : (d < 0 ? below : 0);
}

// The kernel sums to 0, and sums wrap, so the high pass is that of the cored differences alone.
VX_KERNEL void sharpenRow(const PaddedRows<int>& rows, const int* VX_RESTRICT core, const Boost& boost,
                          int* VX_RESTRICT out, int n)
{
    const int* const a = rows.above;
    const int* const h = rows.here;
    const int* const u = rows.below;
    const Boost b = boost;
    for (int x = 0; x < n; ++x) {
        const int centre = h[x + 1];
        const int k = core[x];
        const auto cored = [&](int neighbour) { return coredDifference(neighbour, centre, k); };
        const int direct =
            wrapAdd(wrapAdd(cored(a[x + 1]), cored(u[x + 1])), wrapAdd(cored(h[x]), cored(h[x + 2])));
        const int diagonal =
            wrapAdd(wrapAdd(cored(a[x]), cored(a[x + 2])), wrapAdd(cored(u[x]), cored(u[x + 2])));
        const int highPass =
            wrapNeg(wrapAdd(wrapMul(direct, directWeight), wrapMul(diagonal, diagonalWeight)));
        int highest = noHighest;
        int lowest = noLowest;
        for (const int* const row : {a, h, u}) {
            highest = std::max(highest, std::max(row[x], std::max(row[x + 1], row[x + 2])));
            lowest = std::min(lowest, std::min(row[x], std::min(row[x + 1], row[x + 2])));
        }
        out[x] = boosted(centre, highPass, wrapSub(highest, lowest), b);
    }
}

inline float larger(float a, float b)
{
    return a > b ? a : b;
}

inline float smaller(float a, float b)
{
    return a < b ? a : b;
}

inline float whole(float a)
{
    return static_cast<float>(static_cast<int>(a));
}

// The same parameters where their products stay below 2^24 for samples of 16 bits. Factors of the shifts are
// in them, which changes exponents alone.
struct SampleBoost
{
    explicit SampleBoost(const Boost& b)
        : contrastThreshold(static_cast<float>(b.contrastThreshold)),
          reductGain(static_cast<float>(b.reductGain) / 4096.0F),
          limit(static_cast<float>(b.limit)),
          gain(static_cast<float>(b.gain) / 4096.0F),
          lowest(static_cast<float>(b.lowest)),
          highest(static_cast<float>(b.highest))
    {}

    static bool fits(const PeakingParam& p)
    {
        const auto within = [](int value, int end) { return value >= 0 && value < end; };
        return within(p.reductThres, 4096) && within(p.reductGain, 256) && within(p.limit, 4096) &&
               within(p.gain, 4096) && p.limit * p.gain < 4096;
    }

    float contrastThreshold;
    float reductGain;
    float limit;
    float gain;
    float lowest;
    float highest;
};

inline float boosted(float centre, float highPass, float contrast, const SampleBoost& b)
{
    const float reduction =
        smaller(whole(larger(contrast - b.contrastThreshold, 0.0F) * b.reductGain), 256.0F);
    float boost = whole(smaller(std::abs(highPass), b.limit) * b.gain);
    boost = whole(boost * (1.0F - reduction / 256.0F) + 0.5F);
    return smaller(larger(centre + std::copysign(boost, highPass), b.lowest), b.highest);
}

// The same for samples of 16 bits and corings that are not negative. All numbers are then whole and below
// 2^24, where single precision is exact, and every processor multiplies and compares floats by the vector.
VX_KERNEL void sharpenSampleRow(const PaddedRows<float>& rows, const float* VX_RESTRICT core,
                                const SampleBoost& boost, int* VX_RESTRICT out, int n)
{
    const float* const a = rows.above;
    const float* const h = rows.here;
    const float* const u = rows.below;
    const SampleBoost b = boost;
    for (int x = 0; x < n; ++x) {
        const float centre = h[x + 1];
        const float over = centre + core[x];
        const float under = centre - core[x];
        // The cored difference, and twice the centre on top of it.
        const auto cored = [&](float neighbour) {
            return larger(neighbour, over) + smaller(neighbour, under);
        };
        const float direct =
            cored(a[x + 1]) + cored(u[x + 1]) + cored(h[x]) + cored(h[x + 2]) - 8.0F * centre;
        const float diagonal = cored(a[x]) + cored(a[x + 2]) + cored(u[x]) + cored(u[x + 2]) - 8.0F * centre;
        float highest = noHighest;
        float lowest = noLowest;
        for (const float* const row : {a, h, u}) {
            highest = larger(highest, larger(row[x], larger(row[x + 1], row[x + 2])));
            lowest = smaller(lowest, smaller(row[x], smaller(row[x + 1], row[x + 2])));
        }
        const float highPass = -(direct * directWeight + diagonal * diagonalWeight);
        out[x] = static_cast<int>(boosted(centre, highPass, highest - lowest, b));
    }
}

template <typename Core>
VX_KERNEL_BODY void lookUp(const int* row, const Core* cores, Core* VX_RESTRICT core, int n)
{
    for (int x = 0; x < n; ++x)
        core[x] = cores[std::min(std::max(row[x] >> 7, 0), 255)];
}

VX_KERNEL void lookUpCores(const int* row, const int* cores, int* VX_RESTRICT core, int n)
{
    lookUp(row, cores, core, n);
}

VX_KERNEL void lookUpSampleCores(const int* row, const float* cores, float* VX_RESTRICT core, int n)
{
    lookUp(row, cores, core, n);
}

// Copies a row in both forms; false if a value is no 16-bit sample.
VX_KERNEL bool copyRow(const int* VX_RESTRICT row, int* VX_RESTRICT copy, float* VX_RESTRICT samples, int n)
{
    unsigned outside = 0;
    for (int x = 0; x < n; ++x) {
        copy[x] = row[x];
        samples[x] = static_cast<float>(row[x]);
        outside |= static_cast<unsigned>(wrapAdd(row[x], 32768)) >> 16;
    }
    return outside == 0;
}

void requireNoTestMode(const PeakingParam& param)
{
    if (param.testmode == 0)
        return;
    std::fputs("Peaking::ProcessFrame: Assertion `param.testmode == 0' failed.\n", stderr);
    std::abort();
}

}  // namespace

Peaking::Peaking(int frameCols, int frameRows)
    : cols_(frameCols),
      rows_(frameRows),
      core_(static_cast<std::size_t>(frameCols)),
      sampleCore_(static_cast<std::size_t>(frameCols))
{
    for (Row& row : window_) {
        row.values.resize(static_cast<std::size_t>(frameCols) + 2);
        row.samples.resize(row.values.size());
    }
}

void Peaking::SetParam(const char* fileName)
{
    ParameterFile file(fileName);
    if (!file.isOpen()) {
        std::printf("peak: Cannot read %s\n", fileName != nullptr ? fileName : "(null)");
        return;
    }
    while (file.next()) {
        if (!file.inSection("Peaking_Parameter]"))
            continue;
        file.readInteger("enable=", param.enabled);
        file.readInteger("gain=", param.gain);
        file.readInteger("coring=", param.coring);
        file.readInteger("limit=", param.limit);
        file.readInteger("reduct_thres=", param.reductThres);
        file.readInteger("reduct_gain=", param.reductGain);
    }
}

void Peaking::ProcessFrame(ChainMatrix& in, ChainMatrix& out, double* localGain)
{
    ProcessFrame(in.row(0), out.row(0), localGain);
}

void Peaking::ProcessFrame(int* in, int* out, double* localGain)
{
    const std::ptrdiff_t stride = cols_;
    if (param.enabled == 0) {
        std::copy_n(in, stride * rows_, out);
        return;
    }
    if (cols_ == 0 || rows_ == 0)
        return;
    requireNoTestMode(param);
    fillCores(localGain);
    const Boost boost{wrapMul(param.reductThres, 512),   param.reductGain,
                      wrapMul(param.limit, 4096),        param.gain,
                      localGain != nullptr ? 0 : -32767, 32766};
    const SampleBoost sampleBoost(boost);
    const bool isRegular = coresOfSamples_ && SampleBoost::fits(param);
    pad(in, window_[0]);
    pad(in, window_[1]);
    for (int y = 0; y < rows_; ++y) {
        const int* row = in + y * stride;
        const Row& above = window_[static_cast<std::size_t>(y % 3)];
        const Row& here = window_[static_cast<std::size_t>((y + 1) % 3)];
        Row& below = window_[static_cast<std::size_t>((y + 2) % 3)];
        pad(y + 1 < rows_ ? row + stride : row, below);
        if (isRegular && above.isSamples && here.isSamples && below.isSamples) {
            lookUpSampleCores(row, sampleCores_.data(), sampleCore_.data(), cols_);
            sharpenSampleRow({above.samples.data(), here.samples.data(), below.samples.data()},
                             sampleCore_.data(), sampleBoost, out + y * stride, cols_);
        } else {
            lookUpCores(row, cores_.data(), core_.data(), cols_);
            sharpenRow({above.values.data(), here.values.data(), below.values.data()}, core_.data(), boost,
                       out + y * stride, cols_);
        }
    }
}

void Peaking::fillCores(const double* localGain)
{
    coresOfSamples_ = true;
    for (std::size_t level = 0; level < cores_.size(); ++level) {
        cores_[level] = truncateToInt(param.coring * (localGain != nullptr ? localGain[level] : 1.0));
        sampleCores_[level] = std::min(static_cast<float>(cores_[level]), largestCore);
        coresOfSamples_ = coresOfSamples_ && cores_[level] >= 0;
    }
}

void Peaking::pad(const int* row, Row& padded) const
{
    const std::size_t last = static_cast<std::size_t>(cols_);
    padded.isSamples = copyRow(row, padded.values.data() + 1, padded.samples.data() + 1, cols_);
    padded.values.front() = padded.values[1];
    padded.values.back() = padded.values[last];
    padded.samples.front() = padded.samples[1];
    padded.samples.back() = padded.samples[last];
}
