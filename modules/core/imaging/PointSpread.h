// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>

namespace halvor::vx {

// The sensor's point spread as one-dimensional kernels: a Gaussian, integrated over the pixels of the large
// image. Lengths are in pixels of the large image.

/// Error function in the closed form of Winitzki: relative error below 4e-4, odd, 0 at 0.
float approxErf(float x);

/// Integral of a Gaussian of standard deviation sigma over the pixel whose centre lies x from its middle.
float psfIntegral(float x, float sigma);

/// Fills taps with the kernel of a frame that is not displaced: symmetric about the point between its two
/// middle taps, 2 * factor taps that are not zero, sum 1.
///
/// @param taps  an even number, room for 2 * factor of them
void fillBasePsf(float sigma, float factor, std::span<float> taps);

/// Moves a kernel by linear interpolation, towards lower indices for a positive shift.
///
/// @param shift  meant for -1 to 1, not clamped
/// @param taps   as many as base, at least 1, and not base
void shiftPsf(std::span<const float> base, float shift, std::span<float> taps);

}  // namespace halvor::vx
