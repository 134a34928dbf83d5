// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include "enhancement/superresolution/engine/PixelValues.h"

namespace halvor::vx {

/// What is wrong with the pixels of a frame, before they are repaired: 0 for a good one.
enum PixelDefect : unsigned char
{
    noDefect = 0,
    underRangeDefect = 1,
    overRangeDefect = 2,
    otherDefect = 3,
};

/// Fills the map of a frame with values of PixelDefect.
void findDefects(const cv::Mat_<float>& frame, const PixelLimits& limits, cv::Mat_<unsigned char>& map);

/// Whether a defect pixel has four good neighbours, or three at the frame's edge, so that their mean stands for it.
bool hasGoodNeighbours(const cv::Mat_<unsigned char>& map, int x, int y);

/// Puts markers where the reference has a defect that its neighbours cannot mend and no other frame sees.
///
/// @param map       of the reference
/// @param coverage  how many frames count at each of its pixels
/// @param picture   of twice the size
void markUnseen(const cv::Mat_<unsigned char>& map, const cv::Mat_<float>& coverage,
                cv::Mat_<float>& picture);

}  // namespace halvor::vx
