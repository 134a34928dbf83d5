// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/SimulatedFiles.h"

#include <bit>
#include <iomanip>
#include <sstream>
#include <system_error>
#include <utility>

#include "apps/files/OutputFile.h"
#include "apps/files/OutputNames.h"
#include "apps/files/SequenceList.h"
#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/formats/SampleType.h"
#include "apps/vxkit/output/Output.h"
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
            vxfiles::requireWritable(pathOf(name, i), force_);
    for (const std::string& name : singleFiles)
        vxfiles::requireWritable(folder_ / name, force_);
    if (!isOneFile() && frames > 1)
        for (const std::string& name : seriesNames)
            vxfiles::requireWritable(vxfiles::SequenceList::nameOf(sequenceOf(name)), force_);
}

void SimulatedFiles::writeSeries(const std::string& name, int frames,
                                 const std::function<cv::Mat_<float>(int)>& frame) const
{
    if (isOneFile()) {
        vxfiles::OutputFile file(pathOf(name, 0), force_);
        for (int i = 0; i < frames; ++i)
            file.append(
                encodeSamples(vxsupport::toCounts(frame(i), scale_), SampleType::u16, std::endian::little));
        file.commit();
        return;
    }
    vxfiles::SequenceList list(sequenceOf(name), force_);
    list.withdraw();
    for (int i = 0; i < frames; ++i) {
        const fs::path path = pathOf(name, i);
        if (format_.saveFloats != nullptr)
            saveFloats(path, frame(i), force_);
        else
            saveCounts(path, frame(i), scale_, force_);
        list.add(path, path);
    }
    if (frames > 1)
        list.file().commit();
}

void SimulatedFiles::writeFloats(const std::string& fileName, const cv::Mat_<float>& image) const
{
    saveFloats(folder_ / fileName, image, force_);
}

void SimulatedFiles::writeText(const std::string& fileName, const std::string& text) const
{
    vxfiles::writeFile(folder_ / fileName, text, force_);
}

bool SimulatedFiles::isOneFile() const
{
    return format_.saveFloats == nullptr && format_.saveCounts == nullptr;
}

fs::path SimulatedFiles::sequenceOf(const std::string& series) const
{
    return folder_ / (series + std::string(format_.endings.front()));
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
