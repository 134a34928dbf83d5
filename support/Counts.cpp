// SPDX-License-Identifier: Apache-2.0
#include "support/Counts.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace vxsupport {

cv::Mat_<std::uint16_t> toCounts(const cv::Mat_<float>& values, const CountScale& scale)
{
    if (!(scale.scale > 0.0 && std::isfinite(scale.scale) && std::isfinite(scale.offset)))
        throw std::invalid_argument("counts: the scale must be above 0 and the offset finite");
    cv::Mat_<std::uint16_t> counts(values.size());
    std::transform(values.begin(), values.end(), counts.begin(), [&](float value) {
        const double count = std::round((static_cast<double>(value) - scale.offset) / scale.scale);
        return std::isnan(count) ? std::uint16_t{0}
                                 : static_cast<std::uint16_t>(std::clamp(count, 0.0, 65535.0));
    });
    return counts;
}

}  // namespace vxsupport
