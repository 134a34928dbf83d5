// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/SimulateCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "apps/vxkit/arguments/NumberChecks.h"
#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/Output.h"
#include "apps/vxkit/output/SimulatedFiles.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/Progress.h"
#include "support/Burst.h"
#include "support/Sensor.h"
#include "support/Stream.h"
#include "support/drivers/SettingError.h"
#include "support/drivers/SimulatorSettings.h"

namespace vxapp {

namespace {

using namespace vxsupport;

struct SimulateOptions
{
    std::string folder;
    std::string scene = "facade";
    std::string size = "160x120";
    SimulatorSettings settings;
    std::string defectStyle = "stuck";
    std::string format = "png";
    vxsupport::CountScale scale{0.01, -273.15};
    bool stream = false;
    bool force = false;
};

cv::Size sizeOf(const SimulateOptions& options)
{
    const cv::Size size = parseSize(options.size);
    if (std::min(size.width, size.height) < smallestSimulatedSide ||
        std::max(size.width, size.height) > largestSimulatedSide)
        throw UsageError("--size " + options.size + ": expected sides of " +
                         std::to_string(smallestSimulatedSide) + " to " +
                         std::to_string(largestSimulatedSide) + " pixels");
    return size;
}

SimulatorSettings settingsOf(const SimulateOptions& options)
{
    SimulatorSettings settings = options.settings;
    settings.scene.kind = *sceneKindFrom(options.scene);
    settings.scene.frame = sizeOf(options);
    const bool markers = options.defectStyle == "markers";
    if (markers && formatNamed(options.format)->saveFloats == nullptr)
        throw UsageError(
            "--defect-style markers: counts can't hold the markers; expected --format tiff or pfm");
    settings.defects.style = markers ? DefectStyle::markers : DefectStyle::stuck;
    return settings;
}

BurstSettings burstOf(const SimulateOptions& options)
{
    try {
        return burstSettingsOf(settingsOf(options));
    } catch (const SettingError& error) {
        throw UsageError("--" + std::string(error.what()));
    }
}

StreamSettings streamOf(const SimulateOptions& options)
{
    if (options.settings.reference)
        throw UsageError("--reference: a recording with --stream has no ground truth on a frame's grid");
    if (options.settings.turn != 0.0 || options.settings.parallax != 0.0)
        throw UsageError("--turn and --parallax: make bursts; expected neither with --stream");
    return streamSettingsOf(settingsOf(options));
}

std::string describe(const SimulateOptions& options, const std::vector<PointF>& shifts,
                     const std::vector<double>& turns = {})
{
    const SimulatorSettings& settings = options.settings;
    std::ostringstream text;
    text << "# Simulated by vxkit simulate; temperatures in degrees Celsius, lengths in pixels of the "
            "frames.\n"
         << "scene " << options.scene << " seed " << settings.scene.seed << " zoom " << settings.scene.zoom
         << '\n'
         << "size " << options.size << '\n'
         << "frames " << shifts.size() << " seed " << settings.seed << '\n'
         << "netd " << settings.netd << " psf-sigma " << settings.psfSigma << " column-offset "
         << settings.columnOffset << " pixel-offset " << settings.pixelOffset << '\n'
         << "defects " << settings.defects.count << ' ' << options.defectStyle << '\n';
    if (settings.turn != 0.0 || settings.parallax != 0.0)
        text << "turn " << settings.turn << " parallax " << settings.parallax << '\n';
    if (settings.subjectSpeed)
        text << "subject-speed " << *settings.subjectSpeed << '\n';
    if (formatNamed(options.format)->saveFloats != nullptr)
        text << "values degrees\n";
    else
        text << "values " << scaleText(options.scale) << '\n';
    text << "# Frame, shift x, shift y: positive when the scene lies further right or lower than in the\n"
         << "# frame whose shift is 0 0.\n"
         << std::setprecision(7);
    for (std::size_t i = 0; i < shifts.size(); ++i)
        text << i << ' ' << shifts[i].x << ' ' << shifts[i].y << '\n';
    if (settings.turn != 0.0)
        for (std::size_t i = 0; i < turns.size(); ++i)
            text << "turn " << i << ' ' << turns[i] << '\n';
    return text.str();
}

constexpr const char* noteName = "simulation.txt";

void writeBurst(const SimulateOptions& options, const SimulatedFiles& files)
{
    const BurstSettings settings = burstOf(options);
    files.reserve({"frame"}, settings.frameCount, {"truth.tiff", noteName});
    const Burst burst = simulateBurst(settings);
    files.writeSeries("frame", settings.frameCount,
                      [&](int i) { return burst.frames[static_cast<std::size_t>(i)]; });
    files.writeFloats("truth.tiff", burst.truth);
    files.writeText(noteName, describe(options, burst.shifts, burst.turns));
    std::cout << options.folder << ": " << settings.frameCount << " frames of " << options.size
              << ", ground truth of frame " << settings.reference << " in truth.tiff, shifts in " << noteName
              << '\n';
}

void writeStream(const SimulateOptions& options, const SimulatedFiles& files)
{
    const StreamSettings settings = streamOf(options);
    files.reserve({"frame", "ideal"}, settings.frameCount, {noteName});
    const StreamSimulator stream(settings);
    Progress progress(2 * settings.frameCount);
    files.writeSeries("frame", settings.frameCount, [&](int i) {
        progress.show(i + 1);
        return stream.frame(i);
    });
    files.writeSeries("ideal", settings.frameCount, [&](int i) {
        progress.show(settings.frameCount + i + 1);
        return stream.ideal(i);
    });
    progress.clear();
    std::vector<PointF> shifts;
    shifts.reserve(static_cast<std::size_t>(settings.frameCount));
    for (int i = 0; i < settings.frameCount; ++i)
        shifts.push_back(stream.shift(i));
    files.writeText(noteName, describe(options, shifts));
    std::cout << options.folder << ": " << settings.frameCount << " frames of " << options.size
              << ", the same without noise and pattern as ideal, shifts in " << noteName << '\n';
}

void simulate(const SimulateOptions& options)
{
    const SimulatedFiles files(options.folder, *formatNamed(options.format), options.scale, options.force);
    if (options.stream)
        writeStream(options, files);
    else
        writeBurst(options, files);
}

std::vector<std::string> sceneNames()
{
    std::vector<std::string> names;
    for (const SceneKind kind : allSceneKinds())
        names.emplace_back(nameOf(kind));
    return names;
}

void addSceneOptions(CLI::App& command, SimulateOptions& options)
{
    command.add_option("--scene", options.scene, "What the camera looks at")
        ->check(CLI::IsMember(sceneNames()))
        ->capture_default_str();
    command.add_option("--size", options.size, "Size of the frames, WIDTHxHEIGHT")->capture_default_str();
    command.add_option("--zoom", options.settings.scene.zoom, "Enlarges what is seen")
        ->check(numberWithin(0.1, 10.0))
        ->capture_default_str();
    command
        .add_option("--scene-seed", options.settings.scene.seed, "Arranges what is random about the scene")
        ->capture_default_str();
    command.add_option("--seed", options.settings.seed, "Seed of motion, noise, offsets and defects")
        ->capture_default_str();
}

void addCameraOptions(CLI::App& command, SimulateOptions& options)
{
    command
        .add_option("--shake", options.settings.shake,
                    "Tremor of the hand; 1 is that of a measured burst (0.3 pixels)")
        ->check(numberWithin(0.0, 20.0))
        ->capture_default_str();
    command
        .add_option("--drift", options.settings.drift,
                    "Whole pixels that the view drifts per frame, deviation")
        ->check(numberWithin(0.0, 20.0))
        ->capture_default_str();
    command
        .add_option("--turn", options.settings.turn,
                    "Deviation of a frame's angle about its middle, radians (bursts)")
        ->check(numberWithin(0.0, 0.2))
        ->capture_default_str();
    command
        .add_option("--parallax", options.settings.parallax,
                    "How much more the near scene in the middle moves than the far one at the left\n"
                    "and right edges, as a share of the shift (bursts)")
        ->check(numberWithin(0.0, 10.0))
        ->capture_default_str();
    command
        .add_option("--subject-speed", options.settings.subjectSpeed,
                    "Somebody walks through the scene, or a hand passes; pixels per frame (without this\n"
                    "option a burst has none, and that of a --stream moves 0.7)")
        ->check(numberWithin(-100.0, 100.0));
    command.add_option("--netd", options.settings.netd, "Deviation of the temporal noise in kelvin")
        ->check(zeroOrMore())
        ->capture_default_str();
    command
        .add_option("--psf-sigma", options.settings.psfSigma, "Deviation of the point spread in half pixels")
        ->check(numberWithin(0.05, maxPsfSigma))
        ->capture_default_str();
    command
        .add_option("--column-offset", options.settings.columnOffset,
                    "Deviation of the columns' fixed offsets in kelvin (rows of a --stream: half of it)")
        ->check(zeroOrMore())
        ->capture_default_str();
    command
        .add_option("--pixel-offset", options.settings.pixelOffset,
                    "Deviation of the pixels' fixed offsets in kelvin")
        ->check(zeroOrMore())
        ->capture_default_str();
    command.add_option("--defects", options.settings.defects.count, "Number of defect pixels")
        ->check(CLI::Range(0, mostSimulatedDefects))
        ->capture_default_str();
    command
        .add_option("--defect-style", options.defectStyle,
                    "stuck: dead and hot pixels; markers: bad-pixel marks")
        ->check(CLI::IsMember({"stuck", "markers"}))
        ->capture_default_str();
}

}  // namespace

void addSimulateCommand(CLI::App& program)
{
    const auto options = std::make_shared<SimulateOptions>();
    CLI::App& command =
        *program.add_subcommand("simulate", "Write a simulated burst or recording with its ground truth");
    command.add_option("folder", options->folder, "Folder for the files; made if there is none")->required();
    addSceneOptions(command, *options);
    addCameraOptions(command, *options);
    command.add_option("--frames", options->settings.frames, "Number of frames (5; with --stream 100)")
        ->check(CLI::Range(1, mostSimulatedFrames));
    command.add_option("--reference", options->settings.reference, "Frame on whose grid the truth lies (1)")
        ->check(CLI::Range(0, mostSimulatedFrames));
    command.add_flag(
        "--stream", options->stream,
        "A recording with a moving subject; the truth is the same recording without noise and offsets");
    command
        .add_option("--format", options->format,
                    "png, raw: 16-bit counts; tiff, pfm: 32-bit degrees (raw: all frames in one file)")
        ->check(CLI::IsMember(frameFormatNames()))
        ->capture_default_str();
    command.add_option("--scale", options->scale.scale, "Degrees per count")
        ->check(aboveZero())
        ->capture_default_str();
    command.add_option("--offset", options->scale.offset, "Degrees at count 0")
        ->check(finiteNumber())
        ->capture_default_str();
    command.add_flag("--force", options->force, "Replace existing files");
    command.callback([options] { simulate(*options); });
}

}  // namespace vxapp
