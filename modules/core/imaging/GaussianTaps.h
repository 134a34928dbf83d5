// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace halvor::vx {

/// Right half of a Gaussian kernel: each tap is the integral over its pixel, and the whole symmetric kernel
/// sums to 1.
///
/// @param radius  0 or more
/// @param sigma   standard deviation in pixels
/// @param taps    takes radius + 1 values, the middle one first
void gaussianTaps(int radius, float sigma, float* taps);

/// Frames that a kernel is applied to around their edges must be larger than the kernel.
///
/// @throws Exception  if the radius is negative, or width or height is 2 * radius or less
void requireKernelFits(int radius, int width, int height);

/// Lays a symmetric kernel on a circular line, its middle on element 0: what a transform needs for a
/// convolution that moves nothing.
///
/// @param taps    radius + 1 values, see gaussianTaps()
/// @param scale   factor on each tap
/// @param length  elements of the line, above 2 * radius
/// @param line    takes length elements
/// @param step    distance of the elements; what lies between them is left alone
void layCircularTaps(const float* taps, int radius, float scale, int length, float* line, int step);

}  // namespace halvor::vx
