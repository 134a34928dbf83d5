// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "apps/vxkit/input/FrameFile.h"
#include "apps/vxkit/input/FrameTable.h"

// What the sources of FrameFile and the table of formats share; not for other files.
namespace vxapp {

/// Opens a regular, non-empty file for reading.
/// @param size  takes the number of bytes
std::ifstream openForReading(const std::string& path, std::uint64_t& size);

/// Reads exactly `count` bytes from the given place.
/// @return false if the file ends before
bool readBytes(std::ifstream& file, std::uint64_t place, char* bytes, std::size_t count);

/// Raises a UsageError unless an OpenCV type is one channel of a type of samples.
void requireFrameType(const std::string& name, int type);
/// Raises a UsageError unless both sides are above 0 and a frame of that size can be held.
void requireFrameSize(const std::string& name, std::int64_t width, std::int64_t height);
/// Raises a UsageError for a frame that a file of so few bytes can't hold in any coding, so that a small file
/// can't ask for all memory.
/// @param frameBytes  of the decoded frame
void requirePlausibleSize(const std::string& name, std::uint64_t frameBytes, std::uint64_t fileBytes);
/// A count of frames as an int; raises a UsageError if it isn't from 1 on or more than can be counted.
int checkedFrameCount(const std::string& name, std::uint64_t count);

/// Where the directories of a TIFF file's pages of full size stand, from their chain.
FrameTable tiffPages(const std::string& path);

/// What bytes at the start of a file look like, for messages: "a GIF picture".
std::string looksOf(std::string_view start);

class Spool;

using FileOpener = std::function<std::unique_ptr<FrameFile>(const std::string& path)>;

/// Opens what lies in a spool, and keeps it.
/// @param name  takes the place of the spool's path in messages
std::unique_ptr<FrameFile> openSpooled(const std::string& name, std::unique_ptr<Spool> spool,
                                       const FileOpener& open);
/// The same for what a name delivers that can be read but once.
std::unique_ptr<FrameFile> openReadOnce(const std::string& path, const FileOpener& open);

// What the table of formats opens.
using FormatOpener = std::unique_ptr<FrameFile>(const std::string& path, const FileHints& hints);
FormatOpener openCsvFile;
FormatOpener openJpegFile;    ///< the raw image inside a radiometric file
FormatOpener openNetpbmFile;  ///< PGM, also several images of one size
FormatOpener openNpyFile;
FormatOpener openPfmFile;  ///< also several images of one size
FormatOpener openPngFile;
FormatOpener openTiffFile;
FormatOpener openVideoFile;  ///< Matroska, MP4, AVI; grey of 9 to 16 bits
#ifdef VXKIT_FITS
FormatOpener openFitsFile;
#endif
#ifdef VXKIT_HDF5
FormatOpener openHdf5File;
#endif

/// Whether the start of a file is that of a table of numbers.
bool looksLikeCsv(std::string_view start);

}  // namespace vxapp
