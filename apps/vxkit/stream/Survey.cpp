// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/Survey.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/stream/Noise.h"
#include "apps/vxkit/stream/SampleScale.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

cv::Mat_<int> wholeSamples(const cv::Mat_<short>& samples)
{
    cv::Mat_<int> whole;
    samples.convertTo(whole, CV_32S);
    return whole;
}

}  // namespace

void checkBadPixelNames(const BadPixelOptions& options, const Recording& recording, bool force)
{
    if (!options.learns() && !options.isOff()) {
        recording.files()->reads(options.source);
        readBadPixels(options.source, recording.frameSize());
    }
    if (options.output.empty())
        return;
    if (options.isOff())
        throw UsageError("--write-bad-pixels: there is no map with --bad-pixels off");
    if (std::filesystem::path(options.output).extension() != ".png")
        throw UsageError(options.output + ": expected a map's name that ends in .png");
    recording.files()->writes(options.output, force);
}

Survey survey(Recording& recording, SampleScale& scale, const BadPixelOptions& options)
{
    Survey found;
    const std::vector<int> places = pairPlaces(recording.frameCount());
    const bool isPaired = !places.empty();
    BadPixelLearner learner(isPaired ? 2 * static_cast<int>(places.size()) : 1);
    std::vector<double> noises;
    const auto look = [&](int index) {
        cv::Mat_<short> samples;
        scale.toSamples(recording, index, samples);
        if (options.learns())
            learner.add(samples);
        ++found.frames;
        return wholeSamples(samples);
    };
    for (const int place : isPaired ? places : std::vector<int>{0}) {
        const cv::Mat_<int> frame = look(place);
        noises.push_back(spatialNoise(frame));
        if (isPaired)
            noises.back() = std::min(noises.back(), temporalNoise(frame, look(place + 1)));
    }
    found.noise = medianOf(noises);
    if (options.learns())
        found.badPixels = learner.map();
    else if (!options.isOff())
        found.badPixels = readBadPixels(options.source, recording.frameSize());
    return found;
}

std::string tellBadPixels(const Survey& found, const BadPixelOptions& options, bool force)
{
    const BadPixelMap& map = found.badPixels;
    if (options.isOff())
        return "bad pixels: not looked for";
    std::string text = "bad pixels: " + std::to_string(map.bad());
    if (options.learns())
        text = "bad pixels: " + std::to_string(map.count(BadPixelMap::hot)) + " hot and " +
               std::to_string(map.count(BadPixelMap::cold)) + " cold, learned from " +
               std::to_string(found.frames) + (found.frames == 1 ? " frame" : " frames");
    else
        text += " by " + options.source;
    if (map.bad() > 0)
        text += ", mended";
    if (!options.output.empty()) {
        writeBadPixels(options.output, map, force);
        text += "; map in " + options.output;
    }
    return text;
}

}  // namespace vxapp
