// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/ColourLimits.h"

#include <algorithm>
#include <numeric>

namespace vxapp {

namespace {

using vxsupport::ValueRange;

constexpr std::uint64_t pixelsPerLeftOut = 2000;

ValueRange limitsOf(const std::vector<std::uint64_t>& histogram, std::uint64_t pixels)
{
    const std::uint64_t cut = pixels / pixelsPerLeftOut;
    const auto countWhere = [cut](auto bar, auto end) {
        std::uint64_t below = 0;
        const auto first = bar;
        while (bar != end && (below += *bar) <= cut)
            ++bar;
        return static_cast<float>(bar - first);
    };
    const float low = countWhere(histogram.begin(), histogram.end());
    const float high =
        static_cast<float>(histogram.size() - 1) - countWhere(histogram.rbegin(), histogram.rend());
    return {low, std::max(low, high)};
}

template <typename Join>
std::vector<ValueRange> overNeighbours(const std::vector<ValueRange>& frames, int reach, Join join)
{
    const int count = static_cast<int>(frames.size());
    std::vector<ValueRange> joined;
    for (int i = 0; i < count; ++i) {
        const auto first = frames.begin() + std::max(0, i - reach);
        const auto end = frames.begin() + std::min(count, i + reach + 1);
        joined.push_back(std::accumulate(first + 1, end, *first, join));
    }
    return joined;
}

}  // namespace

void ColourLimits::add(const cv::Mat_<std::uint16_t>& frame)
{
    for (const std::uint16_t count : frame)
        ++histogram_[count];
    pixels_ += frame.total();
    cv::Mat_<float> values;
    frame.convertTo(values, CV_32F);
    frames_.push_back(vxsupport::visibleRange(values, 1.0 / static_cast<double>(pixelsPerLeftOut)));
}

ValueRange ColourLimits::ofRecording() const
{
    return limitsOf(histogram_, pixels_);
}

// Every mean is taken over envelopes that hold the frame itself, so that it is never cut.
std::vector<ValueRange> ColourLimits::following(int reach) const
{
    const auto envelope = [](const ValueRange& a, const ValueRange& b) {
        return ValueRange{std::min(a.low, b.low), std::max(a.high, b.high)};
    };
    const auto sum = [](const ValueRange& a, const ValueRange& b) {
        return ValueRange{a.low + b.low, a.high + b.high};
    };
    std::vector<ValueRange> limits = overNeighbours(overNeighbours(frames_, reach, envelope), reach, sum);
    const int count = static_cast<int>(limits.size());
    for (int i = 0; i < count; ++i) {
        const int terms = std::min(count, i + reach + 1) - std::max(0, i - reach);
        limits[static_cast<std::size_t>(i)].low /= static_cast<float>(terms);
        limits[static_cast<std::size_t>(i)].high /= static_cast<float>(terms);
    }
    return limits;
}

}  // namespace vxapp
