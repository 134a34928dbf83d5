// SPDX-License-Identifier: Apache-2.0
// The engines of local motion and of a single frame.

#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "enhancement/superresolution/SrLocalMotion.h"
#include "enhancement/superresolution/SrSingleFrame.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "enhancement/superresolution/engine/FrameQuality.h"
#include "enhancement/superresolution/engine/SlidingWindow.h"
#include "support/drivers/BurstEngineParts.h"

namespace vxsupport {

namespace {

using halvor::vx::EngineDefaults;
using halvor::vx::LocalMotionReport;
using halvor::vx::SlidingWindow;
using halvor::vx::SrLocalMotion;
using halvor::vx::SrSingleFrame;

// A smaller promise may be none: it errs by one or two decibels.
constexpr float leastGain = 0.3F;

template <typename Engine>
void setPsfSigma(Engine& engine, const SuperresSettings& settings)
{
    const float sigma =
        settings.psfSigma.value_or(psfSigmaFor(settings.camera).value_or(EngineDefaults::motionPsfSigma));
    applySetting("psf-sigma", "a number above 0, at most 4", sigma,
                 [&engine](float value) { engine.setPsfSigma(value); });
}

int checkedReference(const SuperresSettings& settings)
{
    const int index = settings.referenceIndex();
    applySetting("reference", referenceRange(settings), index, [&](int value) {
        if (value < 0 || value >= settings.windowSize())
            throw "out of the window";
    });
    return index;
}

/// Keeps the window's frames, and makes the picture of the reference frame.
class SingleEngine : public BurstEngine
{
public:
    SingleEngine(cv::Size frameSize, const SuperresSettings& settings)
        : engine_(frameSize.width, frameSize.height),
          frames_(settings.windowSize()),
          reference_(checkedReference(settings))
    {
        setPsfSigma(engine_, settings);
    }

    BurstAnswer addFrame(const cv::Mat_<float>& frame) override
    {
        return answerOf([&](BurstAnswer& answer) {
            keep(frame, answer);
            if (frames_.count() == frames_.capacity())
                compute(answer);
        });
    }

    cv::Mat_<float> image() override { return image_.clone(); }

    void keep(const cv::Mat_<float>& frame, BurstAnswer& answer)
    {
        if (!halvor::vx::hasStructure(frame, EngineDefaults::minStructureThreshold))
            answer.code = SuperResolution_noStructure;
        frame.copyTo(frames_.push());
    }

    void compute(BurstAnswer& answer)
    {
        const int code = engine_.compute(frames_[frames_.count() - 1 - reference_], image_);
        if (code != 0)
            answer.code = code;
        answer.hasImage = true;
    }

private:
    SrSingleFrame engine_;
    SlidingWindow<cv::Mat_<float>> frames_;
    int reference_;
    cv::Mat_<float> image_;
};

class LocalEngine : public BurstEngine
{
public:
    LocalEngine(cv::Size frameSize, const SuperresSettings& settings)
        : engine_(frameSize.width, frameSize.height, settings.windowSize())
    {
        engine_.setReferenceIndex(checkedReference(settings));
        setPsfSigma(engine_, settings);
        if (settings.motion == BurstMotion::best)
            single_ = std::make_unique<SingleEngine>(frameSize, settings);
    }

    BurstAnswer addFrame(const cv::Mat_<float>& frame) override
    {
        return answerOf([&](BurstAnswer& answer) {
            if (single_)
                single_->keep(frame, answer);
            if (!engine_.checkImageStructureQuality(frame))
                answer.code = SuperResolution_noStructure;
            const int added = engine_.addFrame(frame);
            if (added < 0)
                answer.code = added;
            if (++frameCount_ >= engine_.getWindowSize())
                compute(answer);
        });
    }

    cv::Mat_<float> image() override { return usesSingle_ ? single_->image() : image_.clone(); }

private:
    void compute(BurstAnswer& answer)
    {
        const int code = engine_.computeSR(image_);
        if (code != 0)
            answer.code = code;
        answer.hasImage = true;
        answer.motion = engine_.getReport();
        engine_.getEffectiveFrames(answer.confidence);
        for (const LocalMotionReport::Frame& frame : answer.motion->frames)
            answer.frames.push_back({frame.shift, static_cast<double>(frame.weight)});
        usesSingle_ = single_ && answer.motion->predictedGain < leastGain;
        if (usesSingle_) {
            single_->compute(answer);
            answer.choseSingle = true;
            answer.confidence.setTo(1.0F);
        }
    }

    SrLocalMotion engine_;
    std::unique_ptr<SingleEngine> single_;  // where the report chooses
    bool usesSingle_ = false;
    int frameCount_ = 0;
    cv::Mat_<float> image_;
};

}  // namespace

std::unique_ptr<BurstEngine> openMotionEngine(cv::Size frameSize, const SuperresSettings& settings)
{
    try {
        if (settings.motion == BurstMotion::single)
            return std::make_unique<SingleEngine>(frameSize, settings);
        return std::make_unique<LocalEngine>(frameSize, settings);
    } catch (const halvor::vx::Exception& error) {
        throw SettingError("motion: " + std::string(error.what()));
    }
}

}  // namespace vxsupport
