// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/arguments/LookArguments.h"

#include <CLI/CLI.hpp>

namespace vxapp {

namespace {

constexpr int longestReach = 1000;

}  // namespace

void addReachOption(CLI::App& command, LookReach& reach)
{
    command
        .add_option("--lookahead", reach.ahead,
                    "Frames to come over which a look smooths its curve, besides five past ones; 0: as live")
        ->check(CLI::Range(0, longestReach).description(""))
        ->type_name("FRAMES")
        ->capture_default_str();
}

void addBadPixelOptions(CLI::App& command, BadPixelOptions& options)
{
    command
        .add_option("--bad-pixels", options.source,
                    "Mend hot and cold pixels ahead of everything else: auto (the default) learns them over "
                    "the frames,\n"
                    "off leaves them, or a map of the frames' size, a PNG in which they are not 0")
        ->type_name("auto|MAP.png|off");
    command
        .add_option("--write-bad-pixels", options.output,
                    "Also write the map of bad pixels: 255 for hot ones, 85 for cold ones")
        ->type_name("MAP.png");
}

}  // namespace vxapp
