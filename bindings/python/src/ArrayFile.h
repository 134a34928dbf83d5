// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "apps/vxkit/input/Recording.h"
#include "bindings/python/src/Arrays.h"

namespace vxpy {

/// A frame as files give it: without gaps between rows, which engines take by their address; numbers that no image holds
/// as doubles.
cv::Mat storedImage(const FrameView& view);

/// A recording as Python holds it: one call at a time, from any thread. To be released with the interpreter lock held,
/// since its frames may be arrays.
struct SharedRecording
{
    explicit SharedRecording(const vxapp::RecordingOptions& options) : recording(options) {}
    SharedRecording(std::unique_ptr<vxapp::FrameFile> frames, const std::string& name)
        : recording(std::move(frames), name)
    {}

    vxapp::Recording recording;
    std::mutex mutex;
};

/// The recording of a vxkit.Recording, or one on the memory of arrays.
/// @param what  what arrays are called in messages
std::shared_ptr<SharedRecording> recordingOf(const py::object& frames, const std::string& what);

}  // namespace vxpy
