// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/fixedpoint/ModelRows.h"

#include <algorithm>

#include "core/base/Kernel.h"

namespace halvor::vx::fixedpoint {

namespace {

// A sum of 32 bits as its halves, so that its product with a tap, shifted right by 32 with rounding, needs no more
// than 32 bits on the way.
struct Halves
{
    std::int32_t high;
    std::int32_t low;
};

inline Halves halves(std::int32_t sum)
{
    return {sum >> 16, static_cast<std::int32_t>(static_cast<std::uint32_t>(sum) & 0xFFFFU)};
}

inline std::int32_t scaled(const Halves& sum, std::int32_t tap)
{
    constexpr std::int32_t half = 0x8000;
    const auto low = static_cast<std::int32_t>(
        (static_cast<std::uint32_t>(sum.low) * static_cast<std::uint32_t>(tap)) >> 16);
    return (sum.high * tap + low + half) >> 16;
}

inline Halves rowSum(const short* even, const short* odd, int x, const Taps& taps)
{
    // May wrap where the samples are as large as can be; such sums are not used.
    const auto product = [](std::int32_t sample, std::int32_t tap) {
        return static_cast<std::uint32_t>(sample * tap);
    };
    return halves(static_cast<std::int32_t>(product(even[x], taps[0]) + product(odd[x], taps[1]) +
                                            product(even[x + 1], taps[2]) + product(odd[x + 1], taps[3]) +
                                            product(even[x + 2], taps[4]) + product(odd[x + 2], taps[5])));
}

// Only of parameters does the compiler believe that they do not overlap.
VX_KERNEL void gather(const short* VX_RESTRICT even0, const short* VX_RESTRICT odd0,
                      const short* VX_RESTRICT even1, const short* VX_RESTRICT odd1,
                      const signed char* VX_RESTRICT mask, short* VX_RESTRICT first,
                      short* VX_RESTRICT second, short* VX_RESTRICT third, const Taps& rowTaps,
                      const Taps& colTaps, int n)
{
    const Taps h = rowTaps;
    const Taps v = colTaps;
    for (int x = 0; x < n; ++x) {
        const Halves a = rowSum(even0, odd0, x, h);
        const Halves b = rowSum(even1, odd1, x, h);
        first[x] = static_cast<short>(scaled(a, v[0]) + scaled(b, v[1]));
        second[x] = static_cast<short>(second[x] + scaled(a, v[2]) + scaled(b, v[3]));
        third[x] = static_cast<short>((third[x] + scaled(a, v[4]) + scaled(b, v[5])) * mask[x]);
    }
}

}  // namespace

VX_KERNEL int splitRow(const short* VX_RESTRICT row, short* VX_RESTRICT even, short* VX_RESTRICT odd, int n)
{
    short bound = 0;
    for (int x = 0; x < n; ++x) {
        const short e = row[2 * x];
        const short o = row[2 * x + 1];
        even[x] = e;
        odd[x] = o;
        bound = std::max(bound, static_cast<short>(e ^ (e >> 15)));
        bound = std::max(bound, static_cast<short>(o ^ (o >> 15)));
    }
    return bound;
}

VX_KERNEL void addSplitRow(const short* VX_RESTRICT even, const short* VX_RESTRICT odd,
                           short* VX_RESTRICT row, int n)
{
    for (int x = 0; x < n; ++x) {
        row[2 * x] = static_cast<short>(row[2 * x] + even[x]);
        row[2 * x + 1] = static_cast<short>(row[2 * x + 1] + odd[x]);
    }
}

void gatherRows(const GatherRows& rows, const Taps& rowTaps, const Taps& colTaps, int n)
{
    gather(rows.even0, rows.odd0, rows.even1, rows.odd1, rows.mask, rows.first, rows.second, rows.third,
           rowTaps, colTaps, n);
}

VX_KERNEL void spreadColumns(const short* VX_RESTRICT own, const short* VX_RESTRICT above,
                             const short* VX_RESTRICT twoAbove, const Taps& colTaps,
                             std::int32_t* VX_RESTRICT even, std::int32_t* VX_RESTRICT odd, int n)
{
    const Taps v = colTaps;
    for (int x = 0; x < n; ++x) {
        even[x] = own[x] * v[0] + above[x] * v[2] + twoAbove[x] * v[4];
        odd[x] = own[x] * v[1] + above[x] * v[3] + twoAbove[x] * v[5];
    }
}

VX_KERNEL void spreadRow(const std::int32_t* VX_RESTRICT sums, const Taps& rowTaps, short* VX_RESTRICT even,
                         short* VX_RESTRICT odd, int n)
{
    const Taps h = rowTaps;
    for (int x = 0; x < n + spreadMargin; ++x) {
        const Halves own = halves(sums[x]);
        const Halves before = halves(sums[x - 1]);
        const Halves twoBefore = halves(sums[x - 2]);
        even[x] =
            static_cast<short>(even[x] + scaled(own, h[0]) + scaled(before, h[2]) + scaled(twoBefore, h[4]));
        odd[x] =
            static_cast<short>(odd[x] + scaled(own, h[1]) + scaled(before, h[3]) + scaled(twoBefore, h[5]));
    }
}

VX_KERNEL void maskRow(const short* VX_RESTRICT image, const signed char* VX_RESTRICT mask,
                       short* VX_RESTRICT out, int n)
{
    for (int x = 0; x < n; ++x)
        out[x] = static_cast<short>(image[x] * mask[x]);
}

VX_KERNEL int maskBits(const signed char* mask, int n)
{
    unsigned char bits = 0;
    for (int x = 0; x < n; ++x)
        bits = static_cast<unsigned char>(bits | static_cast<unsigned char>(mask[x]));
    return bits;
}

}  // namespace halvor::vx::fixedpoint
