// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/arguments/ResultArguments.h"

#include <CLI/CLI.hpp>

#include "apps/vxkit/arguments/NumberChecks.h"
#include "apps/vxkit/formats/FileFormats.h"

namespace vxapp {

void addResultOptions(CLI::App& command, ResultOptions& options)
{
    command.add_option("-o,--output", options.path, "Result file, by its ending\n" + imageHelp())
        ->type_name("OUT");
    command.add_flag("--stack", options.stack,
                     "All results in one file, OUT: " + endingsText(ResultStack::isKind) +
                         "\n(videos are anyway; 9 frames per second)");
    command
        .add_option("--preview", options.preview,
                    "Also (or, without -o, only) write an 8-bit PNG in colours for looking at")
        ->type_name("FILE.png");
    command.add_option("--colour-map,--color-map", options.colourMap, "Colours of the preview")
        ->check(CLI::IsMember(vxsupport::colourMapNames()))
        ->capture_default_str();
    command.add_flag("--force", options.force, "Replace existing files");
}

void addSequenceOptions(CLI::App& command, SequenceOptions& options)
{
    command.add_option("-o,--output", options.path, "Result, by its ending\n" + sequenceHelp())
        ->type_name("OUT");
    command
        .add_option("--range", options.range,
                    "Counts from the darkest to the brightest colour of a video: LOW:HIGH, recording\n"
                    "for those of all frames, or follow for limits that follow the scene smoothly\n"
                    "(default: what an equaliser gives, else recording)")
        ->type_name("RANGE");
    command.add_option("--fps", options.framesPerSecond, "Frames per second of a video")
        ->check(numberWithin(0.1, 1000.0))
        ->capture_default_str();
    command.add_option("--colour-map,--color-map", options.colourMap, "Colours for looking at")
        ->check(CLI::IsMember(vxsupport::colourMapNames()))
        ->capture_default_str();
    command.add_flag("--force", options.force, "Replace existing files");
}

void addContactSheetOptions(CLI::App& command, ContactSheetOptions& options)
{
    command
        .add_option("--contact-sheet", options.path,
                    "Also (or, without -o, only) show the input and each stage side by side")
        ->type_name("FILE.png");
    command
        .add_option("--sheet-frames", options.frames,
                    "Frames of the contact sheet, by their numbers in the recording\n"
                    "(default: the first, the middle and the last)")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->type_name("N,N,...");
}

}  // namespace vxapp
