// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <opencv2/core/mat.hpp>

#include "core/base/PointF.h"
#include "support/scenes/SceneLayout.h"

namespace vxsupport {

/// Where the two grids lie: pixel (r, c) of the doubled grid covers a quarter of pixel (r / 2, c / 2) of the
/// small frame, so a small pixel's centre lies on the corner between four large ones. That is the geometry of
/// the super-resolution engine, and of interpolation with aligned edges (cv::resize).

/// The true picture on the doubled grid: the mean of the scene over each of its pixels, before any blur.
///
/// @param frame  size of the small frame; the result is twice as wide and high
/// @param shift  as in sampleFrame
cv::Mat_<float> sampleTruth(const FineScene& scene, cv::Size frame, PointF shift = {0.0F, 0.0F});

/// What an ideal sensor without noise measures: each sample is the sum of the displaced true picture's
/// pixels, weighted by a Gaussian point spread that is integrated over each of them.
///
/// @param shift     displacement in pixels of the small frame; positive means that the scene lies further
///                  right or lower than at shift 0
/// @param psfSigma  deviation of the point spread, in pixels of the doubled grid; above 0, at most
///                  maxPsfSigma
/// @throws std::invalid_argument if the scene's margin is too small (see requiredMargin) or sigma out of
///         range
cv::Mat_<float> sampleFrame(const FineScene& scene, cv::Size frame, PointF shift, double psfSigma);

/// The same for a motion that varies over the frame: sample q lies at q - d(q) of the scene. The point spread is
/// integrated over the scene's cells around each sample's own place; it does not turn with the camera.
///
/// @param motion  d(q) in pixels of the small frame, for whole pixels of it; called by several threads
cv::Mat_<float> sampleMovedFrame(const FineScene& scene, cv::Size frame,
                                 const std::function<cv::Point2d(int, int)>& motion, double psfSigma);

constexpr double maxPsfSigma = 4.0;

/// Whether a point spread of this deviation can be simulated.
inline bool isPsfSigma(double sigma)
{
    return sigma > 0.0 && sigma <= maxPsfSigma;
}

/// Margin that a scene needs for displacements of up to `largestShift` pixels.
int requiredMargin(double largestShift, double psfSigma);

}  // namespace vxsupport
