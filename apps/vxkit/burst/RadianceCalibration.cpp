// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/burst/RadianceCalibration.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <opencv2/core.hpp>
#include <optional>
#include <sstream>
#include <utility>

#include "apps/vxkit/burst/Calibration.h"
#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/input/RegularFile.h"
#include "apps/vxkit/terminal/Failure.h"
#include "enhancement/superresolution/engine/PixelValues.h"

namespace vxapp {

namespace {

namespace fs = std::filesystem;

constexpr std::array<const char*, 4> keys{"counts-a", "radiance-a", "counts-b", "radiance-b"};

std::string trimmed(const std::string& text)
{
    const char* const blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// "key = value" in each line; a line that begins with # is a remark.
std::map<std::string, std::string> readEntries(const std::string& path)
{
    requireRegularFile(path, "a calibration file");
    std::ifstream file(path);
    if (!file)
        throw UsageError("--radiance " + path + ": can't be read; expected a calibration file");
    std::map<std::string, std::string> entries;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        line = trimmed(line);
        if (line.empty() || line.front() == '#')
            continue;
        const std::string place = path + ", line " + std::to_string(number) + ": ";
        const std::size_t middle = line.find('=');
        const std::string key = trimmed(line.substr(0, middle));
        if (middle == std::string::npos || std::find(keys.begin(), keys.end(), key) == keys.end())
            throw UsageError(place + "expected counts-a, radiance-a, counts-b or radiance-b, =, and a value");
        if (!entries.emplace(key, trimmed(line.substr(middle + 1))).second)
            throw UsageError(place + key + " stands twice");
    }
    for (const char* key : keys)
        if (entries[key].empty())
            throw UsageError(path + ": " + key + " is missing; expected counts-a, radiance-a, counts-b and " +
                             "radiance-b");
    return entries;
}

std::optional<double> numberFrom(const std::string& text)
{
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    return *end == '\0' ? std::optional(number) : std::nullopt;
}

// The mean of the frames of an image file, so that a stack of a scene may be given.
cv::Mat_<double> meanImage(const std::string& name, cv::Size frameSize, const std::string& rawSize,
                           const std::shared_ptr<vxfiles::RunFiles>& files)
{
    requireRegularFile(name, "an image");
    RecordingOptions options;
    options.files = files;
    options.inputs = {name};
    if (!isImageName(name))
        options.size = rawSize;
    Recording recording(options);
    if (recording.frameSize() != frameSize)
        throw UsageError(name + ": has " + std::to_string(recording.frameSize().width) + "x" +
                         std::to_string(recording.frameSize().height) +
                         " pixels; expected those of the frames, " + std::to_string(frameSize.width) + "x" +
                         std::to_string(frameSize.height));
    cv::Mat_<double> sum(frameSize, 0.0);
    for (int i = 0; i < recording.frameCount(); ++i)
        cv::add(sum, recording.values(i), sum, cv::noArray(), CV_64F);
    sum /= recording.frameCount();
    return sum;
}

void requireWithin(const cv::Mat_<double>& values, double low, double high, const std::string& name,
                   const std::string& meaning)
{
    const bool fits = std::all_of(values.begin(), values.end(),
                                  [=](double value) { return value >= low && value <= high; });
    if (fits)
        return;
    std::ostringstream text;
    text << name << ": holds values outside of " << low << " to " << high << ", " << meaning;
    throw UsageError(text.str());
}

/// Reads what the entries name, relative to the calibration file.
class EntryReader
{
public:
    EntryReader(std::string path, cv::Size frameSize, std::string rawSize,
                std::shared_ptr<vxfiles::RunFiles> files)
        : path_(std::move(path)),
          frameSize_(frameSize),
          rawSize_(std::move(rawSize)),
          files_(std::move(files)),
          entries_(readEntries(path_))
    {}

    cv::Mat_<short> counts(const std::string& key)
    {
        const std::string name = nameOf(key);
        const cv::Mat_<double> mean = meanImage(name, frameSize_, rawSize_, files_);
        requireWithin(mean, std::numeric_limits<short>::min(), std::numeric_limits<short>::max(), name,
                      "the counts that the engine takes");
        cv::Mat_<short> counts;
        mean.convertTo(counts, CV_16S);
        return counts;
    }

    cv::Mat_<float> radiance(const std::string& key)
    {
        const std::optional<double> number = numberFrom(entries_.at(key));
        const std::string name = number ? path_ + ": " + key + " " + entries_.at(key) : nameOf(key);
        const cv::Mat_<double> values =
            number ? cv::Mat_<double>(frameSize_, *number) : meanImage(name, frameSize_, "", files_);
        requireWithin(values, halvor::vx::temperatureLimits.lowest, halvor::vx::temperatureLimits.highest,
                      name, "the limits of the engine's pixels");
        cv::Mat_<float> radiance;
        values.convertTo(radiance, CV_32F);
        return radiance;
    }

private:
    std::string nameOf(const std::string& key) const
    {
        return (fs::path(path_).parent_path() / entries_.at(key)).string();
    }

    std::string path_;
    cv::Size frameSize_;
    std::string rawSize_;
    std::shared_ptr<vxfiles::RunFiles> files_;
    std::map<std::string, std::string> entries_;
};

void requireLines(const RadianceCalibration& calibration, const std::string& path)
{
    const double share = vxsupport::shareWithoutLine(calibration);
    if (share <= largestDefectShare)
        return;
    std::ostringstream text;
    text << path << ": " << std::lround(share * 100.0)
         << " % of the pixels have equal counts in both scenes, or a gain or offset of "
         << vxsupport::largestLine << " or more; expected two scenes of different radiance";
    throw UsageError(text.str());
}

}  // namespace

const char* const radianceFileHelp = R"(Calibration files (--radiance):
  Two flat scenes that fill the view, cold and hot for example, give each pixel its line from count to radiance:
    # remarks begin with #; names are relative to this file
    counts-a   = cold.tif
    radiance-a = 15.0
    counts-b   = hot.tif
    radiance-b = 35.0
  Counts are images of the recording's size (of several frames the mean is taken), radiances are one number for
  all pixels or an image of floats. Counts, also those of the frames, are whole numbers from -32768 to 32767. A
  pixel with equal counts, or with a gain or offset of 1000 or more, takes the mean line of its neighbours.)";

RadianceCalibration readRadianceCalibration(const std::string& path, cv::Size frameSize,
                                            const std::string& rawSize,
                                            const std::shared_ptr<vxfiles::RunFiles>& files)
{
    if (files)
        files->reads(path);
    EntryReader reader(path, frameSize, rawSize, files);
    RadianceCalibration calibration{reader.counts(keys[0]), reader.radiance(keys[1]), reader.counts(keys[2]),
                                    reader.radiance(keys[3])};
    requireLines(calibration, path);
    return calibration;
}

void requireSignedCounts(const cv::Mat_<float>& frame, const std::string& name)
{
    for (const float value : frame) {
        const bool fits = value >= -32768.0F && value <= 32767.0F && value == std::floor(value);
        if (fits)
            continue;
        std::ostringstream text;
        text << name << ": holds the value " << value
             << "; with --radiance expected whole counts from -32768 to 32767";
        throw UsageError(text.str());
    }
}

}  // namespace vxapp
