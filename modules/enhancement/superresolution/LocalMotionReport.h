// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "core/base/PointF.h"

namespace halvor::vx {

/// What a picture was made of, and why.
enum class BurstOutcome
{
    severalFrames,  ///< of all frames that count somewhere
    oneFrame,       ///< of the reference alone: the window holds no other frame
    noFrameFits,    ///< of the reference alone: what the other frames show cannot be brought onto it
    onePosition,    ///< of the reference alone: the frames see the scene from one and the same position
};

/// What an engine of local motion tells of its last picture, without knowing the truth.
struct LocalMotionReport
{
    /// One frame of the window.
    struct Frame
    {
        bool isReference;  ///< the frame on whose grid the picture lies
        bool fits;         ///< a motion against the reference was found
        PointF shift;  ///< its mean over the frame, in frame pixels; positive: scene further right or lower
        float largestLocal;  ///< largest distance of a pixel's motion from that mean, in frame pixels
        float weight;        ///< mean over the frame, 0 to 1: by how much it counts
    };

    /// What the picture was made of.
    BurstOutcome outcome = BurstOutcome::oneFrame;
    float noise = 0.0F;            ///< deviation of the frames' noise, in their unit
    float effectiveFrames = 1.0F;  ///< mean over the picture: 1 if only the reference counts
    float positions = 1.0F;        ///< different sub-pixel positions that these give, 1 to 4
    /// Expected gain of several frames over the reference alone, in dB; 0 where only that was used. An estimate
    /// from what the reference alone does not predict of the other frames: see docs/when-does-a-burst-pay.md.
    float predictedGain = 0.0F;
    std::vector<Frame> frames;  ///< oldest first
};

}  // namespace halvor::vx
