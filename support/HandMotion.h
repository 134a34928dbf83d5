// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "core/base/PointF.h"
#include "support/Random.h"

namespace vxsupport {

/// How a hand-held camera moves between frames, in pixels of the small frame.
///
/// The tremor is a first-order autoregressive process for each axis with the deviations and the correlations
/// of neighbouring frames that were measured on a real thermal burst. The drift adds a random walk of whole
/// pixels.
struct HandMotion
{
    double deviationX = 0.30;
    double deviationY = 0.32;
    double correlationX = 0.51;
    double correlationY = 0.26;
    double drift = 0.0;  ///< deviation of the walk's step from frame to frame, before it is rounded
};

/// Positions of the frames; only their differences mean something.
std::vector<PointF> drawMotion(const HandMotion& motion, int frameCount, Random random);

/// Counts positions from that of one frame.
void makeRelative(std::vector<PointF>& positions, int reference);

/// Largest magnitude of a component.
double largestShift(const std::vector<PointF>& shifts);

}  // namespace vxsupport
