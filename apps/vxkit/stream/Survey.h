// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <optional>
#include <string>

#include "apps/vxkit/stream/BadPixels.h"

namespace vxapp {

class Recording;
class SampleScale;

/// What is done about bad pixels.
struct BadPixelOptions
{
    std::string source;  ///< "auto", "off" or the name of a map; empty for what the command takes, "auto"
    std::string output;  ///< where the map goes; may be empty

    bool learns() const { return source.empty() || source == "auto"; }
    bool isOff() const { return source == "off"; }
};

/// What a look through a recording tells before it is processed.
struct Survey
{
    int frames = 0;      ///< that were looked at
    double noise = 0.0;  ///< standard deviation of a pixel in counts
    BadPixelMap badPixels;
};

/// Refuses names of maps that can't be read or written, before any work starts.
void checkBadPixelNames(const BadPixelOptions& options, const Recording& recording, bool force);

/// Looks at a recording, at up to a hundred frames in pairs spread over it. The noise is what the pixels of
/// consecutive frames differ by, or from their neighbours in one frame if that is less; medians keep motion and
/// edges out.
Survey survey(Recording& recording, SampleScale& scale, const BadPixelOptions& options);

/// Writes the map if it is wanted.
/// @return "bad pixels: 1 hot, 0 cold ..."; for people
std::string tellBadPixels(const Survey& found, const BadPixelOptions& options, bool force);

}  // namespace vxapp
