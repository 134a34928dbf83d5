// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/RecordingFacts.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>

#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/stream/Noise.h"
#include "apps/vxkit/terminal/Progress.h"

namespace vxapp {

namespace {

void addValues(const cv::Mat& frame, RecordingFacts& facts, double& sum)
{
    cv::Mat_<double> values;
    frame.convertTo(values, CV_64F);
    for (const double value : values) {
        facts.undefined += std::isnan(value) ? 1 : 0;
        facts.infinite += std::isinf(value) ? 1 : 0;
        if (!std::isfinite(value))
            continue;
        facts.low = std::min(facts.low, value);
        facts.high = std::max(facts.high, value);
        sum += value;
        ++facts.finite;
    }
}

/// The way from values to whole numbers of 16 bits: steps of one where the values are whole and fit, else as fine as
/// the range allows.
struct WholeScale
{
    double step;
    double middle;

    explicit WholeScale(const RecordingFacts& facts, bool holdsFloats)
        : step(1.0), middle(std::round((facts.low + facts.high) / 2.0))
    {
        constexpr double widest = 65000.0;
        const double range = facts.high - facts.low;
        if ((holdsFloats || range > widest) && range > 0.0)
            step = range / widest;
    }

    cv::Mat_<short> operator()(const cv::Mat& frame) const
    {
        cv::Mat_<double> values;
        frame.convertTo(values, CV_64F);
        cv::Mat_<short> whole(values.size());
        std::transform(values.begin(), values.end(), whole.begin(), [this](double value) {
            const double steps = std::isnan(value) ? 0.0 : std::round((value - middle) / step);
            return static_cast<short>(std::clamp(steps, -32768.0, 32767.0));
        });
        return whole;
    }
};

// Variance of a pixel within a block of two frames; a change of level does not count.
double blockVariance(const cv::Mat& change)
{
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(change, mean, deviation);
    const auto pixels = static_cast<double>(change.total());
    return pixels < 2.0 ? 0.0 : deviation[0] * deviation[0] * pixels / (pixels - 1.0) / 2.0;
}

// The median over blocks keeps motion out that does not fill the picture, and unlike quantiles of single pixels it
// is right for noise below a count.
double noiseBetween(const cv::Mat_<int>& frame, const cv::Mat_<int>& next)
{
    constexpr int side = 8;
    cv::Mat change;
    cv::subtract(next, frame, change, cv::noArray(), CV_64F);
    const int height = std::min(side, frame.rows);
    const int width = std::min(side, frame.cols);
    std::vector<double> variances;
    for (int y = 0; y + height <= frame.rows; y += height)
        for (int x = 0; x + width <= frame.cols; x += width)
            variances.push_back(blockVariance(change(cv::Rect(x, y, width, height))));
    return std::sqrt(medianOf(variances));
}

void lookClosely(Recording& recording, RecordingFacts& facts)
{
    const WholeScale scale(facts, recording.holdsFloats());
    const std::vector<int> places = pairPlaces(recording.frameCount());
    const bool isPaired = !places.empty();
    facts.looked = isPaired ? 2 * static_cast<int>(places.size()) : 1;
    BadPixelLearner learner(facts.looked);
    const auto look = [&](int index) {
        const cv::Mat_<short> samples = scale(recording.frame(index));
        learner.add(samples);
        cv::Mat_<int> whole;
        samples.convertTo(whole, CV_32S);
        return whole;
    };
    std::vector<double> within;
    std::vector<double> between;
    for (const int place : isPaired ? places : std::vector<int>{0}) {
        const cv::Mat_<int> frame = look(place);
        within.push_back(spatialNoise(frame));
        if (isPaired)
            between.push_back(noiseBetween(frame, look(place + 1)));
    }
    facts.badPixels = learner.map();
    facts.noiseWithin = medianOf(within) * scale.step;
    if (isPaired)
        facts.noiseBetween = medianOf(between) * scale.step;
}

}  // namespace

RecordingFacts readFacts(Recording& recording)
{
    RecordingFacts facts;
    facts.low = std::numeric_limits<double>::infinity();
    facts.high = -facts.low;
    double sum = 0.0;
    {
        Progress progress(recording.frameCount());
        for (int i = 0; i < recording.frameCount(); ++i) {
            progress.show(i + 1);
            const cv::Mat frame = recording.frame(i);
            addValues(frame, facts, sum);
            if (facts.order == OrderGuess::unknown)
                facts.order = guessByteOrder(frame);
        }
    }
    if (facts.finite == 0) {
        facts.low = facts.high = 0.0;
        return facts;
    }
    facts.mean = sum / static_cast<double>(facts.finite);
    lookClosely(recording, facts);
    return facts;
}

}  // namespace vxapp
