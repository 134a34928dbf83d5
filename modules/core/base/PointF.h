// SPDX-License-Identifier: Apache-2.0
#pragma once

/// Displacement in pixels.
struct PointF
{
    float x;  ///< to the right
    float y;  ///< downwards
};
