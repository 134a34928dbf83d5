// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/PsfCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <iomanip>
#include <memory>
#include <opencv2/core.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "apps/vxkit/arguments/RecordingArguments.h"
#include "apps/vxkit/arguments/ResultsOption.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/optics/SlantedEdge.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/Progress.h"
#include "apps/vxkit/terminal/Verbosity.h"

namespace vxapp {

namespace {

constexpr double enlargement = 2.0;  // pixels of the large image along one of the frame
constexpr double cutOffSigma = 1.2;  // of the large image; beyond, the engines' kernel misses a tenth

struct PsfOptions
{
    RecordingOptions recording;
    std::vector<int> region;  // x, y, width, height; empty: look for one
};

/// The edges of all frames taken together.
struct PointSpread
{
    double sigma = 0.0;  // pixels of the frame
    double deviation = 0.0;
    int frames = 0;
    EdgeMeasurement first;
    cv::Rect region;
};

cv::Mat_<float> finiteFrame(Recording& recording, int index)
{
    cv::Mat_<float> frame = recording.values(index);
    if (!cv::checkRange(frame))
        throw UsageError(recording.nameOf(index) +
                         ": holds pixels that are infinite or no numbers; expected none");
    return frame;
}

cv::Rect givenRegion(const PsfOptions& options, const Recording& recording)
{
    const cv::Rect whole({0, 0}, recording.frameSize());
    const cv::Rect region(options.region[0], options.region[1], options.region[2], options.region[3]);
    if (region.empty() || (region & whole) != region)
        throw UsageError("--region: expected X,Y,WIDTH,HEIGHT inside the " + std::to_string(whole.width) +
                         "x" + std::to_string(whole.height) + " pixels of " + recording.nameOf(0));
    return region;
}

// The pattern of a sensor is the same in all frames, so that many of them make no smaller error than one.
PointSpread measure(Recording& recording, const PsfOptions& options)
{
    PointSpread spread;
    Progress progress(recording.frameCount());
    double weights = 0.0;
    std::string problem;
    for (int i = 0; i < recording.frameCount(); ++i) {
        progress.show(i + 1);
        const cv::Mat_<float> frame = finiteFrame(recording, i);
        if (i == 0)
            spread.region = options.region.empty() ? cv::Rect() : givenRegion(options, recording);
        const EdgeMeasurement found =
            spread.region.empty() ? findEdge(frame, spread.region) : measureEdge(frame, spread.region);
        if (!found.isUsable()) {
            problem = problem.empty() ? recording.nameOf(i) + ": no usable edge: " + found.problem : problem;
            continue;
        }
        if (spread.frames++ == 0)
            spread.first = found;
        const double weight = 1.0 / std::max(found.deviation * found.deviation, 1e-12);
        weights += weight;
        spread.sigma += weight * found.sigma;
        spread.deviation += weight * found.deviation;
    }
    if (spread.frames == 0)
        throw UsageError(problem +
                         (options.region.empty() ? "; --region X,Y,WIDTH,HEIGHT points at one" : ""));
    spread.sigma /= weights;
    spread.deviation /= weights;
    return spread;
}

void tell(const PointSpread& spread, const Recording& recording, Results& results)
{
    const EdgeMeasurement& edge = spread.first;
    const bool isHidden = spread.sigma < leastSigma;
    const double sigma = isHidden ? leastSigma + 2.0 * spread.deviation : spread.sigma;
    results.lines() << std::fixed << std::setprecision(1) << "edge: " << edge.angle << " degrees off the "
                    << (edge.isUpright ? "columns" : "rows") << " at column " << edge.middle.x << ", row "
                    << edge.middle.y << ", " << edge.length << " pixels long, " << edge.contrast / edge.noise
                    << " times the noise; " << spread.frames << " of " << recording.frameCount()
                    << (recording.frameCount() == 1 ? " frame\n" : " frames\n") << std::setprecision(3)
                    << "sigma: " << (isHidden ? "at most " : "") << sigma;
    if (!isHidden)
        results.lines() << " +- " << spread.deviation;
    results.lines() << " pixels of the frame\n"
                    << "for superres: --psf-sigma " << enlargement * sigma << std::endl;
    results.set("sigma", sigma)
        .set("sigmaIsLimit", isHidden)
        .set("deviation", spread.deviation)
        .set("psfSigma", enlargement * sigma)
        .set("angle", edge.angle)
        .set("upright", edge.isUpright)
        .set("x", edge.middle.x)
        .set("y", edge.middle.y)
        .set("length", edge.length)
        .set("contrast", edge.contrast)
        .set("noise", edge.noise)
        .set("misfit", edge.misfit)
        .set("usableFrames", spread.frames)
        .set("frames", recording.frameCount());
    ResultRecord& region = results.add("regions");
    region.set("x", spread.region.x).set("y", spread.region.y);
    region.set("width", spread.region.width).set("height", spread.region.height);
}

void run(const PsfOptions& options, Results& results)
{
    Recording recording(options.recording);
    const PointSpread spread = measure(recording, options);
    tell(spread, recording, results);
    results.print();
    if (spread.frames < recording.frameCount())
        warn(std::to_string(recording.frameCount() - spread.frames) + " of " +
             std::to_string(recording.frameCount()) + " frames show no usable edge and were left out");
    if (enlargement * spread.sigma > cutOffSigma)
        warn("super-resolution cuts a point spread as wide as this off at 2 pixels of the result");
}

const char* const footer =
    R"(The edge:
  A straight border between two even surfaces, slanted against columns and rows by some 2 to 40 degrees, over 10 rows or
  more: a warm plate in front of a cold wall, in focus. An edge that is soft by itself, out of focus or blurred by motion
  gives a sigma that is too large. Sharpening by the camera, which gives one that is too
  small, must be off. Without --region the first frame is searched for the edge that yields the least error;
  every frame is then measured in that place by itself, so that the camera may move a little.

The result:
  The point spread that super-resolution takes: a Gaussian, integrated over the pixels of the large image. Its sigma
  comes with the standard error that the noise around the edge leaves; several frames don't lessen it, since the sensor's
  pattern is in all of them. Below 0.2 pixels a sigma can't be told from none: then an upper limit is given.

Examples:
  vxkit psf plate.png
  vxkit psf recording.raw --size 160x120 --frames 0:20 --region 40,30,32,32
  vxkit superres shot-*.png --psf-sigma 0.71 -o result.tif)";

}  // namespace

void addPsfCommand(CLI::App& program)
{
    CLI::App& command =
        *program.add_subcommand("psf", "Measures the point spread of camera and lens on a slanted edge");
    auto options = std::make_shared<PsfOptions>();
    addRecordingOptions(command, options->recording);
    command
        .add_option("--region", options->region,
                    "Part of the frames that holds one edge (default: look for one)")
        ->delimiter(',')
        ->expected(4)
        ->type_name("X,Y,WIDTH,HEIGHT");
    const auto results = addResultsOption(command);
    command.footer(footer);
    command.callback([options, results] { run(*options, *results); });
}

}  // namespace vxapp
