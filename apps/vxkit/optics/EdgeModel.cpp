// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/optics/EdgeModel.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace vxapp {

namespace {

constexpr double largePixel = 0.5;       // of the frame
constexpr double finestStep = 1.0 / 32;  // frame pixels
constexpr int partsOfPixel = 4;

double gaussianBelow(double x, double sigma)
{
    return 0.5 * std::erfc(-x / (std::sqrt(2.0) * sigma));
}

// The spread across one axis, summed up: straight between the borders of the large pixels, since each counts as
// a whole.
class AxisSum
{
public:
    explicit AxisSum(double sigma) : reach_(static_cast<int>(std::ceil(5.0 * sigma)) + 1)
    {
        for (int border = -reach_; border <= reach_; ++border)
            sums_.push_back(gaussianBelow(border, sigma));
        sums_.front() = 0.0;
        sums_.back() = 1.0;
    }

    int reach() const { return reach_; }
    double share(int pixel) const { return sumAt(pixel + 1) - sumAt(pixel); }

    double at(double place) const
    {
        const double position = std::clamp(place / largePixel, -1.0 * reach_, 1.0 * reach_);
        const int border = std::min(static_cast<int>(std::floor(position)), reach_ - 1);
        return sumAt(border) + (position - border) * share(border);
    }

private:
    double sumAt(int border) const
    {
        const int index = border + reach_;
        return sums_[static_cast<std::size_t>(index)];
    }

    int reach_;
    std::vector<double> sums_;
};

}  // namespace

EdgeModel::EdgeModel(double sigma, double slope) : step_(finestStep * std::max(1.0, sigma))
{
    const AxisSum axis(sigma);
    const double cosine = 1.0 / std::sqrt(1.0 + slope * slope);
    const double sine = std::abs(slope) * cosine;
    reach_ = largePixel * axis.reach() * (cosine + sine) + step_;
    const int half = static_cast<int>(std::ceil(reach_ / step_));
    reach_ = half * step_;
    for (int i = -half; i <= half; ++i) {
        // Across the edge in each slice along it.
        double sum = 0.0;
        for (int pixel = -axis.reach(); pixel < axis.reach(); ++pixel)
            for (int part = 0; part < partsOfPixel; ++part) {
                const double along = largePixel * (pixel + (part + 0.5) / partsOfPixel);
                sum += axis.share(pixel) / partsOfPixel * axis.at((i * step_ - along * sine) / cosine);
            }
        table_.push_back(sum);
    }
}

double EdgeModel::at(double distance) const
{
    const double position =
        std::clamp((distance + reach_) / step_, 0.0, static_cast<double>(table_.size() - 1));
    const std::size_t i = std::min(static_cast<std::size_t>(position), table_.size() - 2);
    return table_[i] + (position - static_cast<double>(i)) * (table_[i + 1] - table_[i]);
}

double EdgeModel::slopeAt(double distance) const
{
    return (at(distance + step_) - at(distance - step_)) / (2.0 * step_);
}

}  // namespace vxapp
