// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>
#include <vector>

#include "core/base/PointF.h"
#include "support/Defects.h"
#include "support/HandMotion.h"
#include "support/scenes/Scenes.h"

namespace vxsupport {

/// A short recording with a hand-held camera of a scene that is still, but for a subject.
///
/// Where the camera turns, or the scene has depth, the motion varies over the frame: see burstMotion().
struct BurstSettings
{
    SceneSettings scene;
    int frameCount = 5;
    int reference = 1;       ///< frame on whose grid the truth lies; the engine's own choice of five frames
    std::uint64_t seed = 1;  ///< motion, noise, offsets and defects; the scene has a seed of its own
    HandMotion motion;       ///< ignored where `shifts` is given
    std::vector<PointF> shifts;  ///< displacement of each frame, relative to the reference; empty: draw them
    double turn = 0.0;  ///< deviation of a frame's angle about its middle against the reference, radians
    double parallax =
        0.0;  ///< how much more than the far scene its nearest part moves, as a share of the shift
    bool subject = false;       ///< somebody walks through the scene, or a hand passes
    double subjectSpeed = 2.0;  ///< pixels of the small frame per frame
    double psfSigma = 0.683;    ///< pixels of the doubled grid
    double netd = 0.05;         ///< deviation of the temporal noise, kelvin
    double columnOffset = 0.0;  ///< deviation of the columns' fixed offsets, kelvin
    double pixelOffset = 0.0;   ///< deviation of the pixels' fixed offsets, kelvin
    DefectSettings defects;
};

struct Burst
{
    std::vector<cv::Mat_<float>> frames;  ///< degrees Celsius, but for marked defects
    std::vector<PointF> shifts;  ///< positive: the scene lies further right or lower than in the reference
    cv::Mat_<float> truth;       ///< doubled grid of the reference frame, without blur and noise
    std::vector<double> turns;   ///< angle of each frame, radians
    std::vector<cv::Point> defects;  ///< defect pixels, the same in each frame
};

/// Motion of a frame's pixel (x, y) in pixels: the shift, more of it where the scene is near, and a turn about the
/// frame's middle. The scene is nearest in the middle of the frame, and far along its left and right edges.
cv::Point2d burstMotion(const BurstSettings& settings, PointF shift, double turn, int x, int y);

/// Simulates a burst; the same settings give the same bits on every machine and with any number of threads.
///
/// @throws std::invalid_argument if a setting is out of range; the text names it
Burst simulateBurst(const BurstSettings& settings);

}  // namespace vxsupport
