// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/SimulatedFiles.h"

#include <fstream>
#include <iomanip>
#include <sstream>
#include <system_error>
#include <utility>

#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/output/Output.h"
#include "apps/vxkit/output/SafeWrite.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace fs = std::filesystem;

SimulatedFiles::SimulatedFiles(fs::path folder, const FileFormat& format, vxsupport::CountScale scale,
                               bool force)
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
        for (int i = 0; i < (isOneFile() ? 1 : frames); ++i)
            requireWritable(pathOf(name, i), force_);
    for (const std::string& name : singleFiles)
        requireWritable(folder_ / name, force_);
}

void SimulatedFiles::writeSeries(const std::string& name, int frames,
                                 const std::function<cv::Mat_<float>(int)>& frame) const
{
    if (isOneFile()) {
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
        if (format_.saveFloats != nullptr)
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

bool SimulatedFiles::isOneFile() const
{
    return format_.saveFloats == nullptr && format_.saveCounts == nullptr;
}

fs::path SimulatedFiles::pathOf(const std::string& series, int frame) const
{
    std::ostringstream name;
    name << series;
    if (!isOneFile())
        name << '-' << std::setw(4) << std::setfill('0') << frame;
    name << format_.endings.front();
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
