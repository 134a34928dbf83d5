#pragma once

#include <opencv2/core/mat.hpp>

namespace halvor::vx {

/// Separable box filter whose window is cut off at the image's edges and divided by the pixels that are left,
/// so that a flat image stays flat.
///
/// Running sums in single precision, first along rows, then along columns: the cost per pixel does not depend
/// on the radius.
///
/// @param src      at least 2 * radius rows and columns
/// @param radius   pixels on each side of the centre; the window is 2 * radius + 1
/// @param scratch  takes the filtered rows; not src or dst
/// @param dst      may be src
/// Matrices that already have the size of src are written in place, others are allocated.
void meanFilter(const cv::Mat_<float>& src, int radius, cv::Mat_<float>& scratch, cv::Mat_<float>& dst);

}  // namespace halvor::vx
