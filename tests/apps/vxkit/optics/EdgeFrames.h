// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstdint>

#include "support/Random.h"
#include "support/Sensor.h"
#include "support/SensorNoise.h"
#include "support/scenes/SceneLayout.h"

/// A frame of 48x40 pixels with an edge of 10 kelvin through a place near its middle.
///
/// @param degrees   turn of the edge against the columns, counter-clockwise
/// @param psfSigma  in pixels of the doubled grid
inline cv::Mat_<float> edgeFrame(double degrees, double psfSigma, double noise, std::uint64_t seed = 1)
{
    const cv::Size size(48, 40);
    const double turn = degrees * 3.14159265358979323846 / 180.0;
    const cv::Point2d normal(std::cos(turn), -std::sin(turn));
    const cv::Point2d middle(24.3, 20.1);
    vxsupport::SceneLayout layout({size, vxsupport::requiredMargin(0.0, psfSigma)});
    vxsupport::Paint warm;
    warm.temperature = 30.0;
    layout.addTurnedBox(middle + 200.0 * normal, {200.0, 400.0}, normal, warm);
    cv::Mat_<float> frame = vxsupport::sampleFrame(layout.render(20.0), size, {0.0F, 0.0F}, psfSigma);
    vxsupport::addNoise(frame, noise, vxsupport::Random(seed));
    return frame;
}
