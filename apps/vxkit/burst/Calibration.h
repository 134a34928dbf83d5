// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <optional>
#include <string>

#include "apps/vxkit/output/Output.h"
#include "support/drivers/BurstEngine.h"

namespace vxapp {

using vxsupport::largestDefectShare;

/// How the values of a recording become the degrees Celsius that a super-resolution engine expects, and how
/// its results are read.
///
/// - With a scale or an offset: degrees = value * scale + offset, and results are degrees.
/// - 16-bit counts without either: the engine takes values outside of -274 to 5000 for defects, which would
///   hit most sensors' counts. It is fed count / 16, within the limits for every count, and results are
///   turned back into counts; both steps are exact. The solver works on normalised frames, so the factor
///   changes no result beyond its last bits.
/// - Floats without either are fed as they are, bit by bit.
/// - Raw counts that the engine calibrates by itself are fed as they are, and results are radiance.
/// - The engines in fixed point take whole counts of signed 16 bits: the recording's, or these less 32768 if a count
///   is above 32767. A scale and an offset only turn their results into degrees.
///
/// Bad-pixel markers (bit patterns 0x81, 0x82, 0x84, 0x85) are never scaled.
class Calibration
{
public:
    /// @throws UsageError if a number is not finite, or the scale is 0
    Calibration(std::optional<double> scale, std::optional<double> offset, bool framesAreFloats);

    /// For an engine with a radiance calibration of its own.
    static Calibration byEngine() { return Calibration(Kind::byEngine, 1.0, 0.0); }

    /// For an engine in fixed point.
    /// @param largestCount  of the recording
    /// @throws UsageError as the constructor
    static Calibration signedCounts(std::optional<double> scale, std::optional<double> offset,
                                    double largestCount);

    cv::Mat_<float> toEngine(const cv::Mat_<float>& frame) const;
    cv::Mat_<float> fromEngine(const cv::Mat_<float>& image) const;

    /// Unit of what fromEngine() gives.
    Unit unit() const;
    /// What was assumed, in one line for people.
    std::string description() const;

    /// Refuses a frame of which so much lies outside of the engine's limits that the calibration must be
    /// wrong. Frames for the engine's own calibration must hold its whole counts.
    /// @param fed   a frame as toEngine() gives it
    /// @param name  the frame's name
    void requirePlausible(const cv::Mat_<float>& fed, const std::string& name) const;

private:
    enum class Kind
    {
        linear,
        countsAsTheyAre,
        floatsAsTheyAre,
        byEngine,
        signedCounts,
        signedCountsToDegrees,
    };

    Calibration(Kind kind, double scale, double offset) : kind_(kind), scale_(scale), offset_(offset) {}

    Kind kind_;
    double scale_;
    double offset_;
    double bias_ = 0.0;  // what the counts of an engine in fixed point are less by
};

}  // namespace vxapp
