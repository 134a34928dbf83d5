// SPDX-License-Identifier: Apache-2.0
#include "bindings/c/SuperresObject.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <optional>
#include <string_view>
#include <utility>

#include "bindings/c/Failure.h"
#include "bindings/c/Images.h"
#include "core/diagnostics/OutputSink.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "enhancement/superresolution/engine/PixelValues.h"
#include "support/drivers/BurstEngine.h"

namespace vxc {

namespace {

using vxsupport::BurstAnswer;
using vxsupport::BurstEngine;
using vxsupport::BurstMotion;
using vxsupport::EngineKind;
using vxsupport::RadianceCalibration;
using vxsupport::SuperresSettings;

constexpr int smallestSide = 8;

bool isNamed(const Kind& kind, std::string_view name)
{
    return kind.name == name;
}

EngineKind engineOf(const Kind& kind)
{
    if (isNamed(kind, "phase"))
        return EngineKind::phase;
    if (isNamed(kind, "reference"))
        return EngineKind::reference;
    if (isNamed(kind, "fixed-point"))
        return EngineKind::fixed;
    if (isNamed(kind, "fixed-point-fpga"))
        return EngineKind::fpga;
    return EngineKind::production;
}

class SuperresObject : public Object
{
public:
    SuperresObject(const Kind& kind, cv::Size frame);

    void addFrame(const vxkit_image& frame, vxkit_burst_report& report) override;
    vxkit_frame_report frameReport(int index) const override;
    void calibrate(const CalibrationImages& images) override;
    cv::Mat result(const std::string& name) const override;

private:
    void open() override;
    void close() noexcept override;
    double effectiveNumber(std::size_t index) const override;

    SuperresSettings engineSettings() const;
    BurstMotion motion() const;
    bool isFixedPoint() const { return kind().input == VXKIT_I16; }
    bool takesCounts() const { return isFixedPoint() || radiance_; }
    cv::Mat_<short> calibrationCounts(const vxkit_image* image, const char* what) const;
    cv::Mat_<float> calibrationRadiance(const vxkit_image* image, const char* what) const;
    const cv::Mat_<float>& engineFrame(const cv::Mat& frame);

    std::optional<RadianceCalibration> radiance_;
    std::unique_ptr<BurstEngine> engine_;
    cv::Mat_<float> input_;
    cv::Mat_<float> copy_;   // of frames that an engine does not take as they lie
    bool hasImage_ = false;  // the engine keeps it
    BurstAnswer last_;       // that had an image
};

SuperresObject::SuperresObject(const Kind& kind, cv::Size size) : Object(kind, size)
{
    if (size.width < smallestSide || size.height < smallestSide)
        throw Failure(VXKIT_OUT_OF_RANGE, "size " + std::to_string(size.width) + "x" +
                                              std::to_string(size.height) +
                                              ": expected 8x8 or more for super-resolution");
    openFirst();
}

BurstMotion SuperresObject::motion() const
{
    if (isNamed(kind(), "single"))
        return BurstMotion::single;
    if (!isNamed(kind(), "local"))
        return BurstMotion::global;
    return values().integer("motion") == 0 ? BurstMotion::local : BurstMotion::best;
}

SuperresSettings SuperresObject::engineSettings() const
{
    SuperresSettings settings;
    settings.motion = motion();
    settings.engine = engineOf(kind());
    settings.window = values().integer("window");
    settings.camera = values().text("camera");
    if (values().isChosen("reference"))
        settings.reference = values().integer("reference");
    if (values().isChosen("psf-sigma"))
        settings.psfSigma = static_cast<float>(values().number("psf-sigma"));
    if (settings.motion != BurstMotion::global)
        return settings;
    if (values().isChosen("weight"))
        settings.weight = static_cast<float>(values().number("weight"));
    if (values().isChosen("registration-error"))
        settings.registrationError = static_cast<float>(values().number("registration-error"));
    if (values().isChosen("relative-residue"))
        settings.relativeResidue = static_cast<float>(values().number("relative-residue"));
    if (values().isChosen("iterations"))
        settings.iterations = values().integer("iterations");
    settings.radiance = radiance_;
    // The channels of the other engines find the sink by themselves.
    if (settings.engine == EngineKind::reference)
        settings.trace = halvor::vx::traceDevice();
    settings.quality = isNamed(kind(), "reference") && values().integer("quality") != 0;
    return settings;
}

double SuperresObject::effectiveNumber(std::size_t index) const
{
    const std::string& name = table()[index].name;
    if (!values().isChosen(index) && name == "reference")
        return engineSettings().referenceIndex();
    if (!values().isChosen(index) && name == "psf-sigma")
        if (const auto sigma = vxsupport::psfSigmaFor(values().text("camera")))
            return asWritten(*sigma);
    return values().number(index);
}

void SuperresObject::close() noexcept
{
    engine_.reset();
    hasImage_ = false;
    last_ = {};
}

void SuperresObject::open()
{
    engine_ = vxsupport::openBurstEngine(frame(), engineSettings());
}

const cv::Mat_<float>& SuperresObject::engineFrame(const cv::Mat& frame)
{
    if (frame.depth() == CV_32F && frame.isContinuous()) {
        input_ = frame;
    } else {
        convertExactly(frame, copy_, "frame");
        input_ = copy_;
    }
    if (takesCounts())
        requireSignedCounts(input_, "frame");
    else
        requireSomeDegrees(input_);
    return input_;
}

void SuperresObject::addFrame(const vxkit_image& image, vxkit_burst_report& report)
{
    const cv::Mat_<float>& values = engineFrame(matrixOf(&image, frame(), "frame"));
    start();
    BurstAnswer answer = engine_->addFrame(values);
    report = {.code = answer.code,
              .has_image = answer.hasImage ? 1 : 0,
              .iterations = answer.iterations.value_or(-1),
              .factor = answer.factor ? static_cast<double>(*answer.factor)
                                      : std::numeric_limits<double>::quiet_NaN(),
              .frames = static_cast<int>(answer.frames.size())};
    // An engine in fixed point starts its window anew, over the image that was.
    if (vxsupport::isFailure(answer.code) && isFixedPoint())
        hasImage_ = false;
    if (vxsupport::isFailure(answer.code))
        throw Failure(VXKIT_NO_RESULT,
                      vxsupport::textOf(answer) + " (code " + std::to_string(answer.code) + ")");
    if (!answer.hasImage)
        return;
    hasImage_ = true;
    last_ = std::move(answer);
}

cv::Mat_<short> SuperresObject::calibrationCounts(const vxkit_image* image, const char* what) const
{
    cv::Mat_<float> values;
    convertExactly(matrixOf(image, frame(), what), values, what);
    requireSignedCounts(values, what);
    cv::Mat_<short> counts;
    values.convertTo(counts, CV_16S);
    return counts;
}

cv::Mat_<float> SuperresObject::calibrationRadiance(const vxkit_image* image, const char* what) const
{
    const cv::Mat values = matrixOf(image, frame(), what);
    requireType(*image, VXKIT_F32, what);
    constexpr auto limits = halvor::vx::temperatureLimits;
    if (!cv::checkRange(values, true, nullptr, limits.lowest, std::nextafter(limits.highest, 1e9F)))
        throw Failure(VXKIT_OUT_OF_RANGE, std::string(what) + ": expected values of -274 to 5000");
    return values.clone();
}

void SuperresObject::calibrate(const CalibrationImages& images)
{
    if (!isNamed(kind(), "reference"))
        return Object::calibrate(images);
    requireUnused("the calibration");
    std::optional<RadianceCalibration> radiance;
    if (images.countsA || images.radianceA || images.countsB || images.radianceB) {
        radiance = {calibrationCounts(images.countsA, "counts_a"),
                    calibrationRadiance(images.radianceA, "radiance_a"),
                    calibrationCounts(images.countsB, "counts_b"),
                    calibrationRadiance(images.radianceB, "radiance_b")};
        if (vxsupport::shareWithoutLine(*radiance) > vxsupport::largestDefectShare)
            throw Failure(VXKIT_OUT_OF_RANGE,
                          "more than a tenth of the pixels have equal counts in both scenes, or a gain or "
                          "offset of 1000 or more; expected two scenes of different radiance");
    }
    radiance_ = std::move(radiance);
    openLater();
}

vxkit_frame_report SuperresObject::frameReport(int index) const
{
    if (!hasImage_)
        throw Failure(VXKIT_NOT_READY, "no image so far; expected \"window\" frames first");
    const auto count = static_cast<int>(last_.frames.size());
    if (index < 0 || index >= count)
        throw Failure(VXKIT_OUT_OF_RANGE, "index " + std::to_string(index) + ": the last image tells of " +
                                              std::to_string(count) + " frames");
    const vxsupport::FrameReport& found = last_.frames[static_cast<std::size_t>(index)];
    return {.shift_x = static_cast<double>(found.shift.x),
            .shift_y = static_cast<double>(found.shift.y),
            .usable = found.usable};
}

cv::Mat SuperresObject::result(const std::string& name) const
{
    const bool isLocal = isNamed(kind(), "local");
    const bool isReference = isNamed(kind(), "reference");
    if (name != "image" && !(isLocal && name == "confidence") && !(isReference && name == "quality"))
        refuseResult(name, isLocal       ? "\"image\" and \"confidence\""
                           : isReference ? "\"image\" and \"quality\""
                                         : "\"image\"");
    if (!hasImage_)
        throw Failure(VXKIT_NOT_READY,
                      "result \"" + name + "\": no image so far; expected \"window\" frames first");
    if (name == "image")
        return engine_->image();
    const cv::Mat& further = isLocal ? last_.confidence : last_.quality;
    if (further.empty())
        throw Failure(VXKIT_NOT_READY, "result \"" + name + "\": expected the setting of that name to be on");
    return further;
}

}  // namespace

std::unique_ptr<Object> makeSuperres(const Kind& kind, cv::Size frame)
{
    return std::make_unique<SuperresObject>(kind, frame);
}

}  // namespace vxc
