// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/SuperresCommand.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include "apps/vxkit/arguments/CameraCheck.h"
#include "apps/vxkit/arguments/RecordingArguments.h"
#include "apps/vxkit/arguments/ResultArguments.h"
#include "apps/vxkit/arguments/ResultsOption.h"
#include "apps/vxkit/arguments/RunArguments.h"
#include "apps/vxkit/burst/RadianceCalibration.h"
#include "apps/vxkit/commands/SuperresRun.h"
#include "apps/vxkit/terminal/Failure.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"

namespace vxapp {

namespace {

using halvor::vx::EngineDefaults;

template <typename Value>
std::string byDefault(Value value)
{
    std::ostringstream text;
    text << "(default: " << value << ')';
    return text.str();
}

void addSolverOptions(CLI::App& command, SuperresSettings& settings)
{
    const std::string group = "Solver";
    command
        .add_flag("--report", settings.report,
                  "Print each frame's shift in pixels and its share of usable pixels, the solver's\n"
                  "steps and, with the reference engine, the quality map; with --motion local how far\n"
                  "the motion departs from the shift, and the frame's mean weight")
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
        .add_option(
            "--psf-sigma", settings.psfSigma,
            "Deviation of the point spread in pixels of the result, in place of the camera's\n" +
                byDefault(EngineDefaults::psfSigma) + ". With --motion local, single and auto " +
                byDefault(EngineDefaults::motionPsfSigma) +
                ": on\nthe small side, since too small a value leaves the result a little soft, while\n"
                "one too large rings at edges and costs decibels")
        ->type_name("X")
        ->group(group);
}

void addEngineOptions(CLI::App& command, SuperresSettings& settings)
{
    command
        .add_option("--camera", settings.camera,
                    "Camera and lens, which set the width of the point spread: the three digits of\n"
                    "a model (" +
                        vxsupport::cameraModels() + ") and FOV with the field of view")
        ->check(knownCamera())
        ->type_name("\"k325 FOV25\"");
    command
        .add_option("--reference", settings.reference,
                    "Frame that the result is aligned with, counted back from the newest frame of\n"
                    "the window (default: 3, the second oldest of five)")
        ->type_name("0..4");

    addSolverOptions(command, settings);
}

void addMotionOptions(CLI::App& command, SuperresOptions& options)
{
    command
        .add_option("--motion", options.motionName,
                    "global: one shift for each frame, by the engines of --engine. local: follows a\n"
                    "hand that turns, depth and moving things, and weighs each pixel. single: the\n"
                    "reference frame alone. auto: local if its report expects 0.3 dB or more over the\n"
                    "single frame, else single (see below)")
        ->check(CLI::IsMember(motionNames()))
        ->capture_default_str();
    command
        .add_option("--confidence", options.results.confidence,
                    "Write how many frames the result rests on at each pixel of the reference frame\n"
                    "(--motion local, auto). .tif, .tiff or .pfm: floats. .png: a picture")
        ->type_name("FILE");
    command.add_flag("--fill-gaps", options.fillGaps,
                     "Where no result can be made, write the reference frame in plain (bicubic)\n"
                     "enlargement; the summary tells which");
}

// The engines that follow motion have settings of their own.
void settleMotion(SuperresOptions& options)
{
    SuperresSettings& engine = options.engine;
    engine.motion = motionFrom(options.motionName);
    const bool usesMap = engine.motion == BurstMotion::local || engine.motion == BurstMotion::best;
    if (!options.results.confidence.empty() && !usesMap)
        throw UsageError("--confidence: expected --motion local or auto with it");
    if (engine.motion == BurstMotion::global)
        return;
    const auto refuse = [&](bool isGiven, const std::string& name) {
        if (isGiven)
            throw UsageError(name + ": has no meaning with --motion " + options.motionName);
    };
    refuse(!options.engineName.empty(), "--engine");
    refuse(!options.radiance.empty(), "--radiance");
    refuse(!options.results.qualityMap.empty(), "--quality-map");
    refuse(!options.trace.empty(), "--trace");
    refuse(engine.relativeResidue.has_value(), "--relative-residue");
    refuse(engine.iterations.has_value(), "--iterations");
    refuse(engine.weight.has_value(), "--weight");
    refuse(engine.registrationError.has_value(), "--registration-error");
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

Motion:
  Simulated bursts of plain shifts gain with each of the modes; real hand-held ones often lose with the global
  one, and what helps them most is the right point spread (--psf-sigma): --motion single has that alone. Several
  frames add where they bring new positions and agree with each other. --motion local tells after each result how
  many frames count, how many different positions they give, and what gain it expects; where they add nothing, it
  writes the single frame's result and says so. The expectation errs by about 2 dB. Of a --window of frames the
  result lies on the grid of the --reference, also with --motion single, which takes one frame, too.

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
   -6  a frame is displaced by more than a tenth of its height
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
  vxkit superres shot-*.png --motion auto --psf-sigma 0.4 --confidence frames.png -o result.tif --report
  vxkit superres shot-1.png --motion single -o result.tif
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
    addMotionOptions(command, *options);
    addDiagnosticOptions(command, *options);
    command.footer(footer + std::string("\n\n") + radianceFileHelp);
    const auto results = addResultsOption(command);
    command.callback([options, results, &command] {
        options->recording.files = filesReadBy(command);
        settleMotion(*options);
        settleEngine(*options);
        ResultFiles::checkNames(options->results);
        SuperresRun(*options, *results).run();
    });
}

}  // namespace vxapp
