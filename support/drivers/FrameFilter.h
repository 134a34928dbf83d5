// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <opencv2/core/mat.hpp>
#include <optional>
#include <string>

namespace vxsupport {

/// One pixel filter, ready for the frames of a recording in their order.
class FrameFilter
{
public:
    virtual ~FrameFilter() = default;

    /// @param result  created at the size of the samples
    virtual void process(const cv::Mat_<short>& samples, cv::Mat_<short>& result) = 0;
    /// What the filter does with these settings, for people.
    virtual std::string description() const = 0;
};

/// Defaults are those of the enhancer chain. Settings without a value take the default of their units.
struct TemporalSettings
{
    std::optional<int> controlGain;
    int globalThreshold = 15;
    std::optional<int> feedbackFactor;
    bool hwUnits = false;
};

struct PatternSettings
{
    int threshold = 22;
    int lineLimit = 12;
    int frameLimit = 16;
};

/// Sharpening of 16-bit frames. The mask itself takes no such depth: without a threshold it gets them as
/// floats in two channels, for only then does it sharpen both sides of an edge; with one, which it knows for
/// a single channel of 8 bits, each frame is spread over 8 bits from its smallest to its largest value.
struct UnsharpSettings
{
    double amount = 1.0;
    double sigma = 1.0;
    std::optional<double> threshold;
};

/// @throws SettingError for a setting out of the range of its units
std::unique_ptr<FrameFilter> makeTemporalFilter(const TemporalSettings& settings);
std::unique_ptr<FrameFilter> makeSpatialFilter(int gain);
std::unique_ptr<FrameFilter> makePatternFilter(const PatternSettings& settings);
std::unique_ptr<FrameFilter> makeUnsharpFilter(const UnsharpSettings& settings);

}  // namespace vxsupport
