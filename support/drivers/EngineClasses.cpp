// SPDX-License-Identifier: Apache-2.0
// The engines as classes: all settings, and what they tell about a result.

#include <algorithm>
#include <opencv2/core.hpp>
#include <vector>

#include "core/base/Exception.h"
#include "core/diagnostics/DebugLevels.h"
#include "enhancement/superresolution/SrFloat.h"
#include "enhancement/superresolution/SrFloatRegistration1.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "enhancement/superresolution/engine/CameraTable.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "enhancement/superresolution/reference/SuperResolution.h"
#include "support/drivers/BurstEngineParts.h"
#include "support/drivers/HeardRegistry.h"

namespace vxsupport {

namespace {

using halvor::vx::DebugChannel;
using halvor::vx::DebugDeviceBase;
using halvor::vx::EngineDefaults;
using halvor::vx::SrFloat;
using halvor::vx::SrFloatRegistration1;
using halvor::vx::SrFloatRegistration2;
using halvor::vx::SuperResolution;

/// What the engine classes have in common, which is nearly everything.
template <typename Engine>
class ClassEngine : public BurstEngine
{
public:
    ClassEngine(cv::Size frameSize, const SuperresSettings& settings);

    BurstAnswer addFrame(const cv::Mat_<float>& frame) override;
    cv::Mat_<float> image() override { return image_.clone(); }

protected:
    // Adds a frame and, once the window is full, computes the image.
    virtual void feed(const cv::Mat_<float>& frame, BurstAnswer& answer);

    bool completesWindow() { return ++frameCount_ >= engine_.getWindowSize(); }
    virtual void tell(float result, BurstAnswer& answer);

    Engine engine_;
    cv::Mat_<float> image_;
    std::shared_ptr<DebugDeviceBase> trace_;  // may be empty

private:
    int frameCount_ = 0;
};

template <typename Engine>
ClassEngine<Engine>::ClassEngine(cv::Size frameSize, const SuperresSettings& settings)
    : engine_(frameSize.width, frameSize.height, settings.windowSize(), EngineDefaults::enlargement),
      image_(frameSize * 2),
      trace_(settings.trace)
{
    applySetting("reference", referenceRange(settings), settings.referenceIndex(),
                 [this](int index) { engine_.setReferenceIndex(index); });
    applySetting("weight", "1 or more", settings.weight.value_or(EngineDefaults::weightTV),
                 [this](float weight) { engine_.setWeightTV(weight); });
    applySetting("registration-error", "a number above 0, at most 1",
                 settings.registrationError.value_or(EngineDefaults::regError),
                 [this](float error) { engine_.setRegError(error); });
    applySetting("relative-residue", "a number above 1e-6",
                 settings.relativeResidue.value_or(EngineDefaults::relativeResidue),
                 [this](float residue) { engine_.setRelativeResidue(residue); });
    if (settings.iterations)
        applySetting("iterations", "1 or more", *settings.iterations,
                     [this](int iterations) { engine_.setMaxCGIters(iterations); });
    engine_.setPsfSigma(psfSigmaFor(settings.camera).value_or(EngineDefaults::psfSigma));
    if (settings.psfSigma)
        applySetting("psf-sigma", "a number above 0", *settings.psfSigma,
                     [this](float sigma) { engine_.setPsfSigma(sigma); });
}

template <typename Engine>
BurstAnswer ClassEngine<Engine>::addFrame(const cv::Mat_<float>& frame)
{
    return answerOf([&](BurstAnswer& answer) { feed(frame, answer); });
}

template <typename Engine>
void ClassEngine<Engine>::feed(const cv::Mat_<float>& frame, BurstAnswer& answer)
{
    if (!engine_.checkImageStructureQuality(frame))
        answer.code = SuperResolution_noStructure;
    const int added = engine_.addFrame(frame.template ptr<float>());
    if (added < 0)
        answer.code = added;
    if (completesWindow())
        tell(engine_.computeSR(image_.template ptr<float>()), answer);
}

template <typename Engine>
void ClassEngine<Engine>::tell(float result, BurstAnswer& answer)
{
    const int warning = result < 0.0F ? static_cast<int>(result) : 0;
    if (warning != 0)
        answer.code = warning;
    answer.hasImage =
        warning == 0 || warning == SuperResolution_poorFrame || warning == SuperResolution_largeDisplacement;
    if (!answer.hasImage)
        return;
    if (warning == 0)
        answer.factor = result;
    answer.iterations = engine_.getIterations();

    std::vector<PointF> shifts;
    std::vector<cv::Mat_<unsigned char>> masks;
    engine_.getCompleteShifts(shifts);
    engine_.getMasks(masks);
    for (std::size_t i = 0; i < std::min(shifts.size(), masks.size()); ++i)
        tellFrame(shifts[i], masks[i], answer);
}

/// The fast engines, whose channels are reached through the registry.
template <typename Registration>
class FastEngine : public ClassEngine<SrFloat<Registration>>
{
    using Base = ClassEngine<SrFloat<Registration>>;

public:
    using Base::Base;

protected:
    void feed(const cv::Mat_<float>& frame, BurstAnswer& answer) override
    {
        // Unheard, the solvers take a faster road.
        if (!this->trace_)
            return Base::feed(frame, answer);
        const HeardRegistry heard(this->trace_);
        Base::feed(frame, answer);
    }
};

/// The reference engine: it can calibrate raw counts by itself, and tells how well the burst lies.
class ReferenceEngine : public ClassEngine<SuperResolution>
{
public:
    ReferenceEngine(cv::Size frameSize, const SuperresSettings& settings);

protected:
    void feed(const cv::Mat_<float>& frame, BurstAnswer& answer) override;
    void tell(float result, BurstAnswer& answer) override;

private:
    void feedCounts(const cv::Mat_<float>& frame, BurstAnswer& answer);

    void listen(DebugChannel& channel) const;

    bool countsAreRaw_;
    bool wantsQuality_;
};

ReferenceEngine::ReferenceEngine(cv::Size frameSize, const SuperresSettings& settings)
    : ClassEngine(frameSize, settings),
      countsAreRaw_(settings.radiance.has_value()),
      wantsQuality_(settings.quality || settings.report)
{
    if (trace_) {
        listen(engine_);
        for (DebugChannel* channel : engine_.getInternalDebugChannelObjects())
            listen(*channel);
    }
    if (settings.radiance)
        engine_.setNucToRad(settings.radiance->countsA, settings.radiance->radianceA,
                            settings.radiance->countsB, settings.radiance->radianceB);
}

void ReferenceEngine::listen(DebugChannel& channel) const
{
    channel.setDebugDevice(trace_);
    channel.setOutputLevel(halvor::vx::DebugLevel::detail);
}

void ReferenceEngine::feed(const cv::Mat_<float>& frame, BurstAnswer& answer)
{
    if (countsAreRaw_)
        feedCounts(frame, answer);
    else
        ClassEngine::feed(frame, answer);
}

// The engine adds and computes in one call, so the window fills with images that nobody asks for.
void ReferenceEngine::feedCounts(const cv::Mat_<float>& frame, BurstAnswer& answer)
{
    cv::Mat_<short> counts;
    frame.convertTo(counts, CV_16S);
    if (!engine_.checkImageStructureQuality(counts))
        answer.code = SuperResolution_noStructure;
    const float result = engine_.processFrame2(counts.ptr<short>(), image_.ptr<float>());
    if (completesWindow())
        tell(result, answer);
}

void ReferenceEngine::tell(float result, BurstAnswer& answer)
{
    ClassEngine::tell(result, answer);
    if (!wantsQuality_ || !answer.hasImage)
        return;
    engine_.computeQuality();
    engine_.getQuality(answer.quality);
}

std::unique_ptr<BurstEngine> openClass(cv::Size frameSize, const SuperresSettings& settings)
{
    switch (settings.kind()) {
        case EngineKind::phase:
            return std::make_unique<FastEngine<SrFloatRegistration1>>(frameSize, settings);
        case EngineKind::reference:
            return std::make_unique<ReferenceEngine>(frameSize, settings);
        case EngineKind::fixed:
        case EngineKind::fpga:
            return openFixedEngine(frameSize, settings);
        default:
            return std::make_unique<FastEngine<SrFloatRegistration2>>(frameSize, settings);
    }
}

}  // namespace

double shareWithoutLine(const RadianceCalibration& calibration)
{
    int failed = 0;
    for (int y = 0; y < calibration.countsA.rows; ++y)
        for (int x = 0; x < calibration.countsA.cols; ++x) {
            const double counts = calibration.countsB(y, x) - calibration.countsA(y, x);
            const double gain = (static_cast<double>(calibration.radianceB(y, x)) -
                                 static_cast<double>(calibration.radianceA(y, x))) /
                                counts;
            const double offset =
                static_cast<double>(calibration.radianceA(y, x)) - gain * calibration.countsA(y, x);
            // Of a pixel with equal counts neither is finite.
            if (!(std::abs(gain) < largestLine && std::abs(offset) < largestLine))
                ++failed;
        }
    return failed / static_cast<double>(calibration.countsA.total());
}

std::unique_ptr<BurstEngine> openEngineClass(cv::Size frameSize, const SuperresSettings& settings)
{
    try {
        return openClass(frameSize, settings);
    } catch (const halvor::vx::Exception& error) {
        if (settings.kind() == EngineKind::production)
            throw;
        // The other engines are a choice, and can't take frames of every size.
        throw SettingError("engine " + std::string(nameOf(settings.kind())) + ": " + error.what());
    }
}

}  // namespace vxsupport
