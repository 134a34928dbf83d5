// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/base/PointF.h"
#include "support/Defects.h"
#include "support/HandMotion.h"
#include "support/scenes/Scenes.h"

namespace vxsupport {

/// A long recording: a fixed or hand-held camera, a still background, a warm subject that moves, and the
/// noise and patterns of an uncooled sensor.
struct StreamSettings
{
    SceneSettings scene;
    int frameCount = 100;
    std::uint64_t seed = 1;   ///< motion, noise, patterns and defects; the scene has a seed of its own
    double psfSigma = 0.683;  ///< pixels of the doubled grid
    double netd = 0.05;       ///< deviation of the temporal noise, kelvin

    // Deviations of the fixed pattern's parts, kelvin.
    double columnOffset = 0.15;
    double rowOffset = 0.08;
    double pixelOffset = 0.10;
    double patternPeriod = 0.0;  ///< frames in which every offset drifts away and comes back; 0: none drifts
    double levelDrift = 0.0;     ///< kelvin by which everything rises from frame to frame
    DefectSettings defects;

    HandMotion motion{.deviationX = 0.0, .deviationY = 0.0};  ///< at rest, as on a tripod
    bool subject = true;
    double subjectSpeed = 0.7;  ///< pixels of the small frame per frame
};

/// Gives the frames of a recording in any order; the same settings give the same bits on every machine and
/// with any number of threads.
class StreamSimulator
{
public:
    /// @throws std::invalid_argument if a setting is out of range; the text names it
    explicit StreamSimulator(const StreamSettings& settings);

    int frameCount() const { return settings_.frameCount; }

    /// What an ideal sensor would measure, degrees Celsius: no noise, pattern, drift of the level or defects.
    ///
    /// @param index  0 to frameCount() - 1
    cv::Mat_<float> ideal(int index) const;

    /// What the simulated sensor gives, degrees Celsius but for marked defects.
    cv::Mat_<float> frame(int index) const;

    /// The fixed pattern as it is at a frame, kelvin.
    cv::Mat_<float> pattern(int index) const;

    /// Displacement of a frame against frame 0; positive when the scene lies further right or lower.
    PointF shift(int index) const;

    /// Pixels that the subject touches in a frame; empty when it is out of view.
    cv::Rect subjectArea(int index) const;

    const std::vector<cv::Point>& defects() const { return defects_; }

private:
    SceneLayout subjectLayout(int index, const SceneArea& area, cv::Point2d origin) const;

    StreamSettings settings_;
    std::vector<PointF> shifts_;
    FineScene scene_;
    cv::Mat_<float> background_;  // undisplaced and without the subject
    cv::Mat_<float> firstPattern_;
    cv::Mat_<float> secondPattern_;  // what the first turns into after a quarter of the period
    std::vector<cv::Point> defects_;
    double low_ = 0.0;
    double high_ = 0.0;
};

}  // namespace vxsupport
