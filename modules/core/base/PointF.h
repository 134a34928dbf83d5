#pragma once

/// Displacement in pixels.
struct PointF
{
    float x;
    float y;
};
