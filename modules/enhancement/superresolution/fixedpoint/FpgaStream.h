// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>

// The streamed convolutions of the FPGA, and the format of its sensor, which they are built for.
namespace halvor::vx::fpga {

constexpr int frameWidth = 160;
constexpr int frameHeight = 120;
constexpr int taps = 6;
constexpr int largeWidth = 2 * frameWidth + taps - 1;
constexpr int largeHeight = 2 * frameHeight + taps - 1;

/// See SrIntFpgaMinimization::fullConvFromSparseLinewise().
void scatterFrame(const short* src, const signed char* mask, const short* rowTaps, const short* colTaps,
                  short* result);

/// See SrIntFpgaMinimization::validCorrToSparseLinewise().
///
/// @param shift  of each product, -32 for taps with 16 fractional bits in both directions
void gatherFrame(const short* src, const short* rowTaps, const short* colTaps, signed char shift,
                 short* result);

}  // namespace halvor::vx::fpga
