// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/arguments/RecordingArguments.h"

#include <CLI/CLI.hpp>

namespace vxapp {

void addRecordingOptions(CLI::App& command, RecordingOptions& options)
{
    command
        .add_option("INPUT", options.inputs,
                    "Frames in their order: PNG, PGM or TIFF (also of several pages) with 16 bits,\n"
                    "TIFF or PFM with 32-bit floats, or with --size a headerless recording")
        ->required();
    command
        .add_option("--size", options.size,
                    "INPUT is headerless: unsigned 16-bit little-endian frames of this size")
        ->type_name("WIDTHxHEIGHT");
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
