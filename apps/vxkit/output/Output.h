// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

#include "support/Counts.h"
#include "support/Pictures.h"

namespace vxapp {

using vxsupport::CountScale;
using vxsupport::ValueRange;

/// "value = count * 0.01 - 273.15"
std::string scaleText(const CountScale& scale);

/// What the values of an image are.
enum class Unit
{
    degrees,  ///< degrees Celsius
    counts,   ///< counts of the sensor
};

/// A scale with which the image's values fit 16 bits: the finest of a few fixed ones, so that the images of
/// one recording are read alike (for degrees hundredths or tenths of a kelvin from absolute zero on, for
/// counts quarters or whole counts from 0 on). An image that fits none of them is stretched over all counts.
CountScale scaleFor(const cv::Mat_<float>& image, Unit unit);

/// ".tif" of "image.TIF"
std::string lowerEnding(const std::filesystem::path& path);

/// "result-0004.tif" of "result.tif": four digits, or as many as the largest of the numbers needs.
std::string withNumber(const std::filesystem::path& path, int number, int largest);

/// The bytes of a PNG file, which has nothing to do with a disk.
/// @param path      for messages
/// @param settings  of the image library's encoder
/// @throws WriteError if the image can't be encoded
std::vector<unsigned char> encodePng(const std::filesystem::path& path, const cv::Mat& image,
                                     const std::vector<int>& settings = {});

// Writers. An existing file is replaced only if `force` is set, a file appears under its name when it is
// complete, and failures are those of vxfiles::OutputFile.

/// Writes 32-bit floats bit by bit in the format of the file's ending, see isFloatFile().
void saveFloats(const std::filesystem::path& path, const cv::Mat_<float>& image, bool force);
void saveTiff(const std::filesystem::path& path, const cv::Mat_<float>& image, bool force);
void savePfm(const std::filesystem::path& path, const cv::Mat_<float>& image, bool force);

/// Writes rounded 16-bit counts, with the scale as a text in the file, in the format of the file's ending, see
/// isCountFile(). A value that is no number becomes 0, one beyond the counts the nearest count.
void saveCounts(const std::filesystem::path& path, const cv::Mat_<float>& image, const CountScale& scale,
                bool force);
void savePng(const std::filesystem::path& path, const cv::Mat_<float>& image, const CountScale& scale,
             bool force);

/// Writes a picture as it is, as a PNG.
void savePicture(const std::filesystem::path& path, const cv::Mat& picture, bool force,
                 const std::vector<int>& settings = {});

/// Writes an 8-bit colour PNG for looking at; the colour map is one of vxsupport::colourMapNames().
void savePreview(const std::filesystem::path& path, const cv::Mat_<float>& image, const ValueRange& range,
                 const std::string& colourMap, bool force);

}  // namespace vxapp
