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

void addSampleOption(CLI::App& command, SampleForm& form)
{
    command.add_flag_callback(
        "--signed", [&form] { form = SampleForm::signedSamples; },
        "The frames hold two's complement samples, as the stream processor takes them,\n"
        "not counts from 0 to 65535");
}

}  // namespace vxapp
