// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "apps/vxkit/formats/ByteOrder.h"
#include "apps/vxkit/stream/BadPixels.h"

namespace vxapp {

class Recording;

/// What a recording holds, in the units of its file.
struct RecordingFacts
{
    double low = 0.0;  ///< of the finite values
    double high = 0.0;
    double mean = 0.0;
    std::size_t finite = 0;
    std::size_t undefined = 0;  ///< values that are no numbers
    std::size_t infinite = 0;
    std::optional<double> noiseBetween;  ///< standard deviation of a pixel, from consecutive frames
    double noiseWithin = 0.0;  ///< the same from neighbours in a frame: with fixed pattern, less texture
    int looked = 0;            ///< frames that noise and bad pixels were learned from
    BadPixelMap badPixels;
    OrderGuess order = OrderGuess::unknown;
};

/// Reads all frames once, and up to a hundred of them again.
RecordingFacts readFacts(Recording& recording);

}  // namespace vxapp
