// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

namespace vxsupport {

/// Range of values that a picture shows.
struct ValueRange
{
    float low;
    float high;
};

/// The range of an image's values without the given share at each end, so that a few hot pixels don't darken
/// a picture. Values that are no numbers don't count; 0 to 0 if there are no others.
ValueRange visibleRange(const cv::Mat_<float>& image, double leftOut = 0.005);

/// 8-bit grey levels: 0 at the range's low end and below (and for what is no number), 255 at its high end.
cv::Mat_<std::uint8_t> greyLevels(const cv::Mat_<float>& image, const ValueRange& range);

/// The colour map with a middle: blue below, near white, red above.
inline constexpr const char* divergingColourMap = "blue-red";

/// Names that falseColours() takes; the first is meant as default.
const std::vector<std::string>& colourMapNames();

/// Grey levels seen through a colour map of OpenCV, channels in its order.
///
/// @throws std::invalid_argument for an unknown name
cv::Mat_<cv::Vec3b> falseColours(const cv::Mat_<std::uint8_t>& levels, const std::string& colourMap);

struct Panel
{
    cv::Mat_<cv::Vec3b> picture;
    std::string caption;
};

/// Pictures in a row on white, each above its caption; smaller ones are centred. Captions are broken into lines
/// of their picture's width and stay readable: a picture narrower than a word gets more room.
cv::Mat_<cv::Vec3b> sideBySide(const std::vector<Panel>& panels);

/// Sheets one below the other, filled up with white at the right.
cv::Mat_<cv::Vec3b> stacked(const std::vector<cv::Mat_<cv::Vec3b>>& sheets);

/// The picture with every pixel repeated, so that the grid stays visible.
cv::Mat_<cv::Vec3b> magnified(const cv::Mat_<cv::Vec3b>& picture, int times);

}  // namespace vxsupport
