// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/SuperresRun.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <utility>

#include "apps/files/OutputNames.h"
#include "apps/vxkit/burst/BurstInput.h"
#include "apps/vxkit/burst/QualityMap.h"
#include "apps/vxkit/burst/RadianceCalibration.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/QuietStream.h"
#include "apps/vxkit/terminal/Verbosity.h"
#include "core/diagnostics/DebugDeviceConsole.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "support/Threads.h"
#include "support/drivers/EngineLimits.h"

namespace vxapp {

namespace {

// The engine's settings with the calibration, whose size is that of the frames.
SuperresSettings settingsFor(const SuperresOptions& options, const Recording& recording)
{
    SuperresSettings settings = options.engine;
    // A single frame needs no window, which only tells which frames are results.
    if (settings.motion == BurstMotion::single && !settings.window)
        settings.window = std::min(settings.windowSize(), recording.frameCount());
    if (!options.radiance.empty())
        settings.radiance = readRadianceCalibration(options.radiance, recording.frameSize(),
                                                    options.recording.size, recording.files());
    return settings;
}

// What a difference of 1 in the engine's values is in those of the results.
float resultPerEngineUnit(const Calibration& calibration)
{
    const cv::Mat_<float> values = (cv::Mat_<float>(1, 2) << 0.0F, 1.0F);
    const cv::Mat_<float> results = calibration.fromEngine(values);
    return results(0, 1) - results(0, 0);
}

}  // namespace

SuperresRun::SuperresRun(const SuperresOptions& options, Results& results)
    : printer_(results),
      recording_(options.recording),
      settings_(settingsFor(options, recording_)),
      calibration_(calibrationFor(settings_, options.scale, options.offset, recording_)),
      window_(checkedWindow(recording_, settings_, options.recording.inputs.front())),
      first_(options.lastOnly ? recording_.frameCount() - window_ : 0),
      files_(options.results, recording_.firstNumber() + first_ + window_ - 1,
             recording_.frameCount() - first_ - window_ + 1, calibration_.unit(), recording_),
      engine_(vxapp::openBurstEngine(recording_.frameSize(), settings_)),
      progress_(recording_.frameCount() - first_),
      summary_(recording_.frameSize().height),
      fillsGaps_(options.fillGaps)
{
    // Raw counts have limits of their own, which no frame may exceed half-way.
    const int checked = settings_.radiance ? recording_.frameCount() : first_ + 1;
    for (int i = first_; i < checked; ++i)
        calibration_.requirePlausible(calibration_.toEngine(recording_.values(i)), recording_.nameOf(i));
    openTrace(options);
}

// Last, so that bad input leaves no file behind; the engine is made anew, to be heard from its beginning.
void SuperresRun::openTrace(const SuperresOptions& options)
{
    const std::string& path = options.trace;
    if (path.empty())
        return;
    if (path == "-") {
        settings_.trace = std::make_shared<halvor::vx::DebugDeviceConsole>();
    } else {
        recording_.files()->writes(path, options.results.force);
        if (vxfiles::isWrittenThrough(path))
            throw UsageError(path + ": expected a regular file or - for --trace");
        traceFile_ = std::make_unique<vxfiles::OutputFile>(path, options.results.force);
        tracer_ = std::make_shared<halvor::vx::DebugDeviceFile>(traceFile_->temporaryPath().string());
        settings_.trace = tracer_;
    }
    engine_ = vxapp::openBurstEngine(recording_.frameSize(), settings_);
}

void SuperresRun::finishTrace()
{
    if (!traceFile_)
        return;
    if (!tracer_->isComplete())
        throw WriteError("--trace: the file could not be written to its end");
    traceFile_->commit();
}

void SuperresRun::run()
{
    const cv::Size size = recording_.frameSize();
    std::cout << recording_.frameCount() - first_ << " frames of " << size.width << "x" << size.height << "; "
              << calibration_.description() << std::endl;
    if (settings_.kind() != EngineKind::production)
        std::cout << vxsupport::nameOf(settings_.kind()) << " engine" << std::endl;
    if (!settings_.psfSigma)
        std::cout << cameraText(settings_) << std::endl;
    try {
        feedFrames();
    } catch (...) {
        finishTrace();  // of a run that fails it is wanted most
        throw;
    }
    finishTrace();
    finish();
    if (failures_ == 0)
        return;
    std::string message = firstFailure_;
    if (failures_ > 1)
        message += "; " + std::to_string(failures_) + " frames failed in all";
    if (summary_.results() > 0)
        message += "; " + std::to_string(summary_.results()) +
                   (summary_.results() == 1 ? " result was" : " results were") + " written";
    throw EngineError(message);
}

void SuperresRun::feedFrames()
{
    for (int i = first_; i < recording_.frameCount(); ++i) {
        progress_.show(i - first_ + 1);
        addFrame(i);
    }
    progress_.clear();
    if (const std::string written = files_.finish(recording_); !written.empty())
        std::cout << written << std::endl;
}

void SuperresRun::finish()
{
    printer_.list("results");
    std::cout << summary_.text() << std::flush;
    printer_.set("frames", recording_.frameCount() - first_)
        .set("written", summary_.results())
        .set("filled", summary_.filled())
        .set("failures", failures_);
    printer_.print();
}

// The library's exceptions speak where they arise; their text comes back in the answer.
BurstAnswer SuperresRun::answerTo(const cv::Mat_<float>& frame)
{
    std::optional<QuietStandardError> silence;
    if (!isVerbose() && !settings_.trace)
        silence.emplace();
    return engine_->addFrame(frame);
}

void SuperresRun::addFrame(int index)
{
    vxsupport::chooseThreads(static_cast<std::size_t>(recording_.frameSize().area()));
    const int number = recording_.firstNumber() + index;
    BurstAnswer answer = answerTo(calibration_.toEngine(recording_.values(index)));
    if (answer.motion)
        answer.motion->noise *= resultPerEngineUnit(calibration_);
    std::string written;
    if (answer.hasImage) {
        written = files_.write(number, calibration_.fromEngine(engine_->image())) +
                  files_.writeQuality(number, answer.quality) +
                  files_.writeConfidence(number, answer.confidence);
    }
    summary_.add(number, answer, settings_.referenceIndex());
    progress_.clear();
    if (answer.hasImage || answer.code != 0)
        tell(number, answer, written);
    note(number, answer, written);
    if (isFailure(answer.code))
        noteFailure(index, answer);
    if (!answer.hasImage && fillsGaps_ && index >= first_ + window_ - 1)
        fillGap(index);
}

void SuperresRun::fillGap(int index)
{
    const int number = recording_.firstNumber() + index;
    const int reference = index - settings_.referenceIndex();
    cv::Mat_<float> image;
    cv::resize(calibration_.toEngine(recording_.values(reference)), image, {}, 2.0, 2.0, cv::INTER_CUBIC);
    const std::string written = files_.write(number, calibration_.fromEngine(image));
    summary_.addFilled();
    std::cout << "frame " << number << ": gap, filled by plain enlargement of frame "
              << recording_.firstNumber() + reference << " -> " << written << std::endl;
    printer_.add("results")
        .set("frame", number)
        .set("meaning", std::string("plain enlargement of one frame"))
        .set("written", written)
        .set("filled", true);
}

void SuperresRun::tell(int number, const BurstAnswer& answer, const std::string& written) const
{
    std::ostringstream line;
    line << "frame " << number << ": code " << answer.code << ", " << textOf(answer);
    if (answer.factor && settings_.report)
        line << ", achieved factor " << std::fixed << std::setprecision(2) << *answer.factor;
    if (answer.iterations && settings_.report)
        line << ", " << *answer.iterations << (*answer.iterations == 1 ? " solver step" : " solver steps");
    if (!written.empty())
        line << " -> " << written;
    if (answer.code == SuperResolution_failure)
        line << "; starting anew with the next frame";
    std::cout << line.str() << std::endl << motionText(answer, calibration_.unit());
    if (settings_.report)
        tellFrames(number, answer);
}

// What tell() and tellFrames() say, for programs.
void SuperresRun::note(int number, const BurstAnswer& answer, const std::string& written)
{
    if (!answer.hasImage && answer.code == 0)
        return;
    ResultRecord& result = printer_.add("results");
    result.set("frame", number).set("code", answer.code).set("meaning", textOf(answer));
    if (!written.empty())
        result.set("written", written);
    if (answer.motion)
        result.set("noise", static_cast<double>(answer.motion->noise))
            .set("effectiveFrames", static_cast<double>(answer.motion->effectiveFrames))
            .set("positions", static_cast<double>(answer.motion->positions))
            .set("predictedGain", static_cast<double>(answer.motion->predictedGain))
            .set("single",
                 answer.choseSingle || answer.motion->outcome != halvor::vx::BurstOutcome::severalFrames);
    if (!settings_.report)
        return;
    if (answer.factor)
        result.set("factor", static_cast<double>(*answer.factor));
    if (answer.iterations)
        result.set("steps", *answer.iterations);
    const int count = static_cast<int>(answer.frames.size());
    for (int i = 0; i < count; ++i) {
        const FrameReport& frame = answer.frames[static_cast<std::size_t>(i)];
        result.add("window")
            .set("frame", number - count + 1 + i)
            .set("shiftX", static_cast<double>(frame.shift.x))
            .set("shiftY", static_cast<double>(frame.shift.y))
            .set("usable", frame.usable)
            .set("reference", i == count - 1 - settings_.referenceIndex());
    }
}

void SuperresRun::tellFrames(int number, const BurstAnswer& answer) const
{
    if (answer.frames.empty())
        return;
    const int count = static_cast<int>(answer.frames.size());
    std::ostringstream table;
    table << "      frame   shift x   shift y" << (answer.motion ? "     local    weight" : "    usable")
          << '\n'
          << std::fixed;
    for (int i = 0; i < count; ++i) {
        const FrameReport& frame = answer.frames[static_cast<std::size_t>(i)];
        table << std::setw(11) << number - count + 1 + i << std::setprecision(3) << std::setw(10)
              << frame.shift.x << std::setw(10) << frame.shift.y;
        if (answer.motion)
            table << std::setw(10) << answer.motion->frames[static_cast<std::size_t>(i)].largestLocal;
        table << std::setprecision(1) << std::setw(8) << frame.usable * 100.0 << " %"
              << (i == count - 1 - settings_.referenceIndex() ? "  reference" : "") << '\n';
    }
    if (!answer.quality.empty())
        table << qualityTable(answer.quality);
    std::cout << table.str() << std::flush;
}

void SuperresRun::noteFailure(int index, const BurstAnswer& answer)
{
    if (failures_++ == 0)
        firstFailure_ =
            recording_.nameOf(index) + ": " + textOf(answer) + " (code " + std::to_string(answer.code) + ")";
    // After an exception the engine's windows may be out of step with each other: later frames begin anew.
    if (answer.code == SuperResolution_failure)
        engine_ = vxapp::openBurstEngine(recording_.frameSize(), settings_);
}

}  // namespace vxapp
