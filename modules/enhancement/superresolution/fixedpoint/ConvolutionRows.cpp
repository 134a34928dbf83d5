// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/fixedpoint/ConvolutionRows.h"

#include <algorithm>
#include <array>

#include "core/base/Kernel.h"
#include "core/fixpoint/RoundingShift.h"

namespace halvor::vx::fixedpoint {

namespace {

// Products are formed in blocks of a row, so that they lie side by side whatever the step of their targets.
constexpr int blockSize = 256;
using Block = std::array<short, blockSize>;

// The scale of two taps with 16 fractional bits: no product reaches 16 bits, and what is wanted is the upper
// half.
constexpr std::int8_t tapScale = -32;

VX_KERNEL void upperHalves(const std::int32_t* VX_RESTRICT sums, std::int64_t tap, short* VX_RESTRICT out,
                           int n)
{
    constexpr std::uint64_t half = std::uint64_t{1} << 31;
    for (int x = 0; x < n; ++x)
        out[x] = static_cast<short>((static_cast<std::uint64_t>(sums[x] * tap) + half) >> 32);
}

// Returns how many products come before the first one that leaves 16 bits.
int scaledProducts(const std::int32_t* sums, std::int64_t tap, std::int8_t scale, short* out, int n)
{
    for (int x = 0; x < n; ++x) {
        const std::int64_t product = shiftRound64(sums[x] * tap, scale);
        if (product > 32767 || product < -32768)
            return x;
        out[x] = static_cast<short>(product);
    }
    return n;
}

}  // namespace

VX_KERNEL bool addMaskedProducts(const short* VX_RESTRICT sample, const signed char* VX_RESTRICT mask,
                                 short tap, std::int32_t* VX_RESTRICT sums, int n)
{
    int outside = 0;
    for (int x = 0; x < n; ++x) {
        const std::int64_t sum = static_cast<std::int64_t>(sample[x] * mask[x]) * tap + sums[x];
        outside |= static_cast<int>(sum > sumLimit) | static_cast<int>(sum < -sumLimit);
        sums[x] = static_cast<std::int32_t>(sum);
    }
    return outside == 0;
}

VX_KERNEL bool addSpacedProducts(const short* VX_RESTRICT sample, short tap, std::int32_t* VX_RESTRICT sums,
                                 int n)
{
    int outside = 0;
    for (int x = 0; x < n; ++x) {
        const std::int64_t sum = static_cast<std::int64_t>(sample[2 * x] * tap) + sums[x];
        outside |= static_cast<int>(sum > sumLimit) | static_cast<int>(sum < -sumLimit);
        sums[x] = static_cast<std::int32_t>(sum);
    }
    return outside == 0;
}

bool addScaledProducts(const std::int32_t* sums, short tap, std::int8_t scale, short* target, int step, int n)
{
    Block products{};
    for (int start = 0; start < n; start += blockSize) {
        const int count = std::min(blockSize, n - start);
        int fitting = count;
        if (scale == tapScale)
            upperHalves(sums + start, tap, products.data(), count);
        else
            fitting = scaledProducts(sums + start, tap, scale, products.data(), count);
        for (int x = 0; x < fitting; ++x, target += step)
            *target = static_cast<short>(*target + products[x]);
        if (fitting < count)
            return false;
    }
    return true;
}

}  // namespace halvor::vx::fixedpoint
