// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/ConvertCommand.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/files/OutputNames.h"
#include "apps/vxkit/arguments/NumberChecks.h"
#include "apps/vxkit/arguments/RecordingArguments.h"
#include "apps/vxkit/arguments/ResultArguments.h"
#include "apps/vxkit/arguments/RunArguments.h"
#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/FrameSink.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/Progress.h"
#include "apps/vxkit/terminal/Verbosity.h"

namespace vxapp {

namespace {

struct ConvertOptions
{
    RecordingOptions recording;
    SequenceOptions output;
    std::string type;    // of the output's samples; empty for that of what is written
    std::string region;  // empty for all
    int average = 1;     // side of the blocks
    std::optional<double> scale;
    std::optional<double> offset;
    bool rounds = false;
    bool clips = false;
    bool doubles = false;

    bool computes() const { return average > 1 || scale || offset; }
};

// "X,Y,WIDTH,HEIGHT"
cv::Rect regionOf(const std::string& text, cv::Size size)
{
    const cv::Rect whole({}, size);
    if (text.empty())
        return whole;
    std::vector<int> numbers;
    const char* const end = text.data() + text.size();
    for (const char* place = text.data(); place <= end;) {
        int number = -1;
        const auto [behind, error] = std::from_chars(place, end, number);
        const bool goesOn = behind < end && *behind == ',';
        if (error != std::errc() || number < 0 || (!goesOn && behind != end))
            break;
        numbers.push_back(number);
        place = behind + 1;
    }
    const bool isWhole = std::count(text.begin(), text.end(), ',') == 3 && numbers.size() == 4;
    const auto fits = [](int first, int length, int limit) {
        return first < limit && length > 0 && length <= limit - first;
    };
    if (!isWhole || !fits(numbers[0], numbers[2], size.width) || !fits(numbers[1], numbers[3], size.height))
        throw UsageError("--region " + text + ": expected X,Y,WIDTH,HEIGHT inside the " +
                         std::to_string(size.width) + "x" + std::to_string(size.height) +
                         " pixels of a frame");
    return {numbers[0], numbers[1], numbers[2], numbers[3]};
}

/// What becomes of each frame, and what of it is written.
class Conversion
{
public:
    Conversion(const ConvertOptions& options, const Recording& recording)
        : options_(options),
          region_(regionOf(options.region, recording.frameSize())),
          size_(region_.width / options.average, region_.height / options.average),
          type_(typeFor(options, recording.sampleType()))
    {
        if (size_.empty())
            throw UsageError("--average " + std::to_string(options.average) +
                             ": larger than the frames, which have " + std::to_string(region_.width) + "x" +
                             std::to_string(region_.height) + " pixels");
    }

    SequenceShape shape(int frames) const { return {size_, frames, type_}; }

    /// @param name  of the frame, for messages
    cv::Mat operator()(const cv::Mat& frame, const std::string& name) const
    {
        const cv::Mat part = frame(region_);
        ConversionLosses losses;
        cv::Mat converted = convertSamples(options_.computes() ? computed(part) : part, type_, losses);
        check(losses, name);
        return converted;
    }

private:
    static SampleType typeFor(const ConvertOptions& options, SampleType input);
    cv::Mat_<double> computed(const cv::Mat& part) const;
    void check(const ConversionLosses& losses, const std::string& name) const;

    const ConvertOptions& options_;
    cv::Rect region_;
    cv::Size size_;
    SampleType type_;
};

SampleType Conversion::typeFor(const ConvertOptions& options, SampleType input)
{
    if (!options.type.empty())
        return *sampleTypeNamed(options.type);
    if (!options.computes())
        return input;
    return factsOf(input).bytes > 2 && input != SampleType::f32 ? SampleType::f64 : SampleType::f32;
}

// Columns and rows behind the last whole block are left out.
cv::Mat_<double> Conversion::computed(const cv::Mat& part) const
{
    cv::Mat_<double> values;
    part.convertTo(values, CV_64F);
    const int side = options_.average;
    const double scale = options_.scale.value_or(1.0);
    const double offset = options_.offset.value_or(0.0);
    cv::Mat_<double> means(size_);
    for (int y = 0; y < size_.height; ++y)
        for (int x = 0; x < size_.width; ++x) {
            double sum = 0.0;
            for (int row = 0; row < side; ++row)
                for (int column = 0; column < side; ++column)
                    sum += values(y * side + row, x * side + column);
            means(y, x) = sum / (static_cast<double>(side) * side) * scale + offset;
        }
    return means;
}

void Conversion::check(const ConversionLosses& losses, const std::string& name) const
{
    const auto refuse = [&](std::size_t count, const std::string& what) {
        throw UsageError(name + ": " + std::to_string(count) + " values " + what + ", the first in row " +
                         std::to_string(losses.place.y) + ", column " + std::to_string(losses.place.x) +
                         ": " + valueText(losses.example, SampleType::f64) + "; expected another --type" +
                         (losses.undefined > 0 ? "" : " or, to take the nearest, --round or --clip"));
    };
    const std::string type(factsOf(type_).name);
    if (losses.undefined > 0)
        refuse(losses.undefined, "are no numbers, which " + type + " does not hold");
    if (losses.clipped > 0 && !options_.clips)
        refuse(losses.clipped, "are beyond " + type);
    const bool isComputedFloat = options_.computes() && isFloatType(type_);
    if (losses.rounded > 0 && !options_.rounds && !isComputedFloat)
        refuse(losses.rounded, "lie between two of " + type);
}

void requireForStreamProcessor(const ConvertOptions& options, SampleType type)
{
    const FileFormat* format =
        options.output.format.empty() ? formatOf(options.output.path) : formatNamed(options.output.format);
    const bool isStream = format == formatNamed("raw") && options.output.order == std::endian::little;
    if (!isStream || (type != SampleType::s16 && type != SampleType::u16))
        throw UsageError(
            "--double: the stream processor takes headerless little-endian frames of s16; expected -o "
            "NAME.raw and --type s16");
}

void convert(const ConvertOptions& options)
{
    if (vxfiles::isWrittenThrough(options.output.path) && options.output.format.empty() &&
        formatOf(options.output.path) == nullptr)
        throw UsageError(options.output.path + ": the name tells no format; expected --to FORMAT");
    Recording recording(options.recording);
    ConvertOptions adapted = options;
    if (options.doubles && options.type.empty())
        adapted.type = "s16";
    const Conversion conversion(adapted, recording);
    const int times = options.doubles ? 2 : 1;
    if (recording.frameCount() > std::numeric_limits<int>::max() / times)
        throw UsageError("--double: too many frames; expected fewer");
    const SequenceShape shape = conversion.shape(times * recording.frameCount());
    if (options.doubles)
        requireForStreamProcessor(options, shape.samples);
    const std::unique_ptr<FrameSink> sink = openFrameSink(options.output, recording, shape);
    Progress progress(recording.frameCount());
    for (int i = 0; i < recording.frameCount(); ++i) {
        progress.show(i + 1);
        const cv::Mat frame = conversion(recording.frame(i), recording.nameOf(i));
        for (int time = 0; time < times; ++time)
            sink->add(frame);
    }
    progress.clear();
    const std::string written = sink->finish();
    if (!vxfiles::isWrittenThrough(options.output.path))
        std::cout << written << std::endl;
}

const char* const footer =
    R"(Samples keep their type unless --type names another; what --average, --scale or --offset compute is f32, or f64
for inputs of more digits. A value that the type does not hold is refused and named, unless --round or --clip ask for
the nearest.

With --double the stream processor halvor takes the output: every frame twice, as s16. Counts above 32767 don't fit;
--offset -32768 --type s16 maps all counts in the way in which vxkit enhance does.

- as INPUT or OUT is the standard input or output; pipes are read and written too. Input is read to its end before
the first frame is used, output is written when it is whole.

Examples:
  vxkit convert recording.raw --size 160x120 -o recording.npy
  vxkit convert recording.raw --size 160x120 --scale 0.01 --offset -273.15 -o degrees.tif
  vxkit convert recording.raw --size 160x120 --frames 10:1 --region 40,30,80,60 -o part.csv
  vxkit convert recording.raw --size 1024x768 --average 4 --type u16 --round -o small.raw
  vxkit convert recording.npy --double -o stream.raw
  cat recording.npy | vxkit convert - --to fits -o - > recording.fits)";

std::vector<std::string> sinkNames()
{
    std::vector<std::string> names;
    for (const FileFormat& format : fileFormats())
        if (format.openSink != nullptr)
            names.emplace_back(format.name);
    return names;
}

std::vector<std::string> typeNames()
{
    std::vector<std::string> names;
    for (const SampleFacts& facts : sampleTypes())
        names.emplace_back(facts.name);
    return names;
}

void addValueOptions(CLI::App& command, ConvertOptions& options)
{
    command.add_option("--type", options.type, "Type of the output's samples (default: see below)")
        ->check(CLI::IsMember(typeNames()));
    command.add_option("--scale", options.scale, "Write value * SCALE + OFFSET")
        ->check(finiteNumber())
        ->type_name("SCALE");
    command.add_option("--offset", options.offset, "The offset, after the scale")
        ->check(finiteNumber())
        ->type_name("OFFSET");
    command.add_flag("--round", options.rounds, "Take the nearest value of the type for one between two");
    command.add_flag("--clip", options.clips, "Take the type's nearest value for one beyond it");
}

}  // namespace

void addConvertCommand(CLI::App& program)
{
    CLI::App& command = *program.add_subcommand(
        "convert", "Writes a recording in another format or type, a part of it, or averages of its pixels");
    const auto options = std::make_shared<ConvertOptions>();
    options->recording.takesBytes = true;
    addRecordingOptions(command, options->recording);
    addSequenceOptions(command, options->output);
    command.get_option("--output")->required();
    command.add_option("--to", options->output.format, "Format of OUT (default: by its ending)")
        ->check(CLI::IsMember(sinkNames()));
    command
        .add_option_function<std::string>(
            "--output-endian",
            [options](const std::string& order) {
                options->output.order = order == "big" ? std::endian::big : std::endian::little;
            },
            "Byte order of a headerless OUT (default: little)")
        ->check(CLI::IsMember(std::vector<std::string>{"little", "big"}));
    command
        .add_option("--region", options->region, "Part of each frame, in pixels from its upper left corner")
        ->type_name("X,Y,WIDTH,HEIGHT");
    command.add_option("--average", options->average, "Write the means of blocks of N by N pixels")
        ->check(CLI::Range(1, 1024).description(""))
        ->type_name("N");
    command.add_flag("--double", options->doubles, "Write a stream for the stream processor halvor");
    addValueOptions(command, *options);
    command.footer(footer);
    command.callback([options, &command] {
        options->recording.files = filesReadBy(command);
        convert(*options);
    });
}

}  // namespace vxapp
