// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/arguments/RecordingArguments.h"

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "apps/vxkit/formats/FileFormats.h"

namespace vxapp {

namespace {

void addRawOptions(CLI::App& command, RecordingOptions& options)
{
    std::vector<std::string> types;
    for (const SampleFacts& facts : sampleTypes())
        types.emplace_back(facts.name);
    command
        .add_option_function<std::string>(
            "--dtype", [&options](const std::string& name) { options.hints.samples = sampleTypeNamed(name); },
            "Type of the samples of a headerless INPUT (default: u16); also of CSV\n"
            "(default: f32, or f64 for numbers of more than 9 digits)")
        ->check(CLI::IsMember(types));
    command
        .add_option_function<std::string>(
            "--endian",
            [&options](const std::string& order) {
                options.hints.order = order == "big" ? std::endian::big : std::endian::little;
            },
            "Byte order of a headerless INPUT (default: little); also of the raw image inside\n"
            "a JPEG file, where little swaps what its PNG format prescribes")
        ->check(CLI::IsMember(std::vector<std::string>{"little", "big"}));
    command.add_option("--header", options.header, "Bytes before the first frame of a headerless INPUT")
        ->type_name("BYTES");
    command
        .add_option("--frame-header", options.frameHeader, "Bytes before each frame of a headerless INPUT")
        ->type_name("BYTES");
}

}  // namespace

void addLayoutOptions(CLI::App& command, RecordingOptions& options)
{
    command
        .add_option("--size", options.size,
                    "INPUT is headerless: frames of this size, row by row, of unsigned 16-bit\n"
                    "little-endian counts unless the next options say otherwise")
        ->type_name("WIDTHxHEIGHT");
    addRawOptions(command, options);
    command
        .add_option("--dataset", options.hints.dataset,
                    "Path of the frames in an HDF5 file with several data sets")
        ->type_name("PATH");
}

void addRecordingOptions(CLI::App& command, RecordingOptions& options)
{
    command
        .add_option("INPUT", options.inputs,
                    "Frames in their order: files of the formats\n" + inputHelp() +
                        "\nor with --size headerless recordings; - is the standard input")
        ->required();
    addLayoutOptions(command, options);
    command
        .add_option("--frames", options.frames,
                    "Take COUNT frames from frame FIRST on, counted from 0 over all inputs (default: all)")
        ->type_name("FIRST:COUNT");
}

void addScaleOptions(CLI::App& command, ScaleOptions& options)
{
    command.add_flag_callback(
        "--signed", [&options] { options.form = SampleForm::signedSamples; },
        "The frames hold two's complement samples, as the stream processor takes them,\n"
        "not counts from 0 to 65535");
    command
        .add_option(
            "--scale", options.scale,
            "What a count means: value = count * SCALE + OFFSET, for degrees for example. Frames of\n"
            "counts are taken as they are, and results become values; frames of values, floats for\n"
            "example, become counts for the work and values again (default for these: chosen from the\n"
            "recording so that nothing is lost)")
        ->type_name("SCALE");
    command.add_option("--offset", options.offset, "Value of count 0")->type_name("OFFSET");
}

}  // namespace vxapp
