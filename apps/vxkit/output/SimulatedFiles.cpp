#include "apps/vxkit/SimulatedFiles.h"

#include <fstream>
#include <iomanip>
#include <sstream>
#include <system_error>
#include <utility>

#include "apps/vxkit/Failure.h"
#include "apps/vxkit/Output.h"
#include "apps/vxkit/SafeWrite.h"

namespace vxapp {

namespace fs = std::filesystem;

namespace {

const char* endingOf(FrameFormat format)
{
    switch (format) {
        case FrameFormat::png:
            return ".png";
        case FrameFormat::tiff:
            return ".tiff";
        case FrameFormat::pfm:
            return ".pfm";
        default:
            return ".raw";
    }
}

}  // namespace

std::optional<FrameFormat> frameFormatFrom(const std::string& name)
{
    for (const FrameFormat format : {FrameFormat::png, FrameFormat::tiff, FrameFormat::pfm, FrameFormat::raw})
        if (name == endingOf(format) + 1)
            return format;
    return std::nullopt;
}

bool keepsFloats(FrameFormat format)
{
    return format == FrameFormat::tiff || format == FrameFormat::pfm;
}

SimulatedFiles::SimulatedFiles(fs::path folder, FrameFormat format, vxsupport::CountScale scale, bool force)
    : folder_(std::move(folder)), format_(format), scale_(scale), force_(force)
{}

void SimulatedFiles::reserve(const std::vector<std::string>& seriesNames, int frames,
                             const std::vector<std::string>& singleFiles) const
{
    std::error_code error;
    const fs::file_status status = fs::status(folder_, error);
    if (fs::exists(status) && !fs::is_directory(status))
        throw UsageError(folder_.string() + " is not a folder; expected the name of a folder for the frames");
    if (!fs::exists(status)) {
        makeFolder();
        return;
    }
    for (const std::string& name : seriesNames)
        for (int i = 0; i < (format_ == FrameFormat::raw ? 1 : frames); ++i)
            requireWritable(pathOf(name, i), force_);
    for (const std::string& name : singleFiles)
        requireWritable(folder_ / name, force_);
}

void SimulatedFiles::writeSeries(const std::string& name, int frames,
                                 const std::function<cv::Mat_<float>(int)>& frame) const
{
    if (format_ == FrameFormat::raw) {
        writeSafely(pathOf(name, 0), force_, [&](const fs::path& temporary) {
            std::ofstream file(temporary, std::ios::binary);
            for (int i = 0; i < frames && file.good(); ++i)
                appendLittleEndian(file, vxsupport::toCounts(frame(i), scale_));
            file.close();
            return file.good();
        });
        return;
    }
    for (int i = 0; i < frames; ++i) {
        if (keepsFloats(format_))
            saveFloats(pathOf(name, i), frame(i), force_);
        else
            saveCounts(pathOf(name, i), frame(i), scale_, force_);
    }
}

void SimulatedFiles::writeFloats(const std::string& fileName, const cv::Mat_<float>& image) const
{
    saveFloats(folder_ / fileName, image, force_);
}

void SimulatedFiles::writeText(const std::string& fileName, const std::string& text) const
{
    writeSafely(folder_ / fileName, force_, [&](const fs::path& temporary) {
        std::ofstream file(temporary);
        file << text;
        file.close();
        return file.good();
    });
}

fs::path SimulatedFiles::pathOf(const std::string& series, int frame) const
{
    std::ostringstream name;
    name << series;
    if (format_ != FrameFormat::raw)
        name << '-' << std::setw(4) << std::setfill('0') << frame;
    name << endingOf(format_);
    return folder_ / name.str();
}

void SimulatedFiles::makeFolder() const
{
    std::error_code error;
    fs::create_directories(folder_, error);
    if (error)
        throw UsageError(folder_.string() + " can't be made: " + error.message());
}

}  // namespace vxapp
