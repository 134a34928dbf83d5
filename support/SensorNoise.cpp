// SPDX-License-Identifier: Apache-2.0
#include "support/SensorNoise.h"

namespace vxsupport {

void addNoise(cv::Mat_<float>& frame, double deviation, const Random& random)
{
    if (deviation == 0.0)
        return;
#pragma omp parallel for schedule(static)
    for (int r = 0; r < frame.rows; ++r) {
        Random row = random.split(static_cast<std::uint64_t>(r));
        for (int c = 0; c < frame.cols; ++c)
            frame(r, c) += static_cast<float>(deviation * row.normal());
    }
}

cv::Mat_<float> columnPattern(cv::Size frame, double deviation, Random random)
{
    cv::Mat_<float> pattern(frame, 0.0F);
    for (int c = 0; c < frame.width; ++c)
        pattern.col(c) = static_cast<float>(deviation * random.normal());
    return pattern;
}

cv::Mat_<float> rowPattern(cv::Size frame, double deviation, Random random)
{
    cv::Mat_<float> pattern(frame, 0.0F);
    for (int r = 0; r < frame.height; ++r)
        pattern.row(r) = static_cast<float>(deviation * random.normal());
    return pattern;
}

}  // namespace vxsupport
