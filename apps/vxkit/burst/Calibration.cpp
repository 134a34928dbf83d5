// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/burst/Calibration.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "apps/vxkit/burst/RadianceCalibration.h"
#include "apps/vxkit/terminal/Failure.h"
#include "enhancement/superresolution/engine/PixelValues.h"

namespace vxapp {

namespace {

using halvor::vx::temperatureLimits;

// Counts are divided by a power of two, so that no bit is lost either way: 65535 / 16 lies below the upper
// limit.
constexpr double countsPerStep = 16.0;
constexpr double largestSigned = 32767.0;

cv::Mat_<float> scaled(const cv::Mat_<float>& frame, double scale, double offset)
{
    cv::Mat_<float> result(frame.size());
    std::transform(frame.begin(), frame.end(), result.begin(), [=](float value) {
        return halvor::vx::isPixelMarker(value)
                   ? value
                   : static_cast<float>(static_cast<double>(value) * scale + offset);
    });
    return result;
}

double finiteOption(const std::string& option, std::optional<double> value, double fallback)
{
    if (value && !std::isfinite(*value)) {
        std::ostringstream text;
        text << option << ' ' << *value << ": expected a finite number";
        throw UsageError(text.str());
    }
    return value.value_or(fallback);
}

}  // namespace

Calibration::Calibration(std::optional<double> scale, std::optional<double> offset, bool framesAreFloats)
    : kind_(scale || offset   ? Kind::linear
            : framesAreFloats ? Kind::floatsAsTheyAre
                              : Kind::countsAsTheyAre),
      scale_(finiteOption("--scale", scale, 1.0)),
      offset_(finiteOption("--offset", offset, 0.0))
{
    if (scale_ == 0.0)
        throw UsageError("--scale 0: expected degrees per count, not 0");
}

Calibration Calibration::signedCounts(std::optional<double> scale, std::optional<double> offset,
                                      double largestCount)
{
    Calibration calibration(scale, offset, false);
    calibration.kind_ = calibration.kind_ == Kind::linear ? Kind::signedCountsToDegrees : Kind::signedCounts;
    calibration.bias_ = largestCount > largestSigned ? largestSigned + 1.0 : 0.0;
    return calibration;
}

cv::Mat_<float> Calibration::toEngine(const cv::Mat_<float>& frame) const
{
    switch (kind_) {
        case Kind::linear:
            return scaled(frame, scale_, offset_);
        case Kind::countsAsTheyAre:
            return scaled(frame, 1.0 / countsPerStep, 0.0);
        case Kind::signedCounts:
        case Kind::signedCountsToDegrees:
            return scaled(frame, 1.0, -bias_);
        default:
            return frame;
    }
}

cv::Mat_<float> Calibration::fromEngine(const cv::Mat_<float>& image) const
{
    switch (kind_) {
        case Kind::countsAsTheyAre:
            return scaled(image, countsPerStep, 0.0);
        case Kind::signedCounts:
        case Kind::signedCountsToDegrees:
            return scaled(image, scale_, bias_ * scale_ + offset_);
        default:
            return image;
    }
}

Unit Calibration::unit() const
{
    return kind_ == Kind::countsAsTheyAre || kind_ == Kind::signedCounts ? Unit::counts : Unit::degrees;
}

std::string Calibration::description() const
{
    switch (kind_) {
        case Kind::linear:
            return "degrees: " + scaleText({scale_, offset_});
        case Kind::countsAsTheyAre:
            return "no --scale or --offset: results are counts; the engine works on count / 16";
        case Kind::byEngine:
            return "raw counts become radiance by --radiance";
        case Kind::signedCounts:
        case Kind::signedCountsToDegrees:
            return (kind_ == Kind::signedCounts ? "results are counts"
                                                : "results are degrees: " + scaleText({scale_, offset_})) +
                   std::string(bias_ == 0.0 ? "; the engine works on the counts"
                                            : "; the engine works on count - 32768");
        default:
            return "floats are taken as degrees";
    }
}

void Calibration::requirePlausible(const cv::Mat_<float>& fed, const std::string& name) const
{
    if (kind_ == Kind::byEngine)
        return requireSignedCounts(fed, name);
    if (kind_ == Kind::signedCounts || kind_ == Kind::signedCountsToDegrees)
        return;  // every count has a place
    const auto outside = std::count_if(fed.begin(), fed.end(), [](float value) {
        return std::isfinite(value) &&
               (value < temperatureLimits.lowest || value > temperatureLimits.highest);
    });
    const double share = static_cast<double>(outside) / static_cast<double>(fed.total());
    if (share <= largestDefectShare)
        return;
    std::ostringstream text;
    text << name << ": " << std::lround(share * 100.0) << " % of the values lie outside of "
         << temperatureLimits.lowest << " to " << temperatureLimits.highest
         << " degrees, which the engine takes for defects; expected --scale and --offset that give degrees";
    throw UsageError(text.str());
}

}  // namespace vxapp
