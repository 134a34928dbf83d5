// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

#include "core/base/PointF.h"
#include "support/Burst.h"
#include "support/drivers/EngineKind.h"

namespace vxsupport {

/// What an engine made of a burst, at its own default settings.
struct EngineRun
{
    float result = 0.0F;  ///< achieved factor or code; the engines in fixed point tell no factor: code or 0
    cv::Mat_<float> image;
    std::vector<PointF> shifts;
    std::vector<cv::Mat_<unsigned char>> masks;
    int iterations = 0;  ///< conjugate-gradient steps
};

/// Runs an engine on a whole burst. What the engine writes to the standard output is dropped. The engines in fixed
/// point take hundredths of a kelvin, and the reference frame last: they align with the newest frame.
EngineRun runEngine(EngineKind kind, const std::vector<cv::Mat_<float>>& frames, int referenceFrame);

/// How far two runs on the same burst are apart.
struct Disagreement
{
    double shift = 0.0;       ///< largest difference of a displacement in x or y, pixels
    double masks = 0.0;       ///< share of the pixels of all frames that only one run used
    double image = 0.0;       ///< root of the mean squared difference of the images, kelvin
    double result = 0.0;      ///< difference of the achieved factors, where both tell one
    double iterations = 0.0;  ///< difference of the numbers of steps
};

Disagreement compareRuns(const EngineRun& a, const EngineRun& b);

/// How far a run is from the truth of a simulated burst.
struct RunError
{
    double shift = 0.0;  ///< largest error of a displacement in x or y, pixels
    double gain = 0.0;  ///< decibels over bicubic enlargement of the reference frame, 12 pixels off the edges
};

RunError compareWithTruth(const EngineRun& run, const Burst& burst, int referenceFrame);

/// The phase engine and its serial twin differ by the rounding of their sums alone.
inline constexpr Disagreement twinLimits{0.0001, 0.0001, 0.001, 0.0001, 0.0};

/// Tracked corners and phase correlation may start a frame from different whole pixels.
inline constexpr Disagreement siblingLimits{0.06, 0.005, 0.15, 0.005, 1.0};

/// Frames in whole hundredths of a kelvin, images in 16 bits, weights in a table, and shifts that add up from frame to
/// frame.
inline constexpr Disagreement fixedPointLimits{0.12, 0.02, 0.5, 0.0, 2.0};

/// The pipeline of the FPGA computes the bits of the plain solver.
inline constexpr Disagreement pipelineLimits{0.0, 0.0, 0.0, 0.0, 0.0};

/// What an engine is to reach on checkBurst(), with tracking that adds up from frame to frame in fixed point.
inline constexpr RunError truthLimits{0.06, 3.0};
inline constexpr RunError fixedPointTruthLimits{0.1, 3.0};

/// A burst of a good camera whose five displacements, the second of which is the reference, are spread over
/// the sub-pixel positions and over a few pixels.
Burst checkBurst(SceneKind kind, cv::Size frame, std::uint64_t seed);

/// The measures that exceed their limits, with both figures; empty if there are none. A figure that is not a
/// number exceeds.
std::vector<std::string> excesses(const Disagreement& found, const Disagreement& limits);
std::vector<std::string> excesses(const RunError& found, const RunError& limits);

}  // namespace vxsupport
