// SPDX-License-Identifier: Apache-2.0
#include "support/drivers/FrameFilter.h"

#include <opencv2/core.hpp>
#include <sstream>
#include <utility>

#include "enhancement/SpatialNoiseRemover.h"
#include "enhancement/StaticPatternRemover.h"
#include "enhancement/TemporalNoiseReduction.h"
#include "enhancement/UnsharpMask.h"
#include "support/drivers/SettingError.h"

namespace vxsupport {

namespace {

using namespace halvor::vx;

/// A filter that works on samples as they are.
template <typename Filter>
class SampleFilter : public FrameFilter
{
public:
    SampleFilter(Filter filter, std::string description)
        : filter_(std::move(filter)), description_(std::move(description))
    {}

    void process(const cv::Mat_<short>& samples, cv::Mat_<short>& result) override
    {
        filter_.process(samples, result);
    }
    std::string description() const override { return description_; }

private:
    Filter filter_;
    std::string description_;
};

template <typename Filter>
std::unique_ptr<FrameFilter> wrapped(Filter filter, const std::ostringstream& description)
{
    return std::make_unique<SampleFilter<Filter>>(std::move(filter), description.str());
}

class UnsharpFilter : public FrameFilter
{
public:
    explicit UnsharpFilter(const UnsharpSettings& settings) : settings_(settings) {}

    void process(const cv::Mat_<short>& samples, cv::Mat_<short>& result) override
    {
        if (settings_.threshold)
            sharpenLevels(samples, result);
        else
            sharpenValues(samples, result);
    }
    std::string description() const override;

private:
    void sharpenValues(const cv::Mat_<short>& samples, cv::Mat_<short>& result);
    void sharpenLevels(const cv::Mat_<short>& samples, cv::Mat_<short>& result);

    UnsharpSettings settings_;
    cv::Mat image_, sharp_;
};

void UnsharpFilter::sharpenValues(const cv::Mat_<short>& samples, cv::Mat_<short>& result)
{
    cv::merge(std::vector<cv::Mat>{samples, samples}, sharp_);
    sharp_.convertTo(image_, CV_32F);
    UnsharpMask::unsharp(image_, sharp_, settings_.amount, settings_.sigma, 0.0);
    cv::extractChannel(sharp_, image_, 0);
    image_.convertTo(result, CV_16S);
}

void UnsharpFilter::sharpenLevels(const cv::Mat_<short>& samples, cv::Mat_<short>& result)
{
    constexpr double topLevel = 255.0;
    double low = 0.0;
    double high = 0.0;
    cv::minMaxLoc(samples, &low, &high);
    const double step = high > low ? (high - low) / topLevel : 1.0;
    samples.convertTo(image_, CV_8U, 1.0 / step, -low / step);
    UnsharpMask::unsharp(image_, sharp_, settings_.amount, settings_.sigma, *settings_.threshold);
    sharp_.convertTo(result, CV_16S, step, low);
}

std::string UnsharpFilter::description() const
{
    std::ostringstream text;
    text << "unsharp mask: amount " << settings_.amount << ", sigma " << settings_.sigma;
    if (settings_.threshold)
        text << ", threshold " << *settings_.threshold
             << "; each frame spread over 8 bits, only brighter detail sharpened";
    return text.str();
}

int inRange(const char* option, std::optional<int> value, int standard, int highest)
{
    const int chosen = value.value_or(standard);
    if (chosen < 0 || chosen > highest)
        throw SettingError(std::string(option) + " " + std::to_string(chosen) + ": expected 0 to " +
                           std::to_string(highest));
    return chosen;
}

}  // namespace

std::unique_ptr<FrameFilter> makeTemporalFilter(const TemporalSettings& settings)
{
    const bool hw = settings.hwUnits;
    const int gain = inRange("control-gain", settings.controlGain, hw ? 16 : 10, hw ? 16 : 10);
    const int factor = inRange("feedback-factor", settings.feedbackFactor, hw ? 1228 : 60, hw ? 2047 : 100);
    std::ostringstream text;
    text << "temporal noise: control gain " << gain << ", global threshold " << settings.globalThreshold
         << ", feedback factor " << factor << (hw ? " in hardware units" : " %");
    return wrapped(TemporalNoiseReduction(gain, settings.globalThreshold, factor, hw), text);
}

std::unique_ptr<FrameFilter> makeSpatialFilter(int gain)
{
    std::ostringstream text;
    text << "spatial noise: gain " << gain;
    return wrapped(SpatialNoiseRemover(gain), text);
}

std::unique_ptr<FrameFilter> makePatternFilter(const PatternSettings& settings)
{
    std::ostringstream text;
    text << "static pattern: threshold " << settings.threshold << ", line limit " << settings.lineLimit
         << ", frame limit " << settings.frameLimit;
    return wrapped(StaticPatternRemover(settings.threshold, settings.lineLimit, settings.frameLimit), text);
}

std::unique_ptr<FrameFilter> makeUnsharpFilter(const UnsharpSettings& settings)
{
    return std::make_unique<UnsharpFilter>(settings);
}

}  // namespace vxsupport
