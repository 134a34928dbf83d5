// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/SuperresCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iomanip>
#include <iostream>
#include <memory>
#include <opencv2/core.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include "apps/vxkit/arguments/RecordingArguments.h"
#include "apps/vxkit/arguments/ResultArguments.h"
#include "apps/vxkit/arguments/ResultsOption.h"
#include "apps/vxkit/burst/BurstEngine.h"
#include "apps/vxkit/burst/Calibration.h"
#include "apps/vxkit/burst/QualityMap.h"
#include "apps/vxkit/burst/RadianceCalibration.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/ResultFiles.h"
#include "apps/vxkit/output/SafeWrite.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/Progress.h"
#include "core/diagnostics/DebugDeviceConsole.h"
#include "core/diagnostics/DebugDeviceFile.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "support/Threads.h"

namespace vxapp {

namespace {

using halvor::vx::EngineDefaults;

struct SuperresOptions
{
    RecordingOptions recording;
    std::optional<double> scale;
    std::optional<double> offset;
    bool lastOnly = false;
    SuperresSettings engine;
    std::string engineName;
    std::string radiance;  // calibration file
    std::string trace;     // file, or "-" for the standard error stream
    ResultOptions results;
};

/// One run of the command: feeds the frames in their order and writes what the engine answers.
class SuperresRun
{
public:
    SuperresRun(const SuperresOptions& options, Results& results);
    void run();

private:
    void addFrame(int index);
    void tell(int number, const BurstAnswer& answer, const std::string& written) const;
    void tellFrames(int number, const BurstAnswer& answer) const;
    void note(int number, const BurstAnswer& answer, const std::string& written);
    void finish();
    void openTrace(const SuperresOptions& options);
    void finishTrace() const;
    void noteFailure(int index, const BurstAnswer& answer);

    Results& printer_;
    Recording recording_;
    SuperresSettings settings_;
    std::shared_ptr<halvor::vx::DebugDeviceFile> traceFile_;
    Calibration calibration_;
    int window_;
    int first_;  // index of the first frame that is fed
    ResultFiles files_;
    std::unique_ptr<BurstEngine> engine_;
    Progress progress_;
    int results_ = 0;
    int failures_ = 0;
    std::string firstFailure_;
};

constexpr int largestWindow = 64;

int checkedWindow(const Recording& recording, const SuperresOptions& options)
{
    const int window = options.engine.windowSize();
    if (window < 2 || window > largestWindow)
        throw UsageError("--window " + std::to_string(window) + ": expected 2 to " +
                         std::to_string(largestWindow) + " frames");
    if (recording.frameCount() < window)
        throw UsageError(options.recording.inputs.front() + ": " + std::to_string(recording.frameCount()) +
                         (recording.frameCount() == 1 ? " frame" : " frames") +
                         " in all; expected at least " + std::to_string(window));
    return window;
}

// The engine's settings with the calibration, whose size is that of the frames.
SuperresSettings settingsFor(const SuperresOptions& options, const Recording& recording)
{
    SuperresSettings settings = options.engine;
    if (!options.radiance.empty())
        settings.radiance =
            readRadianceCalibration(options.radiance, recording.frameSize(), options.recording.size);
    return settings;
}

Calibration calibrationFor(const SuperresOptions& options, const SuperresSettings& settings,
                           Recording& recording)
{
    if (settings.radiance)
        return Calibration::byEngine();
    if (!vxsupport::isFixedPoint(settings.kind()))
        return {options.scale, options.offset, recording.holdsFloats()};
    if (recording.holdsFloats())
        throw UsageError(recording.nameOf(0) + ": holds floats; expected 16-bit counts for --engine " +
                         options.engineName);
    double largest = 0.0;
    for (int i = 0; i < recording.frameCount(); ++i)
        largest = std::max(largest, cv::norm(recording.values(i), cv::NORM_INF));
    return Calibration::signedCounts(options.scale, options.offset, largest);
}

SuperresRun::SuperresRun(const SuperresOptions& options, Results& results)
    : printer_(results),
      recording_(options.recording),
      settings_(settingsFor(options, recording_)),
      calibration_(calibrationFor(options, settings_, recording_)),
      window_(checkedWindow(recording_, options)),
      first_(options.lastOnly ? recording_.frameCount() - window_ : 0),
      files_(options.results, recording_.firstNumber() + first_ + window_ - 1,
             recording_.frameCount() - first_ - window_ + 1, calibration_.unit(), recording_),
      engine_(openBurstEngine(recording_.frameSize(), settings_)),
      progress_(recording_.frameCount() - first_)
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
        if (recording_.readsFrom(path))
            throw UsageError(path + ": is an input; expected another name for --trace");
        if (files_.writesTo(path))
            throw UsageError(path + ": is a result; expected another name for --trace");
        requireWritable(path, options.results.force);
        traceFile_ = std::make_shared<halvor::vx::DebugDeviceFile>(path);
        settings_.trace = traceFile_;
    }
    engine_ = openBurstEngine(recording_.frameSize(), settings_);
}

void SuperresRun::finishTrace() const
{
    if (traceFile_ && !traceFile_->isComplete())
        throw UsageError("--trace: the file could not be written to its end");
}

void SuperresRun::run()
{
    const cv::Size size = recording_.frameSize();
    std::cout << recording_.frameCount() - first_ << " frames of " << size.width << "x" << size.height << "; "
              << calibration_.description() << std::endl;
    if (settings_.kind() != EngineKind::production)
        std::cout << vxsupport::nameOf(settings_.kind()) << " engine" << std::endl;
    if (!settings_.psfSigma)
        std::cout << cameraText(settings_.camera) << std::endl;
    for (int i = first_; i < recording_.frameCount(); ++i) {
        progress_.show(i - first_ + 1);
        addFrame(i);
    }
    progress_.clear();
    if (const std::string written = files_.finish(recording_); !written.empty())
        std::cout << written << std::endl;
    finish();
    finishTrace();
    if (failures_ == 0)
        return;
    std::string message = firstFailure_;
    if (failures_ > 1)
        message += "; " + std::to_string(failures_) + " frames failed in all";
    if (results_ > 0)
        message +=
            "; " + std::to_string(results_) + (results_ == 1 ? " result was" : " results were") + " written";
    throw EngineError(message);
}

void SuperresRun::finish()
{
    printer_.list("results");
    printer_.set("frames", recording_.frameCount() - first_)
        .set("written", results_)
        .set("failures", failures_);
    printer_.print();
}

void SuperresRun::addFrame(int index)
{
    vxsupport::chooseThreads(static_cast<std::size_t>(recording_.frameSize().area()));
    const int number = recording_.firstNumber() + index;
    const BurstAnswer answer = engine_->addFrame(calibration_.toEngine(recording_.values(index)));
    std::string written;
    if (answer.hasImage) {
        written = files_.write(number, calibration_.fromEngine(engine_->image())) +
                  files_.writeQuality(number, answer.quality);
        ++results_;
    }
    progress_.clear();
    if (answer.hasImage || answer.code != 0)
        tell(number, answer, written);
    note(number, answer, written);
    if (isFailure(answer.code))
        noteFailure(index, answer);
}

void SuperresRun::tell(int number, const BurstAnswer& answer, const std::string& written) const
{
    std::ostringstream line;
    line << "frame " << number << ": code " << answer.code << ", " << textOf(answer);
    if (answer.factor)
        line << ", achieved factor " << std::fixed << std::setprecision(2) << *answer.factor;
    if (answer.iterations)
        line << ", " << *answer.iterations << (*answer.iterations == 1 ? " solver step" : " solver steps");
    if (!written.empty())
        line << " -> " << written;
    if (answer.code == SuperResolution_failure)
        line << "; starting anew with the next frame";
    std::cout << line.str() << std::endl;
    tellFrames(number, answer);
}

// What tell() and tellFrames() say, for programs.
void SuperresRun::note(int number, const BurstAnswer& answer, const std::string& written)
{
    if (!answer.hasImage && answer.code == 0)
        return;
    ResultRecord& result = printer_.add("results");
    result.set("frame", number).set("code", answer.code).set("meaning", textOf(answer));
    if (answer.factor)
        result.set("factor", static_cast<double>(*answer.factor));
    if (answer.iterations)
        result.set("steps", *answer.iterations);
    if (!written.empty())
        result.set("written", written);
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
    table << "      frame   shift x   shift y    usable\n" << std::fixed;
    for (int i = 0; i < count; ++i) {
        const FrameReport& frame = answer.frames[static_cast<std::size_t>(i)];
        table << std::setw(11) << number - count + 1 + i << std::setprecision(3) << std::setw(10)
              << frame.shift.x << std::setw(10) << frame.shift.y << std::setprecision(1) << std::setw(8)
              << frame.usable * 100.0 << " %"
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
        engine_ = openBurstEngine(recording_.frameSize(), settings_);
}

template <typename Value>
std::string byDefault(Value value)
{
    std::ostringstream text;
    text << "(default: " << value << ')';
    return text.str();
}

void addSolverOptions(CLI::App& command, SuperresSettings& settings)
{
    const std::string group = "Solver (these options use the engine classes in place of the flat interface)";
    command
        .add_flag("--report", settings.report,
                  "Print each frame's shift in pixels and its share of usable pixels, the solver's\n"
                  "steps and, with the reference engine, the quality map")
        ->group(group);
    command
        .add_option("--window", settings.window,
                    "Frames that make one result " + byDefault(EngineDefaults::flatWindow))
        ->type_name("N")
        ->group(group);
    command
        .add_option("--relative-residue", settings.relativeResidue,
                    "Residue at which a round of the solver ends; smaller is sharper and slower\n" +
                        byDefault(EngineDefaults::relativeResidue))
        ->type_name("X")
        ->group(group);
    command
        .add_option("--iterations", settings.iterations,
                    "Budget of solver steps " + byDefault(EngineDefaults::maxCGIters))
        ->type_name("N")
        ->group(group);
    command
        .add_option(
            "--weight", settings.weight,
            "Inverse strength of the smoothing; larger smooths less " + byDefault(EngineDefaults::weightTV))
        ->type_name("X")
        ->group(group);
    command
        .add_option("--registration-error", settings.registrationError,
                    "Largest local error of a usable pixel, at most 1 " + byDefault(EngineDefaults::regError))
        ->type_name("X")
        ->group(group);
    command
        .add_option("--psf-sigma", settings.psfSigma,
                    "Deviation of the point spread in pixels of the result, in place of the camera's\n" +
                        byDefault(EngineDefaults::psfSigma))
        ->type_name("X")
        ->group(group);
}

void addEngineOptions(CLI::App& command, SuperresSettings& settings)
{
    command
        .add_option("--camera", settings.camera,
                    "Camera and lens, which set the width of the point spread: the three digits of\n"
                    "a model (310 315 316 320 321 322 325 330) and FOV with the field of view")
        ->type_name("\"k325 FOV25\"");
    command
        .add_option("--reference", settings.reference,
                    "Frame that the result is aligned with, counted back from the newest frame of\n"
                    "the window (default: 3, the second oldest of five)")
        ->type_name("0..4");

    addSolverOptions(command, settings);
}

void addDiagnosticOptions(CLI::App& command, SuperresOptions& options)
{
    const std::string group = "Engines and their diagnostics";
    command
        .add_option("--engine", options.engineName,
                    "production: tracked corners, fast (default). phase: phase correlation, for\n"
                    "frames of even width. reference: its serial twin, slow, to check the others.\n"
                    "fixed: 16-bit integers, for cameras without floating point; fpga: the same\n"
                    "with an FPGA's dataflow, for frames of 160x120 (see below for both)")
        ->check(CLI::IsMember(engineNames()))
        ->type_name("NAME")
        ->group(group);
    command
        .add_option("--trace", options.trace,
                    "Write what the engine's debug channels say, line by line as it works; -: to the\n"
                    "standard error stream")
        ->type_name("FILE")
        ->group(group);
    command
        .add_option("--radiance", options.radiance,
                    "Frames are raw counts, which the reference engine turns into radiance by a\n"
                    "two-point calibration (see below)")
        ->type_name("CALIBRATION")
        ->group(group);
    command
        .add_option("--quality-map", options.results.qualityMap,
                    "Write where the frames lie between the pixels, 3 x 3 shares (reference engine).\n"
                    ".tif, .tiff or .pfm: floats. .png: a picture")
        ->type_name("FILE")
        ->group(group);
}

// What only one engine knows chooses it, unless another one is asked for.
void settleEngine(SuperresOptions& options)
{
    SuperresSettings& engine = options.engine;
    if (!options.engineName.empty())
        engine.engine = engineKindFrom(options.engineName);
    engine.quality = !options.results.qualityMap.empty();
    for (const auto& [name, value] : {std::pair("--radiance", &options.radiance),
                                      std::pair("--quality-map", &options.results.qualityMap)}) {
        if (value->empty())
            continue;
        if (engine.engine.value_or(EngineKind::reference) != EngineKind::reference)
            throw UsageError(std::string(name) + ": the engine " + options.engineName +
                             " knows no such option; expected --engine reference");
    }
    if (!options.radiance.empty() && (options.scale || options.offset))
        throw UsageError("--radiance: takes the place of --scale and --offset; expected only one of them");
}

const char* const footer = R"(Results:
  Five frames give one result. A longer recording gives one for each frame from the fifth on; their names carry
  the number of the newest frame: result-0004.tif, result-0005.tif, ... With --last only the newest five frames
  are used.

Units:
  The engine works on degrees Celsius and takes values outside of -274 to 5000 for defect pixels.
  Floats are taken as degrees, and bad-pixel markers (bit patterns 0x81, 0x82, 0x84, 0x85) are kept.
  16-bit counts become degrees by --scale and --offset; hundredths of a kelvin, for example, by
  --scale 0.01 --offset -273.15. Without these options the calibration is taken as unknown: the result is in
  counts, too.

Engines in fixed point (fixed, fpga):
  They take 16-bit recordings, work on the counts and give counts; with --scale and --offset the result is turned
  into degrees. The result lies on the grid of the newest frame, and --reference (default: 0) only tells whose
  range and mean set the scale. --registration-error is stored without effect. Within 16 bits a
  result has at most 6 frames and 12 solver steps, a --relative-residue of 0.002 or more and a --weight of 20 or
  more; other settings are refused.

Codes:
    0  success
   -2  a bad pixel had too few good neighbours and took a fallback value; the result is written
   -3  a frame has half or more of its pixels unregistered; the result is written
   -4  a frame spans less than 2 degrees (32 counts; 2 with --radiance); it is used all the same
   -6  a frame is displaced by more than a tenth of its height (told by the engine classes only)
   -8  a frame's values leave the range of the frames before; no result, and the window starts anew with it
       (engines in fixed point only)
   -9  no corner of the reference frame could be tracked; no result
 -998  a frame could not be registered with the one before; no result, and the window starts anew with it
       (engines in fixed point only)
 -999  another failure, told with its message; no result
  The exit status is 0 if every result was written, 1 after a failure of the engine, 2 for bad input.

Examples:
  vxkit superres burst.pfm -o result.tif --preview result.png
  vxkit superres shot-*.png --scale 0.01 --offset -273.15 --camera "k325 FOV25" -o result.pfm --report
  vxkit superres recording.raw --size 160x120 --frames 10:5 -o result.png
  vxkit superres burst.pfm --engine reference --report --trace trace.txt --quality-map map.png -o result.tif
  vxkit superres recording.raw --size 160x120 --engine fpga --report -o result.png
  vxkit superres raw-*.png --radiance two-scenes.txt -o radiance.tif)";

}  // namespace

void addSuperresCommand(CLI::App& program)
{
    CLI::App& command = *program.add_subcommand(
        "superres", "Makes one image of twice the size from every five frames of a hand-held recording");
    auto options = std::make_shared<SuperresOptions>();
    addRecordingOptions(command, options->recording);
    addResultOptions(command, options->results);
    command
        .add_option("--scale", options->scale, "Degrees Celsius per count: degrees = count * SCALE + OFFSET")
        ->type_name("SCALE");
    command.add_option("--offset", options->offset, "Degrees Celsius at count 0")->type_name("OFFSET");
    command.add_flag("--last", options->lastOnly, "Make only the result of the newest frames");
    addEngineOptions(command, options->engine);
    addDiagnosticOptions(command, *options);
    command.footer(footer + std::string("\n\n") + radianceFileHelp);
    const auto results = addResultsOption(command);
    command.callback([options, results] {
        settleEngine(*options);
        ResultFiles::checkNames(options->results);
        SuperresRun(*options, *results).run();
    });
}

}  // namespace vxapp
