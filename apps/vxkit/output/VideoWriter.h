// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <opencv2/core/mat.hpp>

#include "apps/files/OutputFile.h"

namespace vxapp {

enum class VideoKind
{
    lossless,    ///< FFV1 in Matroska, 16 bits of grey: every bit is kept and guarded by checksums
    h264,        ///< in MP4, where the encoder is there, else MPEG-4 Part 2
    motionJpeg,  ///< in AVI, which the oldest players show
};

/// Encodes pictures of one size as a video file.
///
/// Every failure, that of a full disk included, is a WriteError that names the file.
class VideoWriter
{
public:
    /// Opens the file's temporary name.
    /// @param size  of all pictures; the kinds of 8 bits repeat the last column and row of odd sizes, since
    ///              they hold colours for two by two pixels
    /// @param framesPerSecond  0.1 to 1000
    VideoWriter(const vxfiles::OutputFile& file, VideoKind kind, cv::Size size, double framesPerSecond);
    ~VideoWriter();
    VideoWriter(const VideoWriter&) = delete;
    VideoWriter& operator=(const VideoWriter&) = delete;

    /// Takes the next picture: one channel of 16 bits for the lossless kind, blue, green and red of 8 bits else.
    void add(const cv::Mat& picture);
    /// Completes the file, which the caller commits then.
    void finish();

private:
    class Encoder;
    std::unique_ptr<Encoder> encoder_;
};

}  // namespace vxapp
