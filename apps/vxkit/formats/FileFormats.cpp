// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/formats/FileFormats.h"

#include <algorithm>

#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/output/FrameSinkParts.h"
#include "apps/vxkit/output/Output.h"

namespace vxapp {

namespace {

using namespace std::string_view_literals;

template <typename Matches>
const FileFormat* findFormat(Matches matches)
{
    const std::vector<FileFormat>& all = fileFormats();
    const auto found = std::find_if(all.begin(), all.end(), matches);
    return found != all.end() ? &*found : nullptr;
}

std::string helpOf(std::string_view FileFormat::*text)
{
    std::string help;
    for (const FileFormat& format : fileFormats()) {
        if ((format.*text).empty())
            continue;
        help += help.empty() ? "" : ";\n";
        for (const std::string_view ending : format.endings)
            help.append(ending == format.endings.front() ? "" : ", ").append(ending);
        help.append(": ").append(format.*text);
    }
    return help;
}

}  // namespace

const std::vector<FileFormat>& fileFormats()
{
    static const std::vector<SampleType> everyType{SampleType::u8,  SampleType::u16, SampleType::s16,
                                                   SampleType::u32, SampleType::s32, SampleType::f32,
                                                   SampleType::f64};
    static const std::vector<FileFormat> formats{
        {.name = "raw",
         .endings = {".raw"},
         .sequenceText = "headerless frames, row by row, little-endian",
         .openSink = openRawSink,
         .samples = everyType},
        {.name = "tiff",
         .endings = {".tiff", ".tif"},
         .starts = {"II*\0"sv, "MM\0*"sv, "II+\0"sv, "MM\0+"sv},
         .open = openTiffFile,
         .imageText = "32-bit floats, every bit kept",
         .sequenceText = "pages of counts or floats",
         .saveFloats = saveTiff,
         .openSink = openTiffSink,
         .samples = everyType},
        {.name = "npy",
         .endings = {".npy"},
         .starts = {"\x93NUMPY"},
         .open = openNpyFile,
         .sequenceText = "one array of frames, rows and columns",
         .openSink = openNpySink,
         .samples = everyType},
        {.name = "pfm",
         .endings = {".pfm"},
         .starts = {"Pf", "PF"},
         .open = openPfmFile,
         .imageText = "32-bit floats, every bit kept",
         .sequenceText = "numbered images of 32-bit floats",
         .saveFloats = savePfm,
         .openSink = openPfmSink,
         .oneFilePerFrame = true,
         .samples = {SampleType::f32}},
        {.name = "png",
         .endings = {".png"},
         .starts = {"\x89PNG"},
         .open = openPngFile,
         .imageText = "16-bit counts; their scale is printed and stands in the file",
         .sequenceText = "numbered 16-bit images",
         .saveCounts = savePng,
         .openSink = openPngSink,
         .oneFilePerFrame = true,
         .samples = {SampleType::u8, SampleType::u16}},
        {.name = "pgm",
         .endings = {".pgm"},
         .starts = {"P5", "P2"},
         .open = openNetpbmFile,
         .sequenceText = "numbered 16-bit images",
         .openSink = openPgmSink,
         .oneFilePerFrame = true,
         .samples = {SampleType::u8, SampleType::u16}},
        {.name = "csv",
         .endings = {".csv"},
         .open = openCsvFile,
         .sequenceText = "numbers as text, an empty line between frames",
         .openSink = openCsvSink,
         .samples = everyType},
        {.name = "jpeg", .endings = {".jpg", ".jpeg"}, .starts = {"\xFF\xD8\xFF"}, .open = openJpegFile},
#ifdef VXKIT_FITS
        {.name = "fits",
         .endings = {".fits", ".fit", ".fts"},
         .starts = {"SIMPLE  ="},
         .open = openFitsFile,
         .sequenceText = "one image of two or three dimensions",
         .openSink = openFitsSink,
         .samples = everyType},
#endif
#ifdef VXKIT_HDF5
        {.name = "hdf5",
         .endings = {".h5", ".hdf5", ".hdf"},
         .starts = {"\x89HDF\r\n\x1a\n"},
         .open = openHdf5File,
         .sequenceText = "one data set named frames",
         .openSink = openHdf5Sink,
         .samples = everyType},
#endif
#ifdef VXKIT_VIDEO
        {.name = "mkv",
         .endings = {".mkv"},
         .starts = {"\x1A\x45\xDF\xA3"},
         .open = openVideoFile,
         .sequenceText = "lossless 16-bit video (FFV1)",
         .openSink = openLosslessSink},
        {.name = "mp4",
         .endings = {".mp4"},
         .starts = {"\0\0\0\024ftyp"sv, "\0\0\0\030ftyp"sv, "\0\0\0\034ftyp"sv, "\0\0\0\040ftyp"sv},
         .open = openVideoFile,
         .sequenceText = "8-bit video in colours for looking at (H.264)",
         .openSink = openVideoSink},
        {.name = "mov", .endings = {".mov"}, .open = openVideoFile},
        {.name = "avi",
         .endings = {".avi"},
         .starts = {"RIFF"},
         .open = openVideoFile,
         .sequenceText = "8-bit video in colours for looking at (Motion JPEG)",
         .openSink = openVideoSink},
#endif
    };
    return formats;
}

bool FileFormat::takes(SampleType type) const
{
    return samples.empty() ? type == SampleType::u16
                           : std::find(samples.begin(), samples.end(), type) != samples.end();
}

const FileFormat* formatOf(const std::filesystem::path& path)
{
    return findFormat([ending = lowerEnding(path)](const FileFormat& format) {
        return std::find(format.endings.begin(), format.endings.end(), ending) != format.endings.end();
    });
}

const FileFormat* formatStartingWith(std::string_view bytes)
{
    return findFormat([bytes](const FileFormat& format) {
        return std::any_of(format.starts.begin(), format.starts.end(),
                           [bytes](std::string_view start) { return bytes.starts_with(start); });
    });
}

const FileFormat* formatNamed(std::string_view name)
{
    return findFormat([name](const FileFormat& format) { return format.name == name; });
}

bool isImageName(const std::filesystem::path& path)
{
    const FileFormat* format = formatOf(path);
    return format != nullptr && format->open != nullptr;
}

bool isFloatFile(const std::filesystem::path& path)
{
    const FileFormat* format = formatOf(path);
    return format != nullptr && format->saveFloats != nullptr;
}

bool isCountFile(const std::filesystem::path& path)
{
    const FileFormat* format = formatOf(path);
    return format != nullptr && format->saveCounts != nullptr;
}

bool isPngName(const std::filesystem::path& path)
{
    return formatOf(path) == formatNamed("png");
}

std::string imageHelp()
{
    return helpOf(&FileFormat::imageText);
}

std::string sequenceHelp()
{
    return helpOf(&FileFormat::sequenceText);
}

std::string inputHelp()
{
    return endingsText([](const FileFormat& format) { return format.open != nullptr; });
}

std::vector<std::string> frameFormatNames()
{
    std::vector<std::string> names;
    for (const FileFormat& format : fileFormats())
        if (format.saveFloats != nullptr || format.saveCounts != nullptr || format.openSink == openRawSink)
            names.emplace_back(format.name);
    return names;
}

std::string orList(const std::vector<std::string_view>& words)
{
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (i > 0)
            text += i + 1 < words.size() ? ", " : " or ";
        text += words[i];
    }
    return text;
}

}  // namespace vxapp
