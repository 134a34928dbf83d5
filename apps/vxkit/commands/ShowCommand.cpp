// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/ShowCommand.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "apps/vxkit/arguments/NumberChecks.h"
#include "apps/vxkit/arguments/PlaceArguments.h"
#include "apps/vxkit/arguments/RecordingArguments.h"
#include "apps/vxkit/arguments/ResultsOption.h"
#include "apps/vxkit/arguments/RunArguments.h"
#include "apps/vxkit/commands/ShowRun.h"

namespace vxapp {

namespace {

void addInputOptions(CLI::App& command, ShowOptions& options)
{
    command
        .add_option("INPUT", options.recording.inputs,
                    "Images and recordings, side by side, each of a size and kind of its own")
        ->required();
    addLayoutOptions(command, options.recording);
    command
        .add_option(
            "--frame", options.frames,
            "Frames of each recording, counted from 0 (default: the first in the picture, all in the\n"
            "table)")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->type_name("N,N,...");
    command
        .add_option("--scale", options.scale, "Degrees Celsius per count: degrees = count * SCALE + OFFSET")
        ->check(finiteNumber())
        ->type_name("SCALE");
    command.add_option("--offset", options.offset, "Degrees Celsius at count 0")
        ->check(finiteNumber())
        ->type_name("OFFSET");
    command
        .add_option(
            "--unit", options.unit,
            "Unit of the values (default: deg C by --scale or --offset, else counts or, for floats, values)")
        ->type_name("TEXT");
}

void addColourOptions(CLI::App& command, ShowOptions& options)
{
    const std::string group = "Colours and size";
    command
        .add_option("--range", options.range,
                    "Values from the darkest to the brightest colour: LOW:HIGH, shared for one range of all\n"
                    "pictures, own for one of each (without half a percent of the pixels at both ends)")
        ->type_name("RANGE")
        ->capture_default_str()
        ->group(group);
    command.add_option("--colour-map,--color-map", options.colourMap, "Colours")
        ->check(CLI::IsMember(vxsupport::colourMapNames()))
        ->capture_default_str()
        ->group(group);
    addAreaOption(command, "--region", options.region, "Part of the pictures that is shown (default: all)")
        ->group(group);
    command
        .add_option("--zoom", options.zoom,
                    "Squares of N x N pixels show a pixel of the first INPUT (default: up to 480 rows)")
        ->check(CLI::Range(1, largestZoom))
        ->type_name("N")
        ->group(group);
}

void addMarkOptions(CLI::App& command, ShowOptions& options)
{
    const std::string group = "Marks, in pixels of the first INPUT; each may be given several times";
    command.add_flag("--extremes", options.extremes, "Mark the minimum and the maximum of what is shown")
        ->group(group);
    command.add_option("--spot", options.spots, "Mark a pixel and tell its value")
        ->allow_extra_args(false)
        ->type_name("X,Y")
        ->group(group);
    command.add_option("--roi", options.areas, "Mark a region of interest")
        ->allow_extra_args(false)
        ->type_name("X,Y,WxH")
        ->group(group);
    command.add_option("--isotherm", options.isotherms, "Draw the lines along which the values pass a level")
        ->check(finiteNumber())
        ->allow_extra_args(false)
        ->type_name("LEVEL")
        ->group(group);
}

void addOutputOptions(CLI::App& command, ShowOptions& options)
{
    command.add_option("-o,--output", options.picture, "Picture of 8 bits")->type_name("FILE.png");
    command
        .add_option(
            "--csv", options.table,
            "Also (or, without -o, only) write pixels, minimum, maximum, mean, deviation, median and\n"
            "places of the extremes for the whole image, each region (R1, ...) and spot (S1, ...)")
        ->type_name("FILE.csv");
    command.add_flag("--force", options.force, "Replace existing files");
}

const char* const footer =
    R"(Images of another size than the first have marks and region at the same places of the scene, in proportion.
Values that are infinite or no numbers, and bad-pixel markers, count nowhere.

Examples:
  vxkit show result.tif -o result.png --extremes --isotherm 30
  vxkit show recording.raw --size 160x120 --frame 0,50,99 --range shared -o three.png
  vxkit show before.raw after.tif --size 160x120 -o both.png --region 40,30,60x45
  vxkit show recording.raw --size 160x120 --roi 20,20,30x30 --spot 80,60 --csv table.csv)";

}  // namespace

void addShowCommand(CLI::App& program)
{
    CLI::App& command = *program.add_subcommand(
        "show", "Makes pictures with a colour bar, marks and isotherms, and tables of regions and spots");
    auto options = std::make_shared<ShowOptions>();
    addInputOptions(command, *options);
    addOutputOptions(command, *options);
    addColourOptions(command, *options);
    addMarkOptions(command, *options);
    command.footer(footer);
    const auto results = addResultsOption(command);
    command.callback([options, results, &command] {
        options->recording.files = filesReadBy(command);
        runShow(*options, *results);
    });
}

}  // namespace vxapp