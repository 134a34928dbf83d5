// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#include "enhancement/arithmetic/FrameView.h"

// What the temporal block and the temporal filter share: the recursion of a pixel and the global feedback.
namespace halvor::vx::temporal {

/// Percent to the hardware's scale, in which 2047 is the strongest feedback.
constexpr int alphaHw(int setting, bool hwUnits)
{
    return hwUnits ? setting : (setting << 11) / 100;
}

/// Tenths to the hardware's scale, in which 16 is a gain of 1.
constexpr int controlGainHw(int setting, bool hwUnits)
{
    return hwUnits ? setting : (setting << 4) / 10;
}

/// A global threshold of 100 switches the adaptation off.
constexpr bool globalOff(int threshold)
{
    return threshold == 100;
}

/// What the recursion of one frame needs, all in hardware units.
struct Recursion
{
    int controlGain;
    int alpha;
};

/// What the filter remembers of each pixel, in quarter steps of offset binary.
struct History
{
    int* data;
    std::size_t stride;  ///< in elements
    bool start;          ///< the frame is the first: the history is to begin with its samples
};

/// Filters a frame and updates its history; the result may replace the frame.
///
/// A pixel whose difference from the history reaches half the range passes unchanged and restarts there.
/// @return the motion in the frame: the sum of the difference indices above 50
std::int64_t filterFrame(const FrameView<int>& frame, const History& history, const Recursion& recursion);
std::int64_t filterFrame(const FrameView<short>& frame, const History& history, const Recursion& recursion);

/// The same, but marked pixels pass unchanged and leave a coarser history, and the results are bare 16-bit
/// patterns.
std::int64_t filterMarkedFrame(const FrameView<int>& frame, const History& history,
                               const Recursion& recursion);

/// The state, owned by the filter, that lets the feedback factor follow the motion of the whole picture.
struct Feedback
{
    int& alpha;
    int& globalError;
    bool& motionBelowThreshold;
    bool& motionLow;
};

struct FeedbackSettings
{
    int globalThreshold;
    int alpha;  ///< in hardware units
};

/// Adapts the feedback factor to the motion of the frame just filtered: down by 102 in a moving picture, up
/// by 4 in a quiet one, and never further than 205 from its setting.
///
/// @param pixelCount  of the frame, wrapped to 32 bits
void adapt(Feedback feedback, std::int64_t motion, int pixelCount, const FeedbackSettings& settings);

}  // namespace halvor::vx::temporal
