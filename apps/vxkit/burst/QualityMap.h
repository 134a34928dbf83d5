// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <opencv2/core/mat.hpp>
#include <string>

namespace vxapp {

// The reference engine's map of 3 x 3 shares that sum to 1: where the frames of a burst lie between the
// pixels. Its centre stands for frames in step with the reference, each step for half a frame pixel.

/// The map as a table for people.
std::string qualityTable(const cv::Mat_<float>& map);

/// Writes the map as 32-bit floats (.tif, .tiff, .pfm) or as a picture with its shares (.png); failures as
/// with the other writers.
void saveQualityMap(const std::filesystem::path& path, const cv::Mat_<float>& map, bool force);

/// Writes how many frames count at each pixel in the same ways; the picture goes from one frame to the most that
/// count anywhere.
void saveConfidence(const std::filesystem::path& path, const cv::Mat_<float>& frames, bool force);

}  // namespace vxapp
