// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <opencv2/core/types.hpp>
#include <vector>

#include "core/base/PointF.h"
#include "core/base/PointI.h"

// Displacements of frames in pixels: rounding, limits, and the move by the whole-pixel part.
namespace halvor::vx {

/// Nearest integer, halves upwards (-3.5 gives -3). Values beyond the integers stop at their ends; what is
/// not a number becomes the smallest integer, a displacement that lies outside every frame.
inline std::int32_t roundToPixel(double value)
{
    using Limits = std::numeric_limits<std::int32_t>;
    const double rounded = std::floor(value + 0.5);
    if (!(rounded > static_cast<double>(Limits::min())))
        return Limits::min();
    return rounded < static_cast<double>(Limits::max()) ? static_cast<std::int32_t>(rounded) : Limits::max();
}

inline PointI roundToPixels(PointF displacement)
{
    return {roundToPixel(displacement.x), roundToPixel(displacement.y)};
}

/// Whether both parts lie strictly between -limit and limit; false if one is not a number.
inline bool isWithin(PointF displacement, int limit)
{
    const auto bound = static_cast<float>(limit);
    return -bound < displacement.x && displacement.x < bound && -bound < displacement.y &&
           displacement.y < bound;
}

/// Number of displacements before the first that is not within the limit.
inline int countWithin(const PointF* displacements, int count, int limit)
{
    return static_cast<int>(std::find_if_not(displacements, displacements + count,
                                             [limit](PointF d) { return isWithin(d, limit); }) -
                            displacements);
}

/// A move of a frame by one linear offset on its flat array: target[i] = source[i + offset] for i from begin
/// up to end, and zero elsewhere.
///
/// A horizontal move carries pixels over the end of a row into the next one; those lie outside the window in
/// which a mask may be set.
struct FlatMove
{
    int begin;
    int end;
    int offset;  ///< 0 where nothing is left to move
};

inline FlatMove flatMoveOf(const cv::Size& size, PointI shift)
{
    const std::int64_t pixels = static_cast<std::int64_t>(size.width) * size.height;
    const std::int64_t offset = static_cast<std::int64_t>(shift.y) * size.width + shift.x;
    if (offset <= -pixels || offset >= pixels)
        return {0, 0, 0};
    return {static_cast<int>(std::max<std::int64_t>(-offset, 0)),
            static_cast<int>(pixels - std::max<std::int64_t>(offset, 0)), static_cast<int>(offset)};
}

/// Moves frames by the whole-pixel part of their displacements, bit for bit.
///
/// @param size           of every frame
/// @param frames, moved  `count` arrays each, none in common
/// @param usable         the frames from this index on are copied in place
/// @param displacements  of the frames; on return those below `usable` hold the sub-pixel remainder
void moveByWholePixels(const cv::Size& size, int count, const float* const* frames, int usable,
                       PointF* displacements, float* const* moved);

/// Ends a registration: keeps the measured displacements, and moves the frames by the whole pixels of theirs,
/// up to the first frame that is displaced by half the height or more in either direction.
///
/// @param size           of every frame
/// @param frames, moved  `count` arrays each, none in common; frames that are not moved are copied in place
/// @param displacements  of the frames; on return those of moved frames hold the sub-pixel remainder
/// @param complete       takes the displacements up to that frame; grows, but never shrinks
/// @return whether all frames were moved
bool settleDisplacements(const cv::Size& size, int count, const float* const* frames, PointF* displacements,
                         std::vector<PointF>& complete, float* const* moved);

}  // namespace halvor::vx
