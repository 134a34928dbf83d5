// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/Survey.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/SafeWrite.h"
#include "apps/vxkit/stream/SampleQuantiles.h"
#include "apps/vxkit/stream/SampleScale.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

constexpr int mostPairs = 50;

// First frames of the pairs.
std::vector<int> pairPlaces(int frameCount)
{
    const int pairs = std::min(mostPairs, frameCount / 2);
    std::vector<int> places;
    places.reserve(static_cast<std::size_t>(pairs));
    for (int i = 0; i < pairs; ++i)
        places.push_back(static_cast<int>(static_cast<std::int64_t>(frameCount) * i / pairs));
    return places;
}

// J. Immerkaer: Fast noise variance estimation. Computer Vision and Image Understanding 64(2), 1996; with
// quartiles in place of the mean, which edges don't reach.
double spatialNoise(const cv::Mat_<int>& frame)
{
    if (frame.rows < 3 || frame.cols < 3)
        return 0.0;
    cv::Mat values;
    frame.convertTo(values, CV_32F);
    const cv::Matx33f kernel(1, -2, 1, -2, 4, -2, 1, -2, 1);
    cv::filter2D(values, values, CV_32F, kernel);
    cv::Mat_<int> whole;
    values(cv::Rect(1, 1, frame.cols - 2, frame.rows - 2)).convertTo(whole, CV_32S);
    return SampleQuantiles(whole).deviation() / 6.0;
}

double temporalNoise(const cv::Mat_<int>& frame, const cv::Mat_<int>& next)
{
    cv::Mat_<int> change;
    cv::subtract(next, frame, change);
    return SampleQuantiles(change).deviation() / std::sqrt(2.0);
}

double medianOf(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

cv::Mat_<int> wholeSamples(const cv::Mat_<short>& samples)
{
    cv::Mat_<int> whole;
    samples.convertTo(whole, CV_32S);
    return whole;
}

}  // namespace

void checkBadPixelNames(const BadPixelOptions& options, const Recording& recording, bool force)
{
    if (!options.learns() && !options.isOff())
        readBadPixels(options.source, recording.frameSize());
    if (options.output.empty())
        return;
    if (options.isOff())
        throw UsageError("--write-bad-pixels: there is no map with --bad-pixels off");
    if (std::filesystem::path(options.output).extension() != ".png")
        throw UsageError(options.output + ": expected a map's name that ends in .png");
    if (recording.readsFrom(options.output))
        throw UsageError(options.output + ": is an input; expected another output name");
    requireWritable(options.output, force);
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
