// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <type_traits>

#include "core/base/Export.h"

namespace halvor::vx {

// Conversions between real images and integer images in a scale of their own. Both refuse a pixel outside the
// limits, in spite of their texts: they end at the first one in row-major order. Instances exist for float
// and short.
//
// The forms with `out` store into an image that is made at the size of `in`, without allocating if it has
// that size already. After a failure its content is undefined.

/// Scales every pixel and rounds it half away from zero.
///
/// @param min, max     limits of a pixel of `in`, both allowed
/// @param gain, offset, offsetFirst  (pixel + offset) * gain with the offset first, else pixel * gain +
///         offset
/// @return the low bits of the rounded values: what goes beyond the integer's range wraps. Not-a-number
///         passes the limits and gives 0, as does a product beyond 64 bits.
/// @throws Exception  "convertMatFloatToMatInt: value clamped to min" or "... to max"
template <typename Int = short, typename Real>
VXKIT_API cv::Mat_<Int> convertMatFloatToMatInt(const cv::Mat_<Real>& in, std::type_identity_t<Real> min,
                                                std::type_identity_t<Real> max,
                                                std::type_identity_t<Real> gain,
                                                std::type_identity_t<Real> offset, bool offsetFirst);
/// The same into `out`, which is created at the size of `in`.
///
/// @throws Exception  as above
template <typename Int, typename Real>
VXKIT_API void convertMatFloatToMatInt(const cv::Mat_<Real>& in, std::type_identity_t<Real> min,
                                       std::type_identity_t<Real> max, std::type_identity_t<Real> gain,
                                       std::type_identity_t<Real> offset, bool offsetFirst,
                                       cv::Mat_<Int>& out);

/// Takes integers to real values: pixel * gain + offset.
///
/// @param min, max  limits of a pixel of `in`, both allowed
/// @throws Exception  "convertMatIntToMatFloat: value clamped to min" or "... to max"
template <typename Real = float, typename Int>
VXKIT_API cv::Mat_<Real> convertMatIntToMatFloat(const cv::Mat_<Int>& in, std::type_identity_t<Int> min,
                                                 std::type_identity_t<Int> max,
                                                 std::type_identity_t<Real> gain,
                                                 std::type_identity_t<Real> offset);
/// The same into `out`, which is created at the size of `in`.
///
/// @throws Exception  as above
template <typename Real, typename Int>
VXKIT_API void convertMatIntToMatFloat(const cv::Mat_<Int>& in, std::type_identity_t<Int> min,
                                       std::type_identity_t<Int> max, std::type_identity_t<Real> gain,
                                       std::type_identity_t<Real> offset, cv::Mat_<Real>& out);

}  // namespace halvor::vx
