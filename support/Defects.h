// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

#include "support/Random.h"

namespace vxsupport {

enum class DefectStyle
{
    stuck,    ///< half are dead (far below the scene), half hot (far above), the same value in every frame
    markers,  ///< the float patterns 0x81, 0x82, 0x84 and 0x85 in turn, as a camera's own detection leaves
              ///< them
};

struct DefectSettings
{
    int count = 0;
    DefectStyle style = DefectStyle::stuck;
};

/// Distinct random places in a frame; all of it if `count` is larger than the frame.
std::vector<cv::Point> drawDefects(cv::Size frame, int count, Random random);

/// Overwrites the defect pixels of a frame.
///
/// @param low, high  the scene's range; stuck pixels lie as far outside of it as it is wide
void applyDefects(cv::Mat_<float>& frame, const std::vector<cv::Point>& places, DefectStyle style, double low,
                  double high);

}  // namespace vxsupport
