// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/terminal/Results.h"
#include "support/Pictures.h"

namespace vxapp {

inline constexpr int largestZoom = 64;

/// What the command was asked for.
struct ShowOptions
{
    RecordingOptions recording;  // each input is one
    std::vector<int> frames;     // of each input; empty: the first in pictures, all in tables
    std::optional<double> scale;
    std::optional<double> offset;
    std::string unit;  // empty: by what the files hold
    std::string range = "own";
    std::string region;
    std::optional<int> zoom;
    bool extremes = false;
    std::vector<std::string> spots;
    std::vector<std::string> areas;
    std::vector<double> isotherms;
    std::string picture;
    std::string table;
    std::string colourMap = vxsupport::colourMapNames().front();
    bool force = false;
};

/// Reads the inputs, measures and tells what was marked, and writes the picture and the table.
///
/// @throws UsageError  for an option that does not fit the inputs
void runShow(const ShowOptions& options, Results& results);

}  // namespace vxapp
