// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <string>

#include "core/base/Export.h"
#include "core/diagnostics/DebugChannel.h"

namespace halvor::vx {

/// Compares two images and reports on a channel, at level 2, when they differ.
///
/// @param channel    may be null: then nothing is reported
/// @param a, b       single-channel images of any depth
/// @param nameA, nameB  how the report calls them
/// @param tolerance  largest absolute difference that counts as equal
/// @return true if the sizes agree and no pixel differs by more than the tolerance. A not-a-number on one
///         side only is a difference; on both sides it is none.
VXKIT_API bool compareMat(DebugChannel* channel, const cv::Mat& a, const cv::Mat& b, const std::string& nameA,
                          const std::string& nameB, float tolerance);

}  // namespace halvor::vx
