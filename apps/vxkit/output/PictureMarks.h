// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

#include "support/Pictures.h"

namespace vxapp {

/// How values become colours.
struct PictureLook
{
    vxsupport::ValueRange range;
    std::string colourMap;
    std::string unit;  ///< of the values, above the colour bar
    int zoom = 1;      ///< squares of so many pixels show a pixel
};

/// What is drawn over an image; places in its pixels.
struct PictureMarks
{
    cv::Rect part;                    ///< of the image, which alone is shown
    std::vector<cv::Rect> regions;    ///< R1, R2, ...
    std::vector<cv::Point> spots;     ///< S1, S2, ... with their values
    std::vector<cv::Point> extremes;  ///< the minimum and the maximum, with their values; or nothing
    std::vector<double> isotherms;    ///< lines along which the values pass a level
};

/// The colours of an image under its marks, and the colour bar at its right.
cv::Mat_<cv::Vec3b> markedPicture(const cv::Mat_<float>& image, const PictureLook& look,
                                  const PictureMarks& marks);

/// At most nine round numbers within a range, in ascending order: steps of 1, 2 or 5 times a power of ten.
std::vector<double> roundNumbers(const vxsupport::ValueRange& range);

/// "R1" of the first region: marks are called alike in pictures and tables.
std::string markName(char letter, std::size_t index);

/// A value with as many decimals as tell a hundredth of the range.
std::string valueText(double value, const vxsupport::ValueRange& range);

/// The range for the colours of values, not empty even if all values are the same.
vxsupport::ValueRange colourRange(const vxsupport::ValueRange& values);

/// Names of files for captions: without their folders, as long as that tells them apart.
std::vector<std::string> captionNames(const std::vector<std::string>& paths);

}  // namespace vxapp
