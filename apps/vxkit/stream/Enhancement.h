// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <optional>

#include "apps/vxkit/stream/BadPixels.h"
#include "apps/vxkit/stream/ChainSettings.h"
#include "apps/vxkit/stream/LookStage.h"
#include "apps/vxkit/stream/SampleScale.h"
#include "apps/vxkit/stream/Survey.h"
#include "enhancement/MARLOImageEnhancer.h"

namespace vxapp {

class Recording;

/// What is told about how a recording is to be enhanced.
struct EnhancementOptions
{
    ScaleOptions scale;
    ChainOptions chain;
    BadPixelOptions badPixels;
    LookReach reach;
};

/// The way of one recording through bad pixels, chain and look, frame by frame.
///
/// settle() comes first, then measure() with all frames if runsTwice(), then enhance() with the same frames.
class Enhancement
{
public:
    /// Checks all that can be checked without processing a frame.
    /// @param recording  is looked through where a scale is to be chosen
    /// @throws UsageError if an option or the frames' size is out of range
    Enhancement(Recording& recording, const EnhancementOptions& options);

    SampleScale& scale() { return scale_; }
    /// Whether enhanced frames are 0 to topLevel; else they are samples of the scale.
    bool isEqualised() const { return settings_.histMode != 0; }
    bool runsTwice() const { return tone_.has_value(); }
    const ChainSettings& settings() const { return settings_; }
    const std::optional<ToneSettings>& tone() const { return tone_; }

    /// Chooses settings by the recording's noise, and takes its bad pixels. Starts anew.
    void settle(const Survey& found);

    /// First run: how the look spreads what the chain makes of the next frame.
    void measure(const cv::Mat_<short>& samples);
    /// Second run: the next frame.
    void enhance(const cv::Mat_<short>& samples);

    const cv::Mat_<short>& enhanced() const { return enhanced_; }
    /// The chain of the second run, with its stages' images; there from the first enhance() on.
    const halvor::vx::MARLOImageEnhancer& chain() const { return *chain_; }

private:
    void process(const cv::Mat_<short>& samples);

    ChainOptions options_;
    LookReach reach_;
    cv::Size size_;
    SampleScale scale_;
    ChainSettings settings_;
    std::optional<ToneSettings> tone_;
    BadPixelMender mender_;
    std::optional<LookStage> stage_;
    std::optional<halvor::vx::MARLOImageEnhancer> chain_;
    bool isMeasuring_ = false;
    int shown_ = 0;
    cv::Mat_<short> mended_, enhanced_;
};

}  // namespace vxapp
