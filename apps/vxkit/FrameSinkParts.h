#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "apps/vxkit/FrameSink.h"
#include "support/Pictures.h"

// What the sources of FrameSink share; not for other files.
namespace vxapp {

/// What the frames of a sink have in common.
struct SequenceShape
{
    cv::Size size;
    int frames;
};

/// TIFF of 16-bit pages.
std::unique_ptr<FrameSink> openTiffSink(const std::filesystem::path& path, bool force,
                                        const SequenceShape& shape);

/// Motion JPEG in an AVI file.
/// @param range  counts from black to white; empty: those of the first frame
std::unique_ptr<FrameSink> openVideoSink(const SequenceOptions& options, const SequenceShape& shape,
                                         std::optional<vxsupport::ValueRange> range);

/// "300 frames of 160x120"
std::string framesText(const SequenceShape& shape);

}  // namespace vxapp
