// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace halvor::vx {

/// Sums over an image region of the products of its horizontal (x) and vertical (y) gradients.
struct StructureSums
{
    double xx = 0.0;
    double xy = 0.0;
    double yy = 0.0;

    StructureSums& operator+=(const StructureSums& other)
    {
        xx += other.xx;
        xy += other.xy;
        yy += other.yy;
        return *this;
    }

    StructureSums operator-(const StructureSums& other) const
    {
        return {xx - other.xx, xy - other.xy, yy - other.yy};
    }
};

/// A sub-pixel displacement in pixels, and what turns a squared grey-value error into a squared error of it.
struct GradientStep
{
    float dx;
    float dy;
    float norm;
};

/// One Gauss-Newton step on the brightness constancy equation (Lucas and Kanade, 1981).
///
/// @param structure  of the reference over the overlap
/// @param bx, by     sums over the overlap of gradient times (frame - reference)
/// A structure without a unique solution follows the rules of floating-point division.
inline GradientStep solveGradientStep(const StructureSums& structure, double bx, double by)
{
    const double a = structure.xx;
    const double b = structure.xy;
    const double c = structure.yy;
    const double det = a * c - b * b;
    return {static_cast<float>((b * by - c * bx) / det), static_cast<float>((b * bx - a * by) / det),
            static_cast<float>(1.0 / (a + c))};
}

/// The squared error that a step leaves at one pixel, in squared pixels of displacement.
inline float stepError(const GradientStep& step, float gradX, float gradY, float reference, float frame)
{
    const float left = gradX * step.dx + gradY * step.dy + frame - reference;
    return left * left * step.norm;
}

}  // namespace halvor::vx
