// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace halvor::vx {

/// What the engine of local motion works with. Lengths are in frame pixels unless told otherwise, strengths in
/// deviations of the noise.
struct MotionSettings
{
    // Smoothing: it hides the aliasing, in which even well registered frames differ.
    static constexpr double registrationBlur = 1.7;
    static constexpr double coarseBlur = 1.0;  ///< on the small levels of the pyramid, in their pixels
    static constexpr int leastLevel = 40;      ///< a level with a side of at most this is the last

    // Control points of the motion.
    static constexpr int pointSpacing = 16;
    static constexpr double pointDeviation = 0.05;  ///< by which the motions of neighbours differ
    static constexpr double pointDamping = 1e-4;    ///< of the prior, on a point's step
    static constexpr int pointSteps = 6;
    static constexpr float pointTolerance = 0.002F;  ///< steps end when none is larger

    // Weights.
    static constexpr double detailBlur = 0.7;     ///< leaves the detail that a registration error disturbs
    static constexpr double excessBlur = 5.0;     ///< neighbourhood in which such errors are measured
    static constexpr float excessFactor = 16.0F;  ///< by which they count more than noise
    static constexpr float leastWeight = 0.02F;   ///< smaller weights are 0
    static constexpr double offsetBlur = 12.0;    ///< offsets between frames are smoother than this

    // The solve.
    static constexpr int border = 8;  ///< picture pixels solved for beyond each edge: frames see more
    static constexpr float priorSingle = 0.1F;
    static constexpr float priorMany = 0.05F;
    static constexpr float priorFewer = 0.1F;  ///< by which it grows if only the reference counts
    static constexpr float priorBend = 5.0F;   ///< differences of neighbours up to this count by their square
    static constexpr int rounds = 2;           ///< in which the prior's slopes are taken anew
    static constexpr int steps = 10;           ///< of conjugate gradients per round
};

}  // namespace halvor::vx
