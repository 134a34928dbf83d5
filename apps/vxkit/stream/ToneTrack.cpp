// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/ToneTrack.h"

#include <algorithm>
#include <opencv2/core.hpp>

#include "apps/vxkit/stream/SampleQuantiles.h"

namespace vxapp {

ToneTrack::ToneTrack(const ToneSettings& settings, int behind, int ahead)
    : settings_(settings), behind_(behind), ahead_(ahead)
{}

void ToneTrack::add(const cv::Mat_<int>& frame)
{
    double level = 0.0;
    if (!moments_.empty()) {
        cv::subtract(frame, last_, changes_);
        level = moments_.back().level + SampleQuantiles(changes_).quantile(0.5);
    }
    moments_.push_back({ToneCurve(frame, settings_).samples(), level});
    frame.copyTo(last_);
}

ToneCurve ToneTrack::at(int frame) const
{
    const Moment& here = moments_.at(static_cast<std::size_t>(frame));
    std::array<double, ToneCurve::knots> sums{};
    double weights = 0.0;
    const int last = std::min(count() - 1, frame + ahead_);
    for (int other = std::max(0, frame - behind_); other <= last; ++other) {
        const int reach = other < frame ? behind_ : ahead_;
        const double weight = reach + 1 - std::abs(other - frame);
        const double share = weight / (reach + 1);
        const Moment& moment = moments_[static_cast<std::size_t>(other)];
        for (std::size_t knot = 0; knot < sums.size(); ++knot)
            sums[knot] += share * (static_cast<double>(moment.samples[knot]) + here.level - moment.level);
        weights += share;
    }
    ToneCurve::Samples samples{};
    std::transform(sums.begin(), sums.end(), samples.begin(),
                   [weights](double sum) { return static_cast<float>(sum / weights); });
    return ToneCurve(samples);
}

}  // namespace vxapp
