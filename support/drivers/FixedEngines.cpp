// SPDX-License-Identifier: Apache-2.0
// The engines in fixed point, behind the face of the others.

#include <opencv2/core.hpp>
#include <sstream>
#include <vector>

#include "core/base/Exception.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "support/FpgaEngine.h"
#include "support/drivers/BurstEngineParts.h"
#include "support/drivers/EngineLimits.h"
#include "support/drivers/HeardRegistry.h"

namespace vxsupport {

namespace {

using halvor::vx::DebugDeviceBase;
using halvor::vx::EngineDefaults;

const cv::Size fpgaFrame{160, 120};

/// Feeds the frames one by one and computes after each, since a call registers the newest pair alone.
template <typename Engine>
class FixedPointEngine : public BurstEngine
{
public:
    FixedPointEngine(cv::Size frameSize, const SuperresSettings& settings);

    BurstAnswer addFrame(const cv::Mat_<float>& frame) override;
    cv::Mat_<float> image() override;

private:
    void feed(const cv::Mat_<float>& frame, BurstAnswer& answer);
    void startAnew();
    void tell(int code, BurstAnswer& answer);

    Engine engine_;
    cv::Mat_<short> counts_;
    cv::Mat_<short> image_;
    std::shared_ptr<DebugDeviceBase> trace_;  // may be empty
    int frameCount_ = 0;
};

template <typename Engine>
FixedPointEngine<Engine>::FixedPointEngine(cv::Size frameSize, const SuperresSettings& settings)
    : engine_(frameSize.width, frameSize.height, static_cast<unsigned>(settings.windowSize()),
              EngineDefaults::enlargement),
      image_(frameSize * 2),
      trace_(settings.trace)
{
    applySetting("reference", referenceRange(settings), settings.referenceIndex(),
                 [this](int index) { engine_.setReferenceIndex(index); });
    engine_.setWeightTV(settings.weight.value_or(EngineDefaults::weightTV));
    applySetting("registration-error", "a number above 0, at most 1",
                 settings.registrationError.value_or(EngineDefaults::regError),
                 [this](float error) { engine_.setRegError(error); });
    engine_.setRelativeResidue(settings.relativeResidue.value_or(EngineDefaults::relativeResidue));
    if (settings.iterations)
        engine_.setMaxCGIters(*settings.iterations);
    applySetting("psf-sigma", "a number above 0",
                 settings.psfSigma.value_or(psfSigmaFor(settings.camera).value_or(EngineDefaults::psfSigma)),
                 [this](float sigma) { engine_.setPsfSigma(sigma); });
}

template <typename Engine>
BurstAnswer FixedPointEngine<Engine>::addFrame(const cv::Mat_<float>& frame)
{
    return answerOf([&](BurstAnswer& answer) {
        if (!trace_) {
            feed(frame, answer);
            return;
        }
        const HeardRegistry heard(trace_);
        feed(frame, answer);
    });
}

template <typename Engine>
void FixedPointEngine<Engine>::feed(const cv::Mat_<float>& frame, BurstAnswer& answer)
{
    frame.convertTo(counts_, CV_16S);
    if (!engine_.checkImageStructureQuality(counts_))
        answer.code = SuperResolution_noStructure;
    if (const int added = engine_.addFrame(counts_); added < 0) {
        answer.code = added;
        return startAnew();
    }
    ++frameCount_;
    const bool isFull = frameCount_ >= engine_.getWindowSize();
    engine_.setSkipMinimization(!isFull);
    const int code = engine_.computeSr(image_);
    if (isFailure(code)) {
        answer.code = code;
        startAnew();
    } else if (isFull) {
        tell(code, answer);
    }
}

// With the frame at hand alone in the window: the shifts of older ones against it are not known.
template <typename Engine>
void FixedPointEngine<Engine>::startAnew()
{
    engine_.clearFrames();
    frameCount_ = engine_.addFrame(counts_) < 0 ? 0 : 1;
    engine_.setSkipMinimization(true);
    engine_.computeSr(image_);
}

template <typename Engine>
void FixedPointEngine<Engine>::tell(int code, BurstAnswer& answer)
{
    if (code != 0)
        answer.code = code;
    answer.hasImage = true;
    answer.iterations = engine_.getCumIters();
    std::vector<cv::Mat_<unsigned char>> masks;
    engine_.getMasks(masks);
    for (std::size_t i = 0; i < masks.size(); ++i)
        tellFrame(engine_.getTotalShift(static_cast<unsigned>(i)), masks[i], answer);
}

template <typename Engine>
cv::Mat_<float> FixedPointEngine<Engine>::image()
{
    cv::Mat_<float> values;
    image_.convertTo(values, CV_32F);
    return values;
}

template <typename Value>
void requireWithin(const std::string& option, Value value, Value lowest, Value highest,
                   const std::string& reason)
{
    if (value >= lowest && value <= highest)
        return;
    std::ostringstream text;
    text << option << ' ' << value << ": expected " << lowest << " to " << highest << " with this engine"
         << reason;
    throw SettingError(text.str());
}

void requireFixedPointSettings(const SuperresSettings& settings)
{
    const std::string noise = "; further steps go on in the noise of its roundings and diverge";
    requireWithin("window", settings.windowSize(), EngineLimits::smallestWindow,
                  FixedPointLimits::largestWindow, "; the sums of more frames leave 16 bits");
    requireWithin("relative-residue", settings.relativeResidue.value_or(FixedPointLimits::smallestResidue),
                  FixedPointLimits::smallestResidue, 1.0F, noise);
    requireWithin("iterations", settings.iterations.value_or(1), 1, FixedPointLimits::largestIterations,
                  noise);
    requireWithin("weight", settings.weight.value_or(FixedPointLimits::largestWeight),
                  FixedPointLimits::smallestWeight, FixedPointLimits::largestWeight,
                  "; stronger smoothing leaves 16 bits");
}

}  // namespace

std::unique_ptr<BurstEngine> openFixedEngine(cv::Size frameSize, const SuperresSettings& settings)
{
    requireFixedPointSettings(settings);
    if (settings.kind() == EngineKind::fixed)
        return std::make_unique<FixedPointEngine<FixedEngine>>(frameSize, settings);
    if (frameSize != fpgaFrame)
        throw SettingError("engine fpga: frames of " + std::to_string(frameSize.width) + "x" +
                           std::to_string(frameSize.height) +
                           "; expected 160x120, the format that its pipeline is built for");
    return std::make_unique<FixedPointEngine<FpgaEngine>>(frameSize, settings);
}

}  // namespace vxsupport
