// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <string>

#include "support/Pictures.h"

namespace vxapp {

class Recording;

/// Where the frames of a processed recording go.
struct SequenceOptions
{
    std::string path;  ///< its ending tells the kind of file, see openFrameSink()
    std::string
        range{};  ///< counts that a video shows, "LOW:HIGH", "recording" or "follow"; empty: see below
    double framesPerSecond = 9.0;
    std::string colourMap = vxsupport::colourMapNames().front();
    bool force = false;
};

/// Takes the 16-bit frames of a processed recording in their order.
///
/// The files appear under their names with finish(), when all of them are complete; a sink that goes without
/// it leaves nothing behind. Every failure is a UsageError that names the file.
class FrameSink
{
public:
    virtual ~FrameSink() = default;

    /// Takes the next frame, of the recording's size.
    virtual void add(const cv::Mat_<std::uint16_t>& frame) = 0;
    /// @return what was written, for people
    virtual std::string finish() = 0;
};

/// Opens the output for as many frames of the same size as a recording has:
///
/// - .raw: one headerless file, unsigned 16-bit little-endian, row by row, frame after frame
/// - .tif, .tiff: one file of 16-bit pages
/// - .png: 16-bit files with the frame's number in the recording, "name-0000.png"; a single frame without it
/// - .mkv: a lossless video of 16 bits
/// - .mp4, .avi: a video in 8 bits and colours for looking at, small frames enlarged. Its range of counts may be
///   fixed, that of all frames ("recording"), or follow the scene over two seconds ("follow")
///
/// @param input  its files are never overwritten
/// @param videoRange  counts that a video shows where the options name none; empty (low not below high) for
///                    those of all frames
/// @throws UsageError if the ending is another, a name is an input or can't be written to, or the range is
///         empty
std::unique_ptr<FrameSink> openFrameSink(const SequenceOptions& options, const Recording& input,
                                         vxsupport::ValueRange videoRange = {0.0F, 0.0F});

}  // namespace vxapp
