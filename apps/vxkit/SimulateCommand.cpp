#include "apps/vxkit/SimulateCommand.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/vxkit/Failure.h"
#include "apps/vxkit/Output.h"
#include "apps/vxkit/Recording.h"
#include "apps/vxkit/SafeWrite.h"
#include "support/Burst.h"
#include "support/Counts.h"

namespace vxapp {

namespace fs = std::filesystem;

namespace {

struct SimulateOptions
{
    std::string folder;
    std::string scene = "facade";
    std::string size = "160x120";
    std::string format = "tif";
    double scale = 0.01;
    double offset = -273.15;
    bool force = false;
    vxsupport::BurstSettings burst;
};

bool writesCounts(const SimulateOptions& options)
{
    return options.format == "png" || options.format == "raw";
}

void checkOptions(const SimulateOptions& options)
{
    if (!std::isfinite(options.scale) || options.scale <= 0.0)
        throw UsageError("--scale: expected a finite number above 0");
    if (!std::isfinite(options.offset))
        throw UsageError("--offset: expected a finite number");
    const auto& defects = options.burst.defects;
    if (writesCounts(options) && defects.count > 0 && defects.style == vxsupport::DefectStyle::markers)
        throw UsageError("--defect-style markers: counts can't hold markers; expected --format tif or pfm");
}

vxsupport::BurstSettings settingsOf(const SimulateOptions& options)
{
    vxsupport::BurstSettings settings = options.burst;
    settings.scene.kind = *vxsupport::sceneKindFrom(options.scene);
    settings.scene.frame = parseSize(options.size);
    return settings;
}

// All frames in one file, or one file each.
std::vector<fs::path> frameNames(const SimulateOptions& options)
{
    if (options.format == "raw")
        return {fs::path(options.folder) / "frames.raw"};
    std::vector<fs::path> names;
    for (int i = 0; i < options.burst.frameCount; ++i) {
        std::string number = std::to_string(i);
        number.insert(0, number.size() < 4 ? 4 - number.size() : 0, '0');
        names.push_back(fs::path(options.folder) / ("frame-" + number + "." + options.format));
    }
    return names;
}

void makeFolder(const fs::path& folder)
{
    std::error_code error;
    fs::create_directories(folder, error);
    if (!fs::is_directory(folder))
        throw UsageError(folder.string() + ": can't be made; expected the name of a folder to write to");
}

void writeRaw(const fs::path& path, const std::vector<cv::Mat_<float>>& frames,
              const vxsupport::CountScale& scale, bool force)
{
    writeSafely(path, force, [&](const fs::path& temporary) {
        std::ofstream file(temporary, std::ios::binary);
        for (const cv::Mat_<float>& frame : frames) {
            for (const std::uint16_t count : vxsupport::toCounts(frame, scale)) {
                file.put(static_cast<char>(static_cast<unsigned char>(count & 0xFFU)));
                file.put(static_cast<char>(static_cast<unsigned char>(count >> 8U)));
            }
        }
        file.close();
        return file.good();
    });
}

void writeFrames(const std::vector<fs::path>& names, const vxsupport::Burst& burst,
                 const SimulateOptions& options)
{
    if (options.format == "raw") {
        writeRaw(names.front(), burst.frames, {options.scale, options.offset}, options.force);
        return;
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (options.format == "png")
            saveCounts(names[i], burst.frames[i], {options.scale, options.offset}, options.force);
        else
            saveFloats(names[i], burst.frames[i], options.force);
    }
}

void writeShifts(const fs::path& path, const vxsupport::Burst& burst, const SimulateOptions& options)
{
    writeSafely(path, options.force, [&](const fs::path& temporary) {
        std::ofstream file(temporary);
        file << "# displacement of each frame against frame " << options.burst.reference
             << ", x y in pixels of the frame; positive: the scene lies further right or lower\n";
        if (writesCounts(options))
            file << "# degrees Celsius = count * " << options.scale << " + " << options.offset << '\n';
        file << std::setprecision(9);
        for (const PointF& shift : burst.shifts)
            file << shift.x << ' ' << shift.y << '\n';
        file.close();
        return file.good();
    });
}

void simulate(const SimulateOptions& options)
{
    checkOptions(options);
    const vxsupport::BurstSettings settings = settingsOf(options);
    const fs::path folder(options.folder);
    const fs::path truth = folder / "truth.tif";
    const fs::path shifts = folder / "shifts.txt";
    const std::vector<fs::path> names = frameNames(options);
    makeFolder(folder);
    for (const fs::path& path : names)
        requireWritable(path, options.force);
    requireWritable(truth, options.force);
    requireWritable(shifts, options.force);

    vxsupport::Burst burst;
    try {
        burst = vxsupport::simulateBurst(settings);
    } catch (const std::invalid_argument& error) {
        throw UsageError(error.what());
    }
    writeFrames(names, burst, options);
    saveFloats(truth, burst.truth, options.force);
    writeShifts(shifts, burst, options);

    std::cout << settings.frameCount << " frames of " << options.size << ": " << names.front().string();
    if (names.size() > 1)
        std::cout << " to " << names.back().filename().string();
    std::cout << '\n';
    if (writesCounts(options))
        std::cout << "degrees Celsius = count * " << options.scale << " + " << options.offset << '\n';
    std::cout << "ground truth of frame " << settings.reference << ", twice the size: " << truth.string()
              << '\n'
              << "true shifts: " << shifts.string() << std::endl;
}

std::vector<std::string> sceneNames()
{
    std::vector<std::string> names;
    for (const vxsupport::SceneKind kind : vxsupport::allSceneKinds())
        names.emplace_back(vxsupport::nameOf(kind));
    return names;
}

void addSensorOptions(CLI::App& command, vxsupport::BurstSettings& burst)
{
    const std::string group = "Camera";
    command
        .add_option("--psf-sigma", burst.psfSigma, "Deviation of the point spread, in pixels of the truth")
        ->capture_default_str()
        ->group(group);
    command.add_option("--netd", burst.netd, "Deviation of the temporal noise, kelvin")
        ->capture_default_str()
        ->group(group);
    command
        .add_option("--column-offset", burst.columnOffset, "Deviation of the columns' fixed offsets, kelvin")
        ->capture_default_str()
        ->group(group);
    command.add_option("--pixel-offset", burst.pixelOffset, "Deviation of the pixels' fixed offsets, kelvin")
        ->capture_default_str()
        ->group(group);
    command.add_option("--defects", burst.defects.count, "Number of defect pixels")
        ->check(CLI::NonNegativeNumber)
        ->group(group);
    const std::map<std::string, vxsupport::DefectStyle> styles = {
        {"stuck", vxsupport::DefectStyle::stuck}, {"markers", vxsupport::DefectStyle::markers}};
    command
        .add_option("--defect-style", burst.defects.style,
                    "stuck: dead and hot pixels; markers: the float patterns that mark bad pixels")
        ->transform(CLI::CheckedTransformer(styles).description(""))
        ->type_name("stuck|markers")
        ->group(group);
    command
        .add_option("--drift", burst.motion.drift,
                    "Deviation of a walk of whole pixels from frame to frame, beside the hand's tremor")
        ->capture_default_str()
        ->group(group);
}

const char* const footer =
    R"(The scene is rendered much finer than the truth, displaced by sub-pixel steps like those of a hand-held camera,
blurred by the point spread and sampled down by 2. The same options give the same bits.

Examples:
  vxkit simulate -o burst
  vxkit simulate -o recording --scene board --frames 40 --size 320x240 --format raw --netd 0.08)";

}  // namespace

void addSimulateCommand(CLI::App& program)
{
    CLI::App& command = *program.add_subcommand(
        "simulate", "Writes a simulated hand-held recording with its ground truth and true shifts");
    auto options = std::make_shared<SimulateOptions>();
    command.add_option("-o,--output", options->folder, "Folder to write to; made if it isn't there")
        ->required()
        ->type_name("FOLDER");
    command.add_option("--scene", options->scene, "What the camera looks at")
        ->check(CLI::IsMember(sceneNames()))
        ->capture_default_str();
    command.add_option("--size", options->size, "Size of a frame")
        ->type_name("WIDTHxHEIGHT")
        ->capture_default_str();
    command.add_option("--frames", options->burst.frameCount, "Number of frames")
        ->check(CLI::Range(1, 100000))
        ->type_name("N")
        ->capture_default_str();
    command
        .add_option("--reference", options->burst.reference, "Frame on whose grid the truth lies, from 0 on")
        ->capture_default_str();
    command.add_option("--seed", options->burst.seed, "Motion, noise and defects")->capture_default_str();
    command.add_option("--scene-seed", options->burst.scene.seed, "What is random about the scene")
        ->capture_default_str();
    command.add_option("--zoom", options->burst.scene.zoom, "Above 1, less of the scene is seen, larger")
        ->capture_default_str();
    command
        .add_option("--format", options->format,
                    "tif, pfm: degrees as 32-bit floats, a file for each frame; png: 16-bit counts;\n"
                    "raw: headerless 16-bit little-endian counts, all frames in one file")
        ->check(CLI::IsMember({"tif", "pfm", "png", "raw"}))
        ->capture_default_str();
    command.add_option("--scale", options->scale, "Counts: degrees = count * SCALE + OFFSET")
        ->capture_default_str();
    command.add_option("--offset", options->offset, "Degrees Celsius at count 0")->capture_default_str();
    command.add_flag("--force", options->force, "Replace existing files");
    addSensorOptions(command, options->burst);
    command.footer(footer);
    command.callback([options] { simulate(*options); });
}

}  // namespace vxapp
