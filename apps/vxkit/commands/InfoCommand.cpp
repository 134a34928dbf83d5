// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/InfoCommand.h"

#include <CLI/CLI.hpp>
#include <iomanip>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "apps/vxkit/arguments/RecordingArguments.h"
#include "apps/vxkit/arguments/ResultsOption.h"
#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/stream/RecordingFacts.h"

namespace vxapp {

namespace {

constexpr int toldPixels = 8;

struct BadPixel
{
    int row, column;
    bool isHot;
};

std::vector<BadPixel> badPixelsOf(const BadPixelMap& map)
{
    std::vector<BadPixel> pixels;
    for (int y = 0; y < map.marks.rows; ++y)
        for (int x = 0; x < map.marks.cols; ++x)
            if (map.marks(y, x) != BadPixelMap::good)
                pixels.push_back({y, x, map.marks(y, x) == BadPixelMap::hot});
    return pixels;
}

std::string rounded(double value, int digits = 3)
{
    std::ostringstream text;
    text << std::setprecision(digits) << value;
    return text.str();
}

std::string noiseText(const RecordingFacts& facts)
{
    const std::string within = rounded(facts.noiseWithin) + " within a frame, with pattern and fine texture";
    return facts.noiseBetween ? rounded(*facts.noiseBetween) + " between frames; " + within : within;
}

std::string badPixelText(const RecordingFacts& facts)
{
    const std::vector<BadPixel> pixels = badPixelsOf(facts.badPixels);
    std::string text = std::to_string(pixels.size()) + " in " + std::to_string(facts.looked) +
                       (facts.looked == 1 ? " frame" : " frames");
    for (std::size_t i = 0; i < pixels.size() && i < toldPixels; ++i)
        text += (i == 0 ? ": " : ", ") + std::string(pixels[i].isHot ? "hot" : "cold") + " (row " +
                std::to_string(pixels[i].row) + ", column " + std::to_string(pixels[i].column) + ")";
    return pixels.size() > toldPixels ? text + ", ..." : text;
}

std::string orderText(OrderGuess order)
{
    switch (order) {
        case OrderGuess::asRead:
            return "right as read";
        case OrderGuess::swapped:
            return "looks swapped";
        default:
            return "can't be told from the samples";
    }
}

std::string rangeText(const RecordingFacts& facts, SampleType samples)
{
    if (facts.finite == 0)
        return "no finite value";
    std::string text = valueText(facts.low, samples) + " to " + valueText(facts.high, samples) + ", mean " +
                       rounded(facts.mean, 6);
    if (facts.undefined > 0)
        text += "; " + std::to_string(facts.undefined) + " are no numbers";
    if (facts.infinite > 0)
        text += "; " + std::to_string(facts.infinite) + " are infinite";
    return text;
}

void tell(const std::string& name, const Recording& recording, const RecordingFacts& facts, std::ostream& out)
{
    const SampleFacts& samples = factsOf(recording.sampleType());
    const cv::Size size = recording.frameSize();
    out << name << '\n'
        << "  frames      " << recording.frameCount() << " of " << size.width << "x" << size.height << '\n'
        << "  type        " << samples.name << " (" << samples.text << ")\n"
        << "  range       " << rangeText(facts, samples.type) << '\n';
    if (facts.finite == 0)
        return;
    out << "  noise       " << noiseText(facts) << '\n' << "  bad pixels  " << badPixelText(facts) << '\n';
    if (samples.bytes > 1)
        out << "  byte order  " << orderText(facts.order) << '\n';
}

void record(const std::string& name, const Recording& recording, const RecordingFacts& facts,
            ResultRecord& results)
{
    ResultRecord& file = results.add("files");
    const auto number = [](auto value) { return static_cast<std::int64_t>(value); };
    file.set("name", name);
    file.set("width", number(recording.frameSize().width));
    file.set("height", number(recording.frameSize().height));
    file.set("frames", number(recording.frameCount()));
    file.set("type", std::string(factsOf(recording.sampleType()).name));
    file.set("low", facts.low);
    file.set("high", facts.high);
    file.set("mean", facts.mean);
    file.set("undefined", number(facts.undefined));
    file.set("infinite", number(facts.infinite));
    if (facts.noiseBetween)
        file.set("noise_between_frames", *facts.noiseBetween);
    file.set("noise_within_frame", facts.noiseWithin);
    file.set("byte_order", orderText(facts.order));
    file.list("bad_pixels");
    for (const BadPixel& pixel : badPixelsOf(facts.badPixels))
        file.add("bad_pixels")
            .set("row", number(pixel.row))
            .set("column", number(pixel.column))
            .set("hot", pixel.isHot);
}

void tellAll(const RecordingOptions& options, Results& results)
{
    for (const std::string& name : options.inputs) {
        Recording recording(forFile(options, name));
        const RecordingFacts facts = readFacts(recording);
        tell(name == "-" ? "standard input" : name, recording, facts, results.lines());
        results.lines() << std::flush;
        record(name, recording, facts, results);
    }
    results.print();
}

const char* const footer =
    R"(Noise is a pixel's standard deviation: between consecutive frames, where motion counts too if it fills the
picture, and within a frame. A bad pixel stands out from all around it in nearly every frame that was looked at (up
to a hundred); with few frames a single warm point of the scene may pass for one.

Examples:
  vxkit info recording.raw --size 160x120
  vxkit info frame-*.tif --json)";

}  // namespace

void addInfoCommand(CLI::App& program)
{
    CLI::App& command = *program.add_subcommand(
        "info", "Tells of each recording size, frames, type, range, noise, bad pixels and byte order");
    const auto options = std::make_shared<RecordingOptions>();
    options->takesBytes = true;
    addRecordingOptions(command, *options);
    const auto results = addResultsOption(command);
    command.footer(footer);
    command.callback([options, results] { tellAll(*options, *results); });
}

}  // namespace vxapp
