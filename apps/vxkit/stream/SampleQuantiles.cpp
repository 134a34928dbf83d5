// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/SampleQuantiles.h"

#include <algorithm>
#include <cmath>

namespace vxapp {

SampleQuantiles::SampleQuantiles(const cv::Mat_<int>& image)
{
    const auto [low, high] = std::minmax_element(image.begin(), image.end());
    first_ = *low;
    sums_.assign(static_cast<std::size_t>(*high - *low) + 2, 0.0);
    for (const int sample : image)
        sums_[static_cast<std::size_t>(sample - first_) + 1] += 1.0;
    double sum = 0.0;
    for (double& entry : sums_) {
        sum += entry;
        entry = sum / static_cast<double>(image.total());
    }
}

double SampleQuantiles::below(double value) const
{
    const double place = std::clamp(value - lowest(), 0.0, highest() - lowest());
    const auto step = std::min(static_cast<std::size_t>(place), sums_.size() - 2);
    return std::lerp(sums_[step], sums_[step + 1], place - static_cast<double>(step));
}

double SampleQuantiles::quantile(double share) const
{
    const auto above = std::upper_bound(sums_.begin() + 1, sums_.end() - 1, share);
    const double start = *(above - 1);
    const double part = *above > start ? (share - start) / (*above - start) : 0.0;
    return lowest() + static_cast<double>(above - sums_.begin() - 1) + std::clamp(part, 0.0, 1.0);
}

double SampleQuantiles::deviation() const
{
    constexpr double quartilesPerDeviation = 1.349;
    return (quantile(0.75) - quantile(0.25)) / quartilesPerDeviation;
}

}  // namespace vxapp
