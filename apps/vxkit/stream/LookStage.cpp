// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/LookStage.h"

#include <algorithm>
#include <cmath>

namespace vxapp {

using halvor::vx::MARLOImageEnhancer;

namespace {

constexpr std::size_t displaySlopes = 256;  // that peaking knows

}  // namespace

void LookStage::measure(const MARLOImageEnhancer& chain)
{
    track_.add(chain.getSNRArray()->image());
}

void LookStage::apply(int index, MARLOImageEnhancer& chain, cv::Mat_<short>& enhanced)
{
    const ToneCurve curve = track_.at(index);
    const cv::Mat_<int> clean = chain.getSNRArray()->image();
    const auto [low, high] = std::minmax_element(clean.begin(), clean.end());
    const int first = *low;
    const std::vector<int> levels = curve.levels(first, *high - first + 1, tone_.tail);
    cv::Mat_<int> spread = chain.getHistoArray()->image();
    std::transform(clean.begin(), clean.end(), spread.begin(),
                   [&](int sample) { return levels[static_cast<std::size_t>(sample - first)]; });
    show(curve, chain);
    std::vector<double> gain = slopes(curve);
    chain.getPeakingDSPMod()->ProcessFrame(*chain.getHistoArray(), *chain.getPeakArray(), gain.data());
    cv::Mat_<int> peaked = chain.getPeakArray()->image();
    holdEnds(spread, peaked);
    peaked.convertTo(enhanced, CV_16S);
}

// Peaking drives no pixel into the darkest and the brightest level of a display that isn't there without it.
void LookStage::holdEnds(const cv::Mat_<int>& spread, cv::Mat_<int>& peaked) const
{
    const int darkest = static_cast<int>(std::lround(tone_.tail * topLevel));
    const int brightest = topLevel - darkest;
    std::transform(peaked.begin(), peaked.end(), spread.begin(), peaked.begin(), [&](int sharp, int plain) {
        return std::clamp(sharp, std::min(plain, darkest), std::max(plain, brightest));
    });
}

void LookStage::show(const ToneCurve& curve, MARLOImageEnhancer& chain) const
{
    Histogram& histogram = *chain.getHistogramObject();
    const int entries = 1 << chain.histGetWidth();
    const int low = histogram.getMin();
    const int high = histogram.getMax();
    // Samples at the ends of the 16 bits are none to the chain's histogram: it may hold no range.
    if (high <= low)
        return;
    const std::vector<int> levels = curve.levels(low, high - low + 1, tone_.tail);
    for (int i = 0; i < entries; ++i)
        histogram.getTransferCurve()[i] = levels[static_cast<std::size_t>(
            std::lround(static_cast<double>(high - low) * i / (entries - 1)))];
}

// Levels per count at each of the levels that peaking tells apart: its coring is in counts.
std::vector<double> LookStage::slopes(const ToneCurve& curve) const
{
    const auto [low, high] = std::minmax_element(curve.samples().begin(), curve.samples().end());
    const int first = static_cast<int>(std::floor(*low));
    const int count = std::max(2, static_cast<int>(std::ceil(*high)) - first + 1);
    const std::vector<int> levels = curve.levels(first, count, tone_.tail);
    std::vector<double> slopes(displaySlopes, 0.0);
    std::size_t sample = 0;
    for (std::size_t i = 0; i < displaySlopes; ++i) {
        while (sample + 2 < levels.size() && levels[sample + 1] < static_cast<int>(i) * 128)
            ++sample;
        slopes[i] = levels[sample + 1] - levels[sample];
    }
    return slopes;
}

}  // namespace vxapp
