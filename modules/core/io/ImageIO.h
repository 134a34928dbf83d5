// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fstream>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <string>

#include "core/base/Export.h"

namespace halvor::vx {

/// Writes single-channel float images as PFM (portable float map, "Pf", little-endian, bottom row first).
///
/// An open stream takes any number of frames, one complete image after the other; a reader that knows single
/// images sees the first. Copies share the open stream. Values are written bit by bit, so markers and
/// not-a-numbers survive.
class VXKIT_API ImageIO
{
public:
    /// The one format there is: 32-bit floats.
    static constexpr int pfm = 2;

    /// @param format  must be `pfm`; anything else raises an Exception
    explicit ImageIO(int format);

    /// Opens a new stream, replacing an existing file, and closes the one before.
    /// @return false if the file can't be written
    bool open(const std::string& path);
    /// Whether frames have a stream to go to.
    bool isOpen() const;
    /// Closes the stream for all copies that share it; does nothing without one.
    void close();

    /// Appends a frame; without an open stream, nothing happens.
    ImageIO& operator<<(const cv::Mat_<float>& frame);

    /// Writes a file with one image.
    /// @return false if the file can't be written; an unknown format raises an Exception
    static bool save(const std::string& path, const cv::Mat_<float>& image, int format);

private:
    std::shared_ptr<std::ofstream> stream_;
};

}  // namespace halvor::vx
