// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <optional>
#include <vector>

#include "apps/vxkit/stream/ToneTrack.h"
#include "enhancement/MARLOImageEnhancer.h"

namespace vxapp {

/// How far a look sees in time, in frames.
struct LookReach
{
    int behind = 5;
    int ahead = 5;
};

/// The stage of a look behind the noise blocks of a chain, in place of its equaliser. A recording runs through the
/// chain twice: once to find the curves, once to be shown.
class LookStage
{
public:
    LookStage(const ToneSettings& tone, const LookReach& reach)
        : tone_(tone), track_(tone, reach.behind, reach.ahead)
    {}

    /// First run: takes what the chain has made of the next frame.
    void measure(const halvor::vx::MARLOImageEnhancer& chain);
    /// Second run: spreads the chain's cleaned frame by its curve and peaks it. The chain's images and curve are
    /// replaced by what the stage has made, so that a contact sheet shows it.
    /// @param index     of the frame in the order of measure()
    /// @param enhanced  0 to topLevel, created at the size of the frame
    void apply(int index, halvor::vx::MARLOImageEnhancer& chain, cv::Mat_<short>& enhanced);

private:
    void holdEnds(const cv::Mat_<int>& spread, cv::Mat_<int>& peaked) const;
    void show(const ToneCurve& curve, halvor::vx::MARLOImageEnhancer& chain) const;
    std::vector<double> slopes(const ToneCurve& curve) const;

    ToneSettings tone_;
    ToneTrack track_;
};

}  // namespace vxapp
