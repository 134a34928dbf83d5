// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/ToneCurve.h"

#include <algorithm>
#include <cmath>

#include "apps/vxkit/stream/SampleQuantiles.h"

namespace vxapp {

namespace {

// A little within the 1st and the 99th percentile, so that these stay at the ends when curves are smoothed.
constexpr double lowShare = 0.0105;
constexpr double highShare = 0.9895;
constexpr int bins = 256;
// Narrower frames are not spread further, in counts.
constexpr double leastRange = 4.0;
constexpr std::size_t firstInner = 1;
constexpr std::size_t lastInner = ToneCurve::knots - 2;

// Shares of the inner display at the edges of evenly spaced bins from low to high.
std::array<double, bins + 1> blendedShares(const SampleQuantiles& pixels, double low, double high,
                                           const ToneSettings& settings)
{
    const auto edge = [&](int bin) { return std::lerp(low, high, static_cast<double>(bin) / bins); };
    const double mean = (pixels.below(high) - pixels.below(low)) / bins;
    std::array<double, bins + 1> shares{};
    for (int bin = 0; bin < bins; ++bin) {
        const double height = pixels.below(edge(bin + 1)) - pixels.below(edge(bin));
        shares[static_cast<std::size_t>(bin) + 1] =
            shares[static_cast<std::size_t>(bin)] + std::min(height, settings.plateau * mean);
    }
    const double sum = shares.back();
    for (int bin = 0; bin <= bins; ++bin) {
        double& share = shares[static_cast<std::size_t>(bin)];
        const double straight = static_cast<double>(bin) / bins;
        share = sum > 0.0 ? std::lerp(straight, share / sum, settings.equalisation) : straight;
    }
    return shares;
}

}  // namespace

ToneCurve::ToneCurve(const cv::Mat_<int>& frame, const ToneSettings& settings)
{
    const SampleQuantiles pixels(frame);
    double low = pixels.quantile(lowShare);
    double high = pixels.quantile(highShare);
    const double missing = std::max(0.0, leastRange - (high - low));
    low -= missing / 2.0;
    high += missing / 2.0;
    samples_.front() = static_cast<float>(std::min(pixels.lowest(), low - 1.0));
    samples_.back() = static_cast<float>(std::max(pixels.highest(), high + 1.0));
    const auto shares = blendedShares(pixels, low, high, settings);
    std::size_t bin = 0;
    for (std::size_t knot = firstInner; knot <= lastInner; ++knot) {
        const double wanted =
            static_cast<double>(knot - firstInner) / static_cast<double>(lastInner - firstInner);
        while (bin + 2 < shares.size() && shares[bin + 1] < wanted)
            ++bin;
        const double rise = shares[bin + 1] - shares[bin];
        const double part = rise > 0.0 ? std::clamp((wanted - shares[bin]) / rise, 0.0, 1.0) : 0.0;
        samples_[knot] = static_cast<float>(std::lerp(low, high, (static_cast<double>(bin) + part) / bins));
    }
}

double ToneCurve::share(std::size_t knot, double tail)
{
    if (knot == 0)
        return 0.0;
    if (knot == knots - 1)
        return 1.0;
    return std::lerp(tail, 1.0 - tail,
                     static_cast<double>(knot - firstInner) / static_cast<double>(lastInner - firstInner));
}

std::vector<int> ToneCurve::levels(int first, int count, double tail) const
{
    std::vector<int> levels;
    std::size_t knot = 0;
    for (int i = 0; i < count; ++i) {
        const auto sample = static_cast<float>(first + i);
        while (knot + 2 < knots && samples_[knot + 1] < sample)
            ++knot;
        const double rise = static_cast<double>(samples_[knot + 1]) - static_cast<double>(samples_[knot]);
        const double part =
            rise > 0.0 ? (static_cast<double>(sample) - static_cast<double>(samples_[knot])) / rise : 0.5;
        const double level = std::lerp(share(knot, tail), share(knot + 1, tail), std::clamp(part, 0.0, 1.0));
        levels.push_back(static_cast<int>(std::lround(level * topLevel)));
    }
    return levels;
}

}  // namespace vxapp
