// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/fixedpoint/FpgaStream.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "core/base/Kernel.h"
#include "core/base/WrapArithmetic.h"
#include "core/fixpoint/RoundingShift.h"

namespace halvor::vx::fpga {

namespace {

// Rounds that let the last two rows of a frame drain from the line sums.
constexpr int drainingRounds = 2;
constexpr int bankEntries = 4 * frameWidth;

// Sums of one line of the large image, with two zeros on either side for the taps that reach out of the frame.
constexpr int border = 2;
using Line = std::array<std::int32_t, border + frameWidth + border>;

// a * b / 2^32 with rounding, in 32 bits: the low half of b contributes its carry alone. The low bits that a
// product of 48 bits drops never reach the rounding bit.
VX_KERNEL_BODY std::int32_t roundedProduct(std::int32_t a, std::int32_t b)
{
    const std::int32_t high = a * (b >> 16);
    const std::int32_t low = (a * (b & 0xFFFF)) >> 16;
    return (high + low + 0x8000) >> 16;
}

// A row of the frame enters the sums of three pairs of lines: two that are complete with it, in `even` and `odd`,
// two that wait for one more row, and two that begin.
VX_KERNEL void feedLines(const short* VX_RESTRICT src, const signed char* VX_RESTRICT mask,
                         const short* VX_RESTRICT colTaps, std::int32_t* VX_RESTRICT cur,
                         std::int32_t* VX_RESTRICT next, std::int32_t* VX_RESTRICT even,
                         std::int32_t* VX_RESTRICT odd)
{
    for (int x = 0; x < frameWidth; ++x) {
        const std::int32_t pixel = mask[x] != 0 ? src[x] : 0;
        even[x] = wrapAdd(cur[2 * x], colTaps[0] * pixel);
        odd[x] = wrapAdd(cur[2 * x + 1], colTaps[1] * pixel);
        next[2 * x] = wrapAdd(next[2 * x], pixel * colTaps[2]);
        next[2 * x + 1] = wrapAdd(next[2 * x + 1], pixel * colTaps[3]);
        cur[2 * x] = pixel * colTaps[4];
        cur[2 * x + 1] = pixel * colTaps[5];
    }
}

// A line's horizontal blur, added to a row of the large image. Partial sums of 16 bits wrap, so that their order is
// free: each pair of pixels takes its three sums at once, where the pipeline hands them on.
VX_KERNEL void spreadLine(const std::int32_t* VX_RESTRICT line, const short* VX_RESTRICT rowTaps,
                          short* VX_RESTRICT out)
{
    for (int x = 0; x < frameWidth + border; ++x) {
        const std::int32_t newest = line[x + 2];
        const std::int32_t middle = line[x + 1];
        const std::int32_t oldest = line[x];
        out[2 * x] =
            static_cast<short>(out[2 * x] + roundedProduct(rowTaps[0], newest) +
                               roundedProduct(rowTaps[2], middle) + roundedProduct(rowTaps[4], oldest));
        out[2 * x + 1] =
            static_cast<short>(out[2 * x + 1] + roundedProduct(rowTaps[1], newest) +
                               roundedProduct(rowTaps[3], middle) + roundedProduct(rowTaps[5], oldest));
    }
}

// The horizontal sums of one row of the large image.
VX_KERNEL void gatherLine(const short* VX_RESTRICT row, const short* VX_RESTRICT rowTaps,
                          std::int32_t* VX_RESTRICT line)
{
    for (int x = 0; x < frameWidth; ++x) {
        std::int32_t sum = 0;
        for (int k = 0; k < taps; ++k)
            sum = wrapAdd(sum, row[2 * x + k] * rowTaps[k]);
        line[x] = sum;
    }
}

VX_KERNEL void addProducts(const std::int32_t* VX_RESTRICT line, std::int32_t tap, short* VX_RESTRICT out)
{
    for (int x = 0; x < frameWidth; ++x)
        out[x] = static_cast<short>(out[x] + roundedProduct(tap, line[x]));
}

// The same for any shift of the products.
void addShiftedProducts(const std::int32_t* line, std::int32_t tap, signed char shift, short* out)
{
    for (int x = 0; x < frameWidth; ++x)
        out[x] = static_cast<short>(out[x] + shiftRound64(std::int64_t{tap} * line[x], shift));
}

}  // namespace

void scatterFrame(const short* src, const signed char* mask, const short* rowTaps, const short* colTaps,
                  short* result)
{
    std::array<std::array<std::int32_t, bankEntries>, 2> banks{};
    const std::array<short, frameWidth> noPixels{};
    const std::array<signed char, frameWidth> noMask{};
    Line even{};
    Line odd{};
    for (int y = 0; y < frameHeight + drainingRounds; ++y) {
        const bool isDraining = y >= frameHeight;
        const std::ptrdiff_t start = std::ptrdiff_t{y} * frameWidth;
        feedLines(isDraining ? noPixels.data() : src + start, isDraining ? noMask.data() : mask + start,
                  colTaps, banks[y & 1].data(), banks[(y + 1) & 1].data(), even.data() + border,
                  odd.data() + border);
        short* row = result + std::ptrdiff_t{2 * y} * largeWidth;
        spreadLine(even.data(), rowTaps, row);
        spreadLine(odd.data(), rowTaps, row + largeWidth);
    }
}

void gatherFrame(const short* src, const short* rowTaps, const short* colTaps, signed char shift,
                 short* result)
{
    constexpr signed char pipelineShift = -32;
    std::array<std::array<short, frameWidth>, 3> ring{};
    std::array<std::int32_t, frameWidth> line{};
    const auto add = [&line, shift](short tap, short* out) {
        if (shift == pipelineShift)
            addProducts(line.data(), tap, out);
        else
            addShiftedProducts(line.data(), tap, shift, out);
    };
    // Lines of the frame that begin, go on and end with a pair of rows.
    int begun = 2;
    int open = 1;
    int done = 0;
    for (int r = 0; r < largeHeight - 1; ++r) {
        const bool isEven = r % 2 == 0;
        const short* tap = colTaps + r % 2;
        if (isEven) {
            for (int* index : {&begun, &open, &done})
                *index = (*index + 1) % 3;
            ring[begun].fill(0);
        }
        gatherLine(src + std::ptrdiff_t{r} * largeWidth, rowTaps, line.data());
        if (r < 2 * frameHeight)
            add(tap[0], ring[begun].data());
        if (r >= 2 && r < 2 * frameHeight + 2)
            add(tap[2], ring[open].data());
        if (r >= 4)
            add(tap[4], ring[done].data());
        if (r >= 4 && !isEven)
            std::copy_n(ring[done].data(), frameWidth, result + std::ptrdiff_t{r / 2 - 2} * frameWidth);
    }
}

}  // namespace halvor::vx::fpga
