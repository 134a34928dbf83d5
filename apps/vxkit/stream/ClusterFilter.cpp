// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/ClusterFilter.h"

#include <cmath>
#include <opencv2/core.hpp>
#include <sstream>

#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/input/FrameFile.h"
#include "apps/vxkit/input/RegularFile.h"
#include "apps/vxkit/output/Output.h"
#include "apps/vxkit/terminal/Failure.h"
#include "enhancement/PixelStatistics.h"

namespace vxapp {

namespace {

using namespace halvor::vx;

using vxsupport::ClusterFilter;

// What is multiplied are the values that the detector meant, not samples shifted to the middle of their
// range.
double valueOfSampleZero(SampleForm form)
{
    return form == SampleForm::unsignedCounts ? 32768.0 : 0.0;
}

std::string sizeText(cv::Size size)
{
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

void requireSize(const std::string& name, cv::Size size, cv::Size expected)
{
    if (size != expected)
        throw UsageError(name + ": is " + sizeText(size) + "; expected " + sizeText(expected) +
                         ", the size of the frames to filter");
}

vxsupport::SceneStatistics gather(Recording& recording, SampleScale scale)
{
    if (recording.frameCount() < 2)
        throw UsageError(recording.nameOf(0) +
                         ": one frame tells no deviation in time; expected at least two of a uniform scene "
                         "(--uniform), or --mean and --std-dev");
    PixelStatistics statistics;
    cv::Mat_<short> samples;
    cv::Mat_<float> values;
    for (int i = 0; i < recording.frameCount(); ++i) {
        scale.toSamples(recording, i, samples);
        samples.convertTo(values, CV_32F, 1.0, valueOfSampleZero(scale.form()));
        statistics.add(values);
    }
    return {statistics.mean(), statistics.stdDev(), std::to_string(recording.frameCount()) + " frames"};
}

cv::Mat_<float> readImage(const std::string& path, cv::Size expected)
{
    requireRegularFile(path, "an image");
    const std::unique_ptr<FrameFile> file = openImageFile(path);
    if (file->frameCount() != 1)
        throw UsageError(path + ": holds " + std::to_string(file->frameCount()) + " images; expected one");
    const cv::Mat image = file->read(0);
    requireMoreThanBytes(path, file->sampleOf(image));
    requireSize(path, image.size(), expected);
    cv::Mat_<float> values;
    image.convertTo(values, CV_32F);
    if (!cv::checkRange(values))
        throw UsageError(path + ": some pixels are infinite or no numbers; expected a finite value in each");
    return values;
}

vxsupport::SceneStatistics statisticsFor(const ClusterSettings& settings, Recording& recording,
                                         const std::string& size, const SampleScale& scale)
{
    if (settings.mean.empty() != settings.stdDev.empty())
        throw UsageError("--mean and --std-dev: expected both or none");
    if (!settings.mean.empty() && !settings.uniform.empty())
        throw UsageError("--uniform: the statistics are those of --mean and --std-dev already");
    recording.files()->reads(settings.mean);
    recording.files()->reads(settings.stdDev);
    if (!settings.mean.empty())
        return {readImage(settings.mean, recording.frameSize()),
                readImage(settings.stdDev, recording.frameSize()), settings.mean};
    if (settings.uniform.empty())
        return gather(recording, scale);
    RecordingOptions options{settings.uniform, size, ""};
    options.files = recording.files();
    Recording uniform(options);
    requireSize(settings.uniform.front(), uniform.frameSize(), recording.frameSize());
    return gather(uniform, scale);
}

}  // namespace

std::unique_ptr<vxsupport::FrameFilter> makeClusterFilter(const ClusterSettings& settings,
                                                          Recording& recording, const std::string& size,
                                                          const SampleScale& scale, bool force)
{
    if (scale.isChosen())
        throw UsageError(
            recording.nameOf(0) +
            ": holds no counts; the cluster pattern is that of a detector's counts: expected --scale and "
            "--offset");
    if (!settings.damping.empty()) {
        recording.files()->writes(settings.damping, force);
        if (!isFloatFile(settings.damping))
            throw UsageError(settings.damping + ": expected a name that ends in .tif, .tiff or .pfm");
    }
    auto filter = std::make_unique<ClusterFilter>(settings, statisticsFor(settings, recording, size, scale),
                                                  valueOfSampleZero(scale.form()));
    if (!settings.damping.empty())
        saveFloats(settings.damping, filter->damping(), force);
    return filter;
}

}  // namespace vxapp
