// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/DiffCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exception>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "apps/vxkit/arguments/NumberChecks.h"
#include "apps/vxkit/arguments/RecordingArguments.h"
#include "apps/vxkit/arguments/ResultsOption.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

struct DiffOptions
{
    RecordingOptions recording;
    double tolerance = 0.0;
};

struct Differences
{
    std::int64_t compared = 0;  // values
    std::int64_t values = 0;
    int frames = 0;
    double largest = 0.0;
    // The first.
    int frame = 0;
    cv::Point place;
    double a = 0.0;
    double b = 0.0;
};

bool isEqual(double a, double b, double tolerance)
{
    return a == b || (std::isnan(a) && std::isnan(b)) || std::abs(a - b) <= tolerance;
}

void compareFrames(const cv::Mat& frameA, const cv::Mat& frameB, int index, double tolerance,
                   Differences& found)
{
    cv::Mat_<double> a;
    cv::Mat_<double> b;
    frameA.convertTo(a, CV_64F);
    frameB.convertTo(b, CV_64F);
    const std::int64_t before = found.values;
    found.compared += static_cast<std::int64_t>(a.total());
    for (int y = 0; y < a.rows; ++y)
        for (int x = 0; x < a.cols; ++x) {
            if (isEqual(a(y, x), b(y, x), tolerance))
                continue;
            if (found.values++ == 0) {
                found.frame = index;
                found.place = {x, y};
                found.a = a(y, x);
                found.b = b(y, x);
            }
            // A value against none at all is no distance.
            if (const double distance = std::abs(a(y, x) - b(y, x)); distance > found.largest)
                found.largest = distance;
        }
    found.frames += found.values > before ? 1 : 0;
}

std::string shapeText(const Recording& recording)
{
    return std::to_string(recording.frameCount()) +
           (recording.frameCount() == 1 ? " frame of " : " frames of ") +
           std::to_string(recording.frameSize().width) + "x" + std::to_string(recording.frameSize().height) +
           " (" + std::string(factsOf(recording.sampleType()).name) + ")";
}

void tell(const Differences& found, const Recording& a, const Recording& b, std::ostream& out)
{
    out << "first difference: frame " << found.frame << ", row " << found.place.y << ", column "
        << found.place.x << ": " << valueText(found.a, a.sampleType()) << " and "
        << valueText(found.b, b.sampleType()) << '\n'
        << found.values << " of " << found.compared << " values differ, in " << found.frames
        << (found.frames == 1 ? " frame" : " frames") << "; largest difference "
        << valueText(found.largest, SampleType::f64) << '\n';
}

void record(const Differences& found, Results& results)
{
    results.set("values_compared", found.compared);
    results.set("values_different", found.values);
    if (found.values == 0)
        return;
    results.set("frames_different", std::int64_t{found.frames});
    results.set("largest", found.largest);
    results.set("frame", std::int64_t{found.frame});
    results.set("row", std::int64_t{found.place.y});
    results.set("column", std::int64_t{found.place.x});
    results.set("a", found.a);
    results.set("b", found.b);
}

bool compareRecordings(const DiffOptions& options, Results& results)
{
    const std::vector<std::string>& names = options.recording.inputs;
    Recording a(forFile(options.recording, names.at(0)));
    Recording b(forFile(options.recording, names.at(1)));
    const bool sameShape = a.frameSize() == b.frameSize() && a.frameCount() == b.frameCount();
    Differences found;
    if (a.frameSize() == b.frameSize())
        for (int i = 0; i < std::min(a.frameCount(), b.frameCount()); ++i)
            compareFrames(a.frame(i), b.frame(i), i, options.tolerance, found);
    const bool equal = sameShape && found.values == 0;
    if (!sameShape)
        results.lines() << names[0] << " has " << shapeText(a) << ", " << names[1] << " has " << shapeText(b)
                        << '\n';
    if (found.values > 0)
        tell(found, a, b, results.lines());
    if (equal)
        results.lines() << "equal: " << shapeText(a)
                        << (a.sampleType() != b.sampleType()
                                ? ", held as " + std::string(factsOf(b.sampleType()).name) + " in " + names[1]
                                : "")
                        << (options.tolerance > 0.0 ? ", within the tolerance" : "") << '\n';
    results.lines() << std::flush;
    results.set("equal", equal);
    record(found, results);
    results.print();
    return equal;
}

// A failure must not end with the status that tells of a difference.
void diff(const DiffOptions& options, Results& results)
{
    const std::vector<std::string>& names = options.recording.inputs;
    bool equal = false;
    try {
        equal = compareRecordings(options, results);
    } catch (const UsageError&) {
        throw;
    } catch (const std::exception& error) {
        throw UsageError(names.at(0) + " and " + names.at(1) + " can't be compared: " + error.what());
    }
    if (!equal)
        throw EngineError(names.at(0) + " and " + names.at(1) + " differ");
}

const char* const footer =
    R"(Values are compared, whatever types the files hold them in; what is no number equals what is none. Exit status:
0 equal, 1 different, 2 not compared.

Examples:
  vxkit diff recording.raw copy.npy --size 160x120
  vxkit diff result.tif expected.tif --tolerance 0.001)";

}  // namespace

void addDiffCommand(CLI::App& program)
{
    CLI::App& command = *program.add_subcommand(
        "diff", "Tells whether two recordings or images hold the same values, and where they differ first");
    const auto options = std::make_shared<DiffOptions>();
    options->recording.takesBytes = true;
    addRecordingOptions(command, options->recording);
    CLI::Option& inputs = *command.get_option("INPUT");
    inputs.expected(2);
    inputs.description("The two files; options for headerless recordings count for those that are");
    command.add_option("--tolerance", options->tolerance, "Values are equal that differ by at most this")
        ->check(zeroOrMore())
        ->capture_default_str();
    const auto results = addResultsOption(command);
    command.footer(footer);
    command.callback([options, results] { diff(*options, *results); });
}

}  // namespace vxapp
