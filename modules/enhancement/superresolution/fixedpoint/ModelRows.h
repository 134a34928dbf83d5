// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>

namespace halvor::vx::fixedpoint {

// Rows of the imaging model. An image row of the large grid is split into its even and odd columns, so that
// neighbouring samples of a frame read neighbouring memory. Products with a tap are rounded to 16 bits one by one,
// as the plain convolutions do it, and their sums wrap.

constexpr int tapCount = 6;

/// Taps with 16 fractional bits, 0 or more each.
using Taps = std::array<std::int32_t, tapCount>;

/// Splits a row of 2 * n columns.
///
/// @return a bound of the magnitudes in it: no sample exceeds it by more than 1
int splitRow(const short* row, short* even, short* odd, int n);

/// row += even and odd columns, n of each.
void addSplitRow(const short* even, const short* odd, short* row, int n);

/// What rows 2p and 2p + 1 of the large image give to three rows of a frame.
struct GatherRows
{
    const short* even0;  // n + 2 columns of row 2p
    const short* odd0;
    const short* even1;  // and of row 2p + 1
    const short* odd1;
    short* first;   // row p of the frame is set to its share,
    short* second;  // row p - 1 takes its own in addition,
    short* third;   // row p - 2 as well, and is multiplied by its mask then
    const signed char* mask;
};
void gatherRows(const GatherRows& rows, const Taps& rowTaps, const Taps& colTaps, int n);

/// Columns that spreadRows() reads before the first and behind the last sample.
constexpr int spreadMargin = 2;

/// Vertical sums of rows 2p and 2p + 1 of the large image.
///
/// @param own, above, twoAbove  rows p, p - 1 and p - 2 of the frame
/// @param even, odd  n sums each
void spreadColumns(const short* own, const short* above, const short* twoAbove, const Taps& colTaps,
                   std::int32_t* even, std::int32_t* odd, int n);

/// Adds the share of vertical sums to a row of the large image.
///
/// @param sums       n samples, spreadMargin zeros before and behind them
/// @param even, odd  n + spreadMargin columns each
void spreadRow(const std::int32_t* sums, const Taps& rowTaps, short* even, short* odd, int n);

/// out = image * mask
void maskRow(const short* image, const signed char* mask, short* out, int n);

/// Bits that occur in the mask.
int maskBits(const signed char* mask, int n);

}  // namespace halvor::vx::fixedpoint
