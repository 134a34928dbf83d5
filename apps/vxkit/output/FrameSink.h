// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bit>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <string>

#include "apps/vxkit/formats/SampleType.h"
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
    std::string format{};  ///< name of a format (see FileFormat); empty for that of the ending
    std::endian order = std::endian::little;  ///< of headerless frames
    bool isChecked = false;  ///< the name of a single file has been given to the run's files before
};

/// What the frames of a sink have in common.
struct SequenceShape
{
    cv::Size size;
    int frames;
    SampleType samples = SampleType::u16;
};

/// Takes the frames of a processed recording in their order.
///
/// The files appear under their names with finish(), when all of them are complete; a sink that goes without
/// it leaves nothing behind. Every failure is a UsageError that names the file.
class FrameSink
{
public:
    virtual ~FrameSink() = default;

    /// Takes the next frame, of the shape with which the sink was opened, in the storage of its samples (see
    /// SampleFacts): CV_16UC1 unless another type was asked for.
    virtual void add(const cv::Mat& frame) = 0;
    /// @return what was written, for people
    virtual std::string finish() = 0;
};

/// Opens the output for as many 16-bit frames of the same size as a recording has: of a kind of file that the
/// table of formats has a sink for (see sequenceHelp()). A kind with one file for each frame puts the frame's
/// number in the recording into the name, "name-0000.png"; a single frame goes without.
/// A video in colours shows counts of a range that may be fixed, that of all frames ("recording"), or follow the
/// scene over two seconds ("follow").
///
/// @param input  what its run reads is never overwritten
/// @param videoRange  counts that a video shows where the options name none; empty (low not below high) for
///                    those of all frames
/// @throws UsageError if the ending is another, a name is an input or can't be written to, or the range is
///         empty
std::unique_ptr<FrameSink> openFrameSink(const SequenceOptions& options, const Recording& input,
                                         vxsupport::ValueRange videoRange = {0.0F, 0.0F});

/// The same for frames of a shape of their own.
/// @throws UsageError also if the kind of file does not hold samples of the type
std::unique_ptr<FrameSink> openFrameSink(const SequenceOptions& options, const Recording& input,
                                         const SequenceShape& shape,
                                         vxsupport::ValueRange videoRange = {0.0F, 0.0F});

}  // namespace vxapp
