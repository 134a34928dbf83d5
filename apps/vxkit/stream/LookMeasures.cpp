// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/LookMeasures.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <opencv2/core.hpp>
#include <sstream>

namespace vxapp {

namespace {

constexpr double brightest = 255.0;
constexpr double lowShare = 0.01;
constexpr double highShare = 0.99;

double rankOf(std::vector<double>& values, double share)
{
    const auto rank =
        static_cast<std::ptrdiff_t>(std::lround(share * static_cast<double>(values.size() - 1)));
    std::nth_element(values.begin(), values.begin() + rank, values.end());
    return values[static_cast<std::size_t>(rank)];
}

}  // namespace

void LookMeasures::Figures::add(const cv::Mat_<double>& levels)
{
    std::vector<double> values(levels.begin(), levels.end());
    const double used = (rankOf(values, highShare) - rankOf(values, lowShare)) / brightest;
    const double median = rankOf(values, 0.5);
    cv::Scalar mean;
    cv::Scalar spread;
    cv::meanStdDev(levels, mean, spread);
    const auto atEnd = std::count_if(levels.begin(), levels.end(), [](double level) {
        return std::lround(level) <= 0 || std::lround(level) >= std::lround(brightest);
    });
    range += used;
    leastRange = std::min(leastRange, used);
    deviation += spread[0];
    clipped += static_cast<double>(atEnd) / static_cast<double>(levels.total());
    if (lastMedian >= 0.0)
        jump = std::max(jump, std::abs(median - lastMedian));
    lastMedian = median;
}

void LookMeasures::add(const cv::Mat_<std::uint16_t>& input, const cv::Mat_<std::uint16_t>& enhanced, int top)
{
    std::vector<double> values(input.begin(), input.end());
    const double low = rankOf(values, lowShare);
    const double step = std::max(1.0, rankOf(values, highShare) - low) / brightest;
    cv::Mat_<double> levels;
    input.convertTo(levels, CV_64F, 1.0 / step, -low / step);
    levels = cv::max(0.0, cv::min(brightest, levels));
    stretched_.add(levels);
    enhanced.convertTo(levels, CV_64F, brightest / top);
    enhanced_.add(levels);
    ++frames_;
}

std::string LookMeasures::text() const
{
    std::ostringstream text;
    text << "           range used   least   deviation   median's jump   clipped\n" << std::fixed;
    for (const auto& [name, figures] : {std::pair{"stretched", &stretched_}, {"enhanced", &enhanced_}})
        text << std::left << std::setw(11) << name << std::right << std::setprecision(2) << std::setw(10)
             << figures->range / frames_ << std::setw(8) << figures->leastRange << std::setprecision(1)
             << std::setw(12) << figures->deviation / frames_ << std::setw(16) << figures->jump
             << std::setw(8) << 100.0 * figures->clipped / frames_ << " %\n";
    return text.str();
}

}  // namespace vxapp
