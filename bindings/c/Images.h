// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <string>

#include "bindings/c/vxkit.h"

namespace vxc {

/// A matrix on the caller's memory.
/// @param what  the argument's name, for texts
/// @throws Failure  for null data, a size, stride or type that can't be, and a size other than the expected one
cv::Mat matrixOf(const vxkit_image* image, cv::Size expected, const char* what);
vxkit_type typeOf(const cv::Mat& matrix);

/// @throws Failure  unless the image has the type
void requireType(const vxkit_image& image, vxkit_type expected, const char* what);

/// A frame of another type as floats.
/// @throws Failure  if a value is not one of single precision
void convertExactly(const cv::Mat& frame, cv::Mat_<float>& floats, const char* what);
/// @throws Failure  for a frame in which the engines would find bad pixels alone
void requireSomeDegrees(const cv::Mat_<float>& frame);
/// @throws Failure  unless all values are whole and within signed 16 bits
void requireSignedCounts(const cv::Mat_<float>& frame, const char* what);

/// Samples of a filter from a frame of VXKIT_U16 or VXKIT_I16, and back.
void toSamples(const cv::Mat& frame, cv::Mat_<short>& samples);
void toFrame(const cv::Mat_<short>& samples, cv::Mat& frame);

}  // namespace vxc
