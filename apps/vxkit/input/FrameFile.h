// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <opencv2/core/mat.hpp>
#include <optional>
#include <string>

namespace vxapp {

/// Size of a frame and its OpenCV type: CV_16UC1 (counts) or CV_32FC1 (values).
struct FrameShape
{
    cv::Size size;
    int type;
};

/// A file that holds one frame or several. It is opened for each reading, so that any number may be listed.
///
/// Every failure is a UsageError that names the file, and the frame if it holds several.
class FrameFile
{
public:
    virtual ~FrameFile() = default;

    virtual int frameCount() const = 0;
    /// The shape of all frames, where the file tells it without decoding them.
    virtual std::optional<FrameShape> shapeOfAll() const = 0;
    /// Reads a frame of 16-bit counts or 32-bit floats, the floats bit by bit.
    virtual cv::Mat read(int index) = 0;
};

/// Opens a PNG, TIFF (all of its pages), PGM or PFM file (or stream of several PFM images), told apart by
/// their first bytes.
std::unique_ptr<FrameFile> openImageFile(const std::string& path);

/// Opens a headerless recording: unsigned 16-bit little-endian counts, row by row, frame after frame.
std::unique_ptr<FrameFile> openRawFile(const std::string& path, cv::Size size);

}  // namespace vxapp
