// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/fixedpoint/ElementRows.h"

#include <algorithm>
#include <limits>

#include "core/base/Kernel.h"
#include "core/base/WrapArithmetic.h"

namespace halvor::vx::fixedpoint {

namespace {

using Sample = std::numeric_limits<short>;

// Of so many samples of 16 bits 32 bits hold the sum.
constexpr int block = 32768;

// Sum of 32-bit products in 64 bits. Their halves are summed apart, so that every lane has 32 bits.
template <typename Product>
VX_KERNEL_BODY std::int64_t productSum(int n, Product product)
{
    std::int64_t sum = 0;
    for (int begin = 0; begin < n; begin += block) {
        const int end = std::min(begin + block, n);
        std::int32_t high = 0;
        std::uint32_t low = 0;
        for (int i = begin; i < end; ++i) {
            const std::int32_t p = product(i);
            high += p >> 16;
            low += static_cast<std::uint32_t>(p) & 0xFFFFU;
        }
        sum += static_cast<std::int64_t>(high) * 65536 + low;
    }
    return sum;
}

template <typename Scale>
VX_KERNEL_BODY void normalise(Scale scale, short mean, short* row, int n)
{
    for (int i = 0; i < n; ++i)
        row[i] = static_cast<short>(scale(row[i] - mean));
}

template <typename Scale>
VX_KERNEL_BODY void advance(Scale scale, short mantissa, const short* VX_RESTRICT s, short* VX_RESTRICT x,
                            int n)
{
    for (int i = 0; i < n; ++i)
        x[i] = static_cast<short>(wrapAdd(x[i], scale(mantissa * s[i])));
}

}  // namespace

VX_KERNEL std::int64_t sumRow(const short* row, int n)
{
    std::int64_t sum = 0;
    for (int begin = 0; begin < n; begin += block) {
        std::int32_t part = 0;
        for (int i = begin; i < std::min(begin + block, n); ++i)
            part += row[i];
        sum += part;
    }
    return sum;
}

VX_KERNEL std::int64_t dotRow(const short* a, const short* b, int n)
{
    return productSum(n, [=](int i) { return a[i] * b[i]; });
}

VX_KERNEL void normaliseRow(LeftScale scale, short mean, short* row, int n)
{
    normalise(scale, mean, row, n);
}

VX_KERNEL void normaliseRow(RightScale scale, short mean, short* row, int n)
{
    normalise(scale, mean, row, n);
}

VX_KERNEL void denormaliseRow(LeftScale scale, short mean, const short* VX_RESTRICT in,
                              short* VX_RESTRICT out, int n)
{
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<short>(wrapAdd(scale(in[i]), mean));
}

VX_KERNEL void denormaliseRow(RightScale scale, short mean, const short* VX_RESTRICT in,
                              short* VX_RESTRICT out, int n)
{
    const std::uint8_t count = scale.count;
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<short>(roundShiftRight16(in[i], count) + mean);
}

VX_KERNEL std::int64_t residualRow(const short* VX_RESTRICT b, short* VX_RESTRICT r, short* VX_RESTRICT s,
                                   int n)
{
    return productSum(n, [=](int i) {
        const auto value = static_cast<short>(b[i] - r[i]);
        r[i] = value;
        s[i] = value;
        return value * value;
    });
}

VX_KERNEL void advanceRow(LeftScale scale, short mantissa, const short* s, short* x, int n)
{
    advance(scale, mantissa, s, x, n);
}

VX_KERNEL void advanceRow(RightScale scale, short mantissa, const short* s, short* x, int n)
{
    advance(scale, mantissa, s, x, n);
}

VX_KERNEL std::int64_t stepRow(LeftScale scale, short mantissa, const short* VX_RESTRICT q,
                               short* VX_RESTRICT r, int n)
{
    return productSum(n, [=](int i) {
        r[i] = static_cast<short>(wrapSub(r[i], scale(mantissa * q[i])));
        return r[i] * r[i];
    });
}

VX_KERNEL std::int64_t stepRow(RightScale scale, short mantissa, const short* VX_RESTRICT q,
                               short* VX_RESTRICT r, int n)
{
    return productSum(n, [=](int i) {
        const std::int32_t t = scale(mantissa * q[i]);
        const std::int32_t exact = r[i] - t;
        std::int32_t from = r[i];
        from = exact > Sample::max() ? Sample::max() : from;
        from = exact < Sample::min() ? Sample::min() : from;
        r[i] = static_cast<short>(from - t);
        return r[i] * r[i];
    });
}

VX_KERNEL void turnRow(LeftScale scale, short mantissa, const short* VX_RESTRICT r, short* VX_RESTRICT s,
                       int n)
{
    const std::int32_t atMaximum = scale(mantissa * Sample::max());
    const std::int32_t atMinimum = scale(mantissa * Sample::min());
    for (int i = 0; i < n; ++i) {
        std::int32_t t = scale(mantissa * s[i]);
        const std::int32_t exact = wrapAdd(r[i], t);
        t = exact > Sample::max() ? atMaximum : t;
        t = exact < Sample::min() ? atMinimum : t;
        s[i] = static_cast<short>(wrapAdd(r[i], t));
    }
}

VX_KERNEL void turnRow(RightScale scale, short mantissa, const short* VX_RESTRICT r, short* VX_RESTRICT s,
                       int n)
{
    for (int i = 0; i < n; ++i)
        s[i] = static_cast<short>(r[i] + scale(mantissa * s[i]));
}

}  // namespace halvor::vx::fixedpoint
