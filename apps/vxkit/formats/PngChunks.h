// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <istream>
#include <string_view>

namespace vxapp {

/// CRC-32 as PNG chunks carry it.
/// @param bytes  type and data of a chunk
/// @param former  of the bytes before these
std::uint32_t crcOfChunk(std::string_view bytes, std::uint32_t former = 0);

/// Whether a PNG file's chunks are all there up to its end, and those that an image needs bear the sums of what they
/// hold. The image library finds the same, but tells it on the standard error stream.
bool hasWholeChunks(std::istream& file);

}  // namespace vxapp
