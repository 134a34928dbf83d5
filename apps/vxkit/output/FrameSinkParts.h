// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/vxkit/output/FrameSink.h"
#include "support/Pictures.h"

// What the sources of FrameSink and the table of formats share; not for other files.
namespace vxapp {

/// An output whose names have been checked.
struct SinkRequest
{
    const SequenceOptions& options;
    const std::vector<std::string>& names;  ///< one, or one for each frame
    SequenceShape shape;
    std::optional<vxsupport::ValueRange> range;  ///< of a video; empty: by what its frames hold
    bool follows = false;                        ///< a video without range follows the scene, frame by frame
};

// What the table of formats opens.
std::unique_ptr<FrameSink> openCsvSink(const SinkRequest& request);
#ifdef VXKIT_FITS
std::unique_ptr<FrameSink> openFitsSink(const SinkRequest& request);
#endif
#ifdef VXKIT_HDF5
std::unique_ptr<FrameSink> openHdf5Sink(const SinkRequest& request);
#endif
std::unique_ptr<FrameSink> openPgmSink(const SinkRequest& request);
std::unique_ptr<FrameSink> openPfmSink(const SinkRequest& request);
std::unique_ptr<FrameSink> openNpySink(const SinkRequest& request);
std::unique_ptr<FrameSink> openRawSink(const SinkRequest& request);
std::unique_ptr<FrameSink> openTiffSink(const SinkRequest& request);
std::unique_ptr<FrameSink> openPngSink(const SinkRequest& request);
std::unique_ptr<FrameSink> openVideoSink(const SinkRequest& request);     ///< in colours
std::unique_ptr<FrameSink> openLosslessSink(const SinkRequest& request);  ///< video of 16 bits

/// "300 frames of 160x120"
std::string framesText(const SequenceShape& shape);

}  // namespace vxapp
