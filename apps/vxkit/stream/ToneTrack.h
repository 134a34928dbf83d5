// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

#include "apps/vxkit/stream/ToneCurve.h"

namespace vxapp {

/// The tone curves of a recording, smoothed over time so that the picture doesn't flicker.
///
/// The curve of a frame is the mean of those around it, sample by sample at each share of the display. Each is
/// first moved by how far the level of the whole picture lies from its own frame's, the median of what pixels
/// change by: when a camera's level drifts or steps, the picture stands still.
class ToneTrack
{
public:
    /// @param behind, ahead  frames that take part before and behind a frame, with falling weights
    ToneTrack(const ToneSettings& settings, int behind, int ahead);

    /// Takes the next frame of the recording.
    void add(const cv::Mat_<int>& frame);
    int count() const { return static_cast<int>(moments_.size()); }

    /// The curve of a frame, of those taken so far.
    ToneCurve at(int frame) const;

private:
    struct Moment
    {
        ToneCurve::Samples samples;
        double level;  // less that of the first frame
    };

    ToneSettings settings_;
    int behind_;
    int ahead_;
    std::vector<Moment> moments_;
    cv::Mat_<int> last_, changes_;
};

}  // namespace vxapp
