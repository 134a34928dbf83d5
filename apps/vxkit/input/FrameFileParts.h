// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>

#include "apps/vxkit/input/FrameFile.h"

// What the sources of FrameFile and the table of formats share; not for other files.
namespace vxapp {

/// Opens a regular, non-empty file for reading.
/// @param size  takes the number of bytes
std::ifstream openForReading(const std::string& path, std::uint64_t& size);

/// Reads exactly `count` bytes from the given place.
/// @return false if the file ends before
bool readBytes(std::ifstream& file, std::uint64_t place, char* bytes, std::size_t count);

/// Raises a UsageError unless the type is one channel of 16-bit counts or 32-bit floats.
void requireFrameType(const std::string& name, int type);

/// Number of pages of a TIFF file, from its chain of directories alone.
int tiffPageCount(const std::string& path);

// What the table of formats opens.
std::unique_ptr<FrameFile> openPfmFile(const std::string& path);  ///< also several images of one size
std::unique_ptr<FrameFile> openTiffFile(const std::string& path);
std::unique_ptr<FrameFile> openPictureFile(const std::string& path);  ///< one image of another format
std::unique_ptr<FrameFile> openVideoFile(
    const std::string& path);  ///< Matroska, MP4, AVI; grey of 9 to 16 bits

}  // namespace vxapp
