// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

// Separable smoothing of 16-bit images: a pass along rows, whose results are stored in 16 bits, then one along
// columns. Sums have 32 bits. Each result depends on nothing but the image, for any number of threads.
//
// @param src      any size
// @param scratch  takes the result of the first pass; created at the size of src; not src
// @param dst      created at the size of src; may be src
namespace halvor::vx {

/// Mean of the eight samples from three in front of a pixel to four behind it, with the first and the last
/// sample of a line repeated past its ends. The division truncates towards zero.
void smoothByEightTaps(const cv::Mat_<short>& src, cv::Mat_<short>& scratch, cv::Mat_<short>& dst);

// Nine taps of the weights 4, 4, 16, 24, 32, 24, 16, 4, 4, divided by their sum of 128.

/// The form for a divider: truncates towards zero. The first and last four samples of a line are copied.
void smoothByNineTaps(const cv::Mat_<short>& src, cv::Mat_<short>& scratch, cv::Mat_<short>& dst);
/// The form for shifts and adds: rounds towards minus infinity. The first and last four samples of a line are
/// copied.
void smoothByNineTapShifts(const cv::Mat_<short>& src, cv::Mat_<short>& scratch, cv::Mat_<short>& dst);
/// The form for shifts and adds, with lines that are mirrored about their end samples.
void smoothByMirroredNineTapShifts(const cv::Mat_<short>& src, cv::Mat_<short>& scratch,
                                   cv::Mat_<short>& dst);

}  // namespace halvor::vx
