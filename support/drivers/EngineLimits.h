// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vxsupport {

/// What the drivers take beyond what the engines themselves refuse.
struct EngineLimits
{
    static constexpr int smallestWindow = 2;
    static constexpr int largestWindow = 64;
    static constexpr float largestMotionPsfSigma = 4.0F;
};

/// What the engines in fixed point take.
struct FixedPointLimits
{
    /// The right-hand side adds the frames up in 16 bits.
    static constexpr int largestWindow = 6;
    /// What the roundings leave of the residue. Steps below it go on in noise and, after a few, grow; a burst of
    /// little contrast reaches it before the residue asked for, so that the steps are bounded as well.
    static constexpr float smallestResidue = 0.002F;
    static constexpr int largestIterations = 12;
    /// Below, the smoothing term of a flat image leaves 16 bits.
    static constexpr float smallestWeight = 20.0F;
    static constexpr float largestWeight = 600.0F;
};

}  // namespace vxsupport
