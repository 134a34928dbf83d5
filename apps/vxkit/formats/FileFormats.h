// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "apps/vxkit/formats/SampleType.h"
#include "support/Counts.h"

namespace vxapp {

class FrameFile;
class FrameSink;
struct SinkRequest;
struct FileHints;

/// What the programs know of a kind of file. Each function is null where the format, or the programs, can't.
struct FileFormat
{
    std::string_view name;                   ///< as options call it
    std::vector<std::string_view> endings;   ///< lower case with the dot; new files get the first
    std::vector<std::string_view> starts{};  ///< first bytes, any of them; none for headerless files

    std::unique_ptr<FrameFile> (*open)(const std::string& path, const FileHints& hints) = nullptr;

    // What the writers below make, for the help.
    std::string_view imageText{};     ///< of saveFloats or saveCounts
    std::string_view sequenceText{};  ///< of openSink

    using Image = cv::Mat_<float>;
    using Path = std::filesystem::path;
    /// One image of 32-bit floats, bit by bit.
    void (*saveFloats)(const Path& path, const Image& image, bool force) = nullptr;
    /// One image of 16-bit counts, with their scale as a text in the file.
    void (*saveCounts)(const Path& path, const Image& image, const vxsupport::CountScale& scale,
                       bool force) = nullptr;
    /// The frames of a recording.
    std::unique_ptr<FrameSink> (*openSink)(const SinkRequest& request) = nullptr;
    bool oneFilePerFrame = false;       ///< a sink of several frames numbers its files
    std::vector<SampleType> samples{};  ///< that a sink takes; empty: u16 alone

    bool takes(SampleType type) const;
};

/// All formats, in the order in which messages list them. A new format is a line here, and its functions.
const std::vector<FileFormat>& fileFormats();

// Null where there is none.
const FileFormat* formatOf(const std::filesystem::path& path);  ///< by its ending, in any case
const FileFormat* formatStartingWith(std::string_view bytes);
const FileFormat* formatNamed(std::string_view name);

/// Whether a file's ending is that of an image file; else it counts as headerless.
bool isImageName(const std::filesystem::path& path);
/// Whether single images can be written to such a file, as floats or as counts.
bool isFloatFile(const std::filesystem::path& path);
bool isCountFile(const std::filesystem::path& path);
/// Whether it is the name for a picture: those are PNG files of 8 bits.
bool isPngName(const std::filesystem::path& path);

/// ".tiff, .tif or .pfm": the endings of the formats for which `isWanted` holds.
template <typename Predicate>
std::string endingsText(Predicate isWanted);

/// ".raw: headerless frames; .tiff, .tif: pages": what the writers of single images, or of sequences, make.
std::string imageHelp();
std::string sequenceHelp();

/// ".tiff, .tif, .npy or .csv": what files are read from.
std::string inputHelp();

/// Names of the formats that frames can be written to, floats or counts.
std::vector<std::string> frameFormatNames();

/// "a, b or c"
std::string orList(const std::vector<std::string_view>& words);

template <typename Predicate>
std::string endingsText(Predicate isWanted)
{
    std::vector<std::string_view> endings;
    for (const FileFormat& format : fileFormats())
        if (isWanted(format))
            endings.insert(endings.end(), format.endings.begin(), format.endings.end());
    return orList(endings);
}

}  // namespace vxapp
