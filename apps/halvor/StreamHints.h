// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace halvorapp {

/// What a run met in a stream.
struct StreamCensus
{
    std::size_t frameBytes = 0;  ///< of the sensor's size
    int captures = 0;            ///< whole frames that were read, repeated ones too
    int frames = 0;              ///< captures that repeated their predecessor
    std::size_t rest = 0;        ///< bytes behind the last whole frame
    bool isAtEnd = false;        ///< the stream ended ahead of the settings' length
};

/// Why a stream gives few frames or none, and what may help; empty if nothing is strange.
///
/// @param stream  read once more, to find after how many bytes it repeats itself
std::string hintFor(const std::string& stream, const StreamCensus& census);

}  // namespace halvorapp
