// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <opencv2/core/types.hpp>

#include "core/base/PointI.h"

namespace halvor::vx {

/// What two displaced frames of one size have in common, and what of the reference lies outside of it.
///
/// `reference`, `band` and `strip` tile the reference frame.
struct FrameOverlap
{
    cv::Rect reference;  ///< the common window in the reference frame
    cv::Rect frame;      ///< the same window in the displaced frame
    cv::Rect band;       ///< rows of the reference above or below the window, at full width
    cv::Rect strip;      ///< columns of the reference left or right of the window, at the window's rows
};

/// The overlap in one direction: first position in the reference and in the frame, and length.
struct AxisOverlap
{
    int reference;
    int frame;
    int length;
};

inline AxisOverlap axisOverlap(int extent, int shift)
{
    const int reachable = std::clamp(shift, -extent, extent);
    return reachable >= 0 ? AxisOverlap{0, reachable, extent - reachable}
                          : AxisOverlap{-reachable, 0, extent + reachable};
}

/// Overlap of a reference frame and a frame whose scene lies `shift` further right and lower.
///
/// Any shift is allowed: one of the frame's size or more leaves an empty window.
inline FrameOverlap overlapOf(const cv::Size& size, PointI shift)
{
    const AxisOverlap x = axisOverlap(size.width, shift.x);
    const AxisOverlap y = axisOverlap(size.height, shift.y);
    const int bandTop = y.reference == 0 ? y.length : 0;
    const int stripLeft = x.reference == 0 ? x.length : 0;
    return {{x.reference, y.reference, x.length, y.length},
            {x.frame, y.frame, x.length, y.length},
            {0, bandTop, size.width, size.height - y.length},
            {stripLeft, y.reference, size.width - x.length, y.length}};
}

}  // namespace halvor::vx
