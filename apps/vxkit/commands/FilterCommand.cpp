// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/FilterCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/vxkit/arguments/LookArguments.h"
#include "apps/vxkit/arguments/NumberChecks.h"
#include "apps/vxkit/arguments/RecordingArguments.h"
#include "apps/vxkit/arguments/ResultArguments.h"
#include "apps/vxkit/arguments/RunArguments.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/FrameSink.h"
#include "apps/vxkit/stream/ClusterFilter.h"
#include "apps/vxkit/stream/FrameRun.h"
#include "apps/vxkit/stream/Survey.h"
#include "apps/vxkit/terminal/Failure.h"
#include "support/drivers/FrameFilter.h"
#include "support/drivers/SettingError.h"

namespace vxapp {

namespace {

using vxsupport::FrameFilter;
using vxsupport::PatternSettings;
using vxsupport::TemporalSettings;
using vxsupport::UnsharpSettings;

constexpr int mostPercent = 100;
constexpr int largestLimit = 31;
constexpr int largestCluster = 1 << 15;
constexpr double largestAmount = 100.0;
constexpr double largestSigma = 50.0;

/// Sets a filter's settings, and is of no use to the others.
struct FilterOption
{
    const CLI::Option* option;
    std::vector<std::string> filters;
};

struct FilterOptions
{
    RecordingOptions recording;
    ScaleOptions scale;
    SequenceOptions output;
    BadPixelOptions badPixels;
    std::vector<std::string> chosen;  // "--temporal", ...
    std::vector<FilterOption> options;
    TemporalSettings temporal;
    int gain = 6;
    PatternSettings pattern;
    UnsharpSettings unsharp;
    std::optional<double> threshold;
    ClusterSettings cluster;
};

std::string chosenFilter(const FilterOptions& options)
{
    if (options.chosen.size() != 1)
        throw UsageError("filter: expected one of --temporal, --spatial, --pattern, --unsharp and --cluster");
    std::string filter = options.chosen.front();
    for (const auto& [option, filters] : options.options)
        if (option->count() > 0 && std::find(filters.begin(), filters.end(), filter) == filters.end())
            throw UsageError(option->get_name() + ": a setting of " + filters.front() + ", not of " + filter);
    return filter;
}

PatternSettings patternSettings(const FilterOptions& options)
{
    PatternSettings settings = options.pattern;
    if (const auto threshold = options.threshold) {
        if (*threshold > mostPercent || std::floor(*threshold) != *threshold)
            throw UsageError("--threshold: expected a whole number from 0 to 100 for --pattern");
        settings.threshold = static_cast<int>(*threshold);
    }
    return settings;
}

UnsharpSettings unsharpSettings(const FilterOptions& options)
{
    UnsharpSettings settings = options.unsharp;
    settings.threshold = options.threshold;
    if (settings.threshold && *settings.threshold > 1.0)
        throw UsageError("--threshold: expected a number from 0 to 1 for --unsharp");
    return settings;
}

std::unique_ptr<FrameFilter> temporalFilter(const TemporalSettings& settings)
{
    try {
        return vxsupport::makeTemporalFilter(settings);
    } catch (const vxsupport::SettingError& error) {
        throw UsageError("--" + std::string(error.what()));
    }
}

std::unique_ptr<FrameFilter> makeFilter(const FilterOptions& options, Recording& recording,
                                        const SampleScale& scale)
{
    const std::string filter = chosenFilter(options);
    if (filter == "--temporal")
        return temporalFilter(options.temporal);
    if (filter == "--spatial")
        return vxsupport::makeSpatialFilter(options.gain);
    if (filter == "--pattern")
        return vxsupport::makePatternFilter(patternSettings(options));
    if (filter == "--unsharp")
        return vxsupport::makeUnsharpFilter(unsharpSettings(options));
    return makeClusterFilter(options.cluster, recording, options.recording.size, scale, options.output.force);
}

// The factors of a cluster pattern are those of the pixels as they are.
BadPixelOptions badPixelOptions(const FilterOptions& options)
{
    BadPixelOptions badPixels = options.badPixels;
    if (chosenFilter(options) != "--cluster")
        return badPixels;
    if (!badPixels.isOff() && !(badPixels.source.empty() && badPixels.output.empty()))
        throw UsageError("--cluster: learns from bad pixels too; expected no --bad-pixels beside it");
    badPixels.source = "off";
    return badPixels;
}

void runFilter(const FilterOptions& options)
{
    const BadPixelOptions badPixels = badPixelOptions(options);
    Recording recording(options.recording);
    SampleScale scale(recording, options.scale);
    const SampleType type = scale.typeFor(options.output);
    const std::unique_ptr<FrameSink> sink =
        openFrameSink(options.output, recording, {recording.frameSize(), recording.frameCount(), type});
    checkBadPixelNames(badPixels, recording, options.output.force);
    const std::unique_ptr<FrameFilter> filter = makeFilter(options, recording, scale);
    const Survey found = survey(recording, scale, badPixels);
    const BadPixelMender mender(found.badPixels);
    const cv::Size size = recording.frameSize();
    std::cout << recording.frameCount() << " frames of " << size.width << "x" << size.height << "; "
              << filter->description() << '\n'
              << scale.description() << '\n'
              << tellBadPixels(found, badPixels, options.output.force) << std::endl;
    cv::Mat_<short> mended, result;
    const RunTimes times = forEachFrame(
        recording, scale,
        [&](const cv::Mat_<short>& samples) {
            samples.copyTo(mended);
            mender.mend(mended);
            filter->process(mended, result);
        },
        [&](int) { sink->add(scale.toFile(result, type)); });
    std::cout << sink->finish() << '\n'
              << speedText(times, size, "the filter") << '\n'
              << scale.remarks() << std::flush;
}

/// Adds the options of one filter to the command's help as a group of their own.
class FilterGroup
{
public:
    FilterGroup(CLI::App& command, FilterOptions& options, const std::string& filter,
                const std::string& purpose)
        : command_(command), options_(options), filter_(filter)
    {
        command
            .add_flag_callback(
                filter, [&options, filter] { options.chosen.push_back(filter); }, purpose)
            ->group("One of these filters");
    }

    template <typename Value>
    CLI::Option* add(const std::string& name, Value& value, const std::string& purpose)
    {
        return own(command_.add_option(name, value, purpose));
    }
    CLI::Option* addFlag(const std::string& name, bool& value, const std::string& purpose)
    {
        return own(command_.add_flag(name, value, purpose));
    }

private:
    CLI::Option* own(CLI::Option* option)
    {
        options_.options.push_back({option, {filter_}});
        return option->group("With " + filter_);
    }

    CLI::App& command_;
    FilterOptions& options_;
    std::string filter_;
};

void addNoiseFilters(CLI::App& command, FilterOptions& options)
{
    FilterGroup temporal(command, options, "--temporal",
                         "Temporal noise: a recursive filter per pixel that gives way to motion");
    temporal.add("--control-gain", options.temporal.controlGain,
                 "Tenths, 0 to 10: the higher, the sooner a difference counts as motion [10]");
    temporal
        .add("--global-threshold", options.temporal.globalThreshold,
             "0 to 99: motion of the whole picture above it weakens the filter; 100: never")
        ->check(CLI::Range(0, mostPercent))
        ->capture_default_str();
    temporal.add("--feedback-factor", options.temporal.feedbackFactor,
                 "Percent, 0 to 100: strength of the filter [60]");
    temporal.addFlag(
        "--hw-units", options.temporal.hwUnits,
        "Control gain (0 to 16) and feedback factor (0 to 2047) are in hardware units [16 and 1228]");

    FilterGroup spatial(command, options, "--spatial",
                        "Spatial noise: smooths 3 x 3 pixels where the picture is flat");
    spatial.add("--gain", options.gain, "0 to 31: the higher, the more is smoothed; 0 changes nothing")
        ->check(CLI::Range(0, largestLimit))
        ->capture_default_str();

    FilterGroup pattern(command, options, "--pattern",
                        "Static pattern: learns stripes and pixel offsets and takes them off");
    pattern.add("--line-limit", options.pattern.lineLimit, "0 to 31: bounds a column's correction")
        ->check(CLI::Range(0, largestLimit))
        ->capture_default_str();
    pattern.add("--frame-limit", options.pattern.frameLimit, "0 to 31: bounds a pixel's correction")
        ->check(CLI::Range(0, largestLimit))
        ->capture_default_str();

    FilterGroup unsharp(command, options, "--unsharp",
                        "Unsharp mask: adds the difference to a Gaussian blur");
    unsharp.add("--amount", options.unsharp.amount, "Weight of the difference")
        ->check(numberWithin(0.0, largestAmount))
        ->capture_default_str();
    unsharp.add("--sigma", options.unsharp.sigma, "Deviation of the blur in pixels, 0.1 to 50")
        ->check(numberWithin(0.1, largestSigma))
        ->capture_default_str();

    CLI::Option* threshold =
        command
            .add_option("--threshold", options.threshold,
                        "--pattern: 0 to 100, deviation from the neighbours above which a pixel is scene "
                        "[22];\n--unsharp: 0 to 1, brighter detail alone is sharpened, where it exceeds this "
                        "share of\nthe frame's range, and the frame gets 8 bits [off: both sides, all bits]")
            ->check(zeroOrMore())
            ->group("With --pattern or --unsharp");
    options.options.push_back({threshold, {"--pattern", "--unsharp"}});
}

void addClusterFilter(CLI::App& command, FilterOptions& options)
{
    ClusterSettings& settings = options.cluster;
    FilterGroup cluster(
        command, options, "--cluster",
        "Cluster pattern: learns from a uniform scene by what each pixel is to be multiplied");
    cluster
        .add("--uniform", settings.uniform,
             "Frames of a uniform scene to learn from, once for each file (default: INPUT itself)")
        ->allow_extra_args(false)
        ->type_name("FILE");
    cluster.add("--mean", settings.mean, "Learn from this image of means instead ...")->type_name("FILE");
    cluster.add("--std-dev", settings.stdDev, "... and this one of standard deviations in time")
        ->type_name("FILE");
    cluster.add("--damping", settings.damping, "Also write what was learned: the factors as .tif or .pfm")
        ->type_name("FILE");
    cluster
        .add("--cluster-width", settings.width,
             "Largest cluster that is corrected: wider groups of neighbours that deviate\nto the same side "
             "are scene")
        ->check(CLI::Range(1, largestCluster))
        ->capture_default_str();
    cluster.add("--cluster-height", settings.height, "The same for its height")
        ->check(CLI::Range(1, largestCluster))
        ->capture_default_str();
    cluster
        .add("--std-dev-limit", settings.stdDevLimit,
             "Counts: pixels that deviate in time as much or more are left alone")
        ->check(zeroOrMore())
        ->capture_default_str();
    cluster
        .add("--mean-limit", settings.meanLimit,
             "Counts: pixels whose mean is further from a neighbour's are left alone")
        ->check(zeroOrMore())
        ->capture_default_str();
    cluster.add("--alpha-damping", settings.alphaDamping, "0 to 1: share of the correction that is learned")
        ->check(numberWithin(0.0, 1.0))
        ->capture_default_str();
    cluster.add("--mode", settings.mode, "What smooths the means")
        ->check(CLI::IsMember({"median", "gaussian"}))
        ->capture_default_str();
}

const char* const footer =
    R"(Results are in the units of the input: .tif and .npy hold them as floats where the input or --scale has
degrees; other files hold counts, whose scale is told. Limits and thresholds are in counts.

Examples:
  vxkit filter --temporal --feedback-factor 80 --size 160x120 night.raw -o calm.raw
  vxkit filter --cluster --uniform lid.raw --size 160x120 night.raw -o even.tiff)";

}  // namespace

void addFilterCommand(CLI::App& program)
{
    const auto options = std::make_shared<FilterOptions>();
    CLI::App& command = *program.add_subcommand("filter", "Run one pixel filter alone on a recording");
    addNoiseFilters(command, *options);
    addClusterFilter(command, *options);
    addRecordingOptions(command, options->recording);
    addScaleOptions(command, options->scale);
    addBadPixelOptions(command, options->badPixels);
    addSequenceOptions(command, options->output);
    command.get_option("--output")->required();
    command.footer(footer);
    command.callback([options, &command] {
        options->recording.files = filesReadBy(command);
        runFilter(*options);
    });
}

}  // namespace vxapp
