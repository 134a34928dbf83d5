// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

namespace vxapp {

/// What the pixels of an area hold; those that are infinite, no numbers or bad-pixel markers don't count.
struct AreaStatistics
{
    int pixels = 0;
    double minimum = 0.0;
    double maximum = 0.0;
    double mean = 0.0;
    double deviation = 0.0;  ///< of all pixels about their mean
    double median = 0.0;     ///< the mean of the middle two of an even number
    cv::Point minimumAt;     ///< in the image; the first one from the top
    cv::Point maximumAt;
};

/// @param area  inside the image
AreaStatistics statisticsOf(const cv::Mat_<float>& image, const cv::Rect& area);

/// A line of a table of areas.
struct AreaRecord
{
    std::string file;
    int frame;  ///< within the file
    std::string name;
    cv::Rect area;
    AreaStatistics statistics;
    std::string unit;
};

/// The table as comma-separated values (RFC 4180) with a line of titles. Statistics of an area without a pixel
/// that counts stay empty.
std::string areaTable(const std::vector<AreaRecord>& records);

}  // namespace vxapp
