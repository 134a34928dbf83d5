// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace halvor::vx {

/// What the engines start with. The flat interface sets the same values, but for the two that are its own.
struct EngineDefaults
{
    /// Standard deviation of the sensor's point spread in pixels of the large image: an unknown camera's.
    static constexpr float psfSigma = 0.683F;
    /// The same where motion is local: too small a value costs little, too large a one decibels.
    static constexpr float motionPsfSigma = 0.4F;
    /// Inverse strength of the total-variation term.
    static constexpr float weightTV = 400.0F;
    /// Difference of neighbours, in standard deviations of the reference frame, below which the
    /// total-variation term is quadratic.
    static constexpr float epsilon = 0.1F;
    /// Relative residue at which a round of the solver ends.
    static constexpr float relativeResidue = 0.007F;
    /// Budget of conjugate-gradient steps for one image.
    static constexpr int maxCGIters = 8;
    /// Largest local registration error of a usable pixel, in squared pixels of displacement.
    static constexpr float regError = 0.0001F;
    /// Least maximum minus minimum of a frame with enough structure.
    static constexpr float minStructureThreshold = 2.0F;
    /// Position of the reference frame, counted back from the newest.
    static constexpr int referenceIndex = 0;

    /// The flat interface's window and reference frame.
    static constexpr int flatWindow = 5;
    static constexpr int flatReferenceIndex = 3;
    /// Enlargement in each direction that all engines are made for.
    static constexpr float enlargement = 2.0F;
};

}  // namespace halvor::vx
