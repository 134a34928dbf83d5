// SPDX-License-Identifier: Apache-2.0
#include "support/Defects.h"

#include <algorithm>
#include <bit>
#include <cstdint>

#include "enhancement/superresolution/engine/PixelValues.h"

namespace vxsupport {

using halvor::vx::PixelMarker;

std::vector<cv::Point> drawDefects(cv::Size frame, int count, Random random)
{
    cv::Mat_<std::uint8_t> taken(frame, std::uint8_t{0});
    const int wanted = std::min(count, frame.area());
    std::vector<cv::Point> places;
    while (static_cast<int>(places.size()) < wanted) {
        const int row = random.below(frame.height);
        const cv::Point place(random.below(frame.width), row);
        if (taken(place) != 0)
            continue;
        taken(place) = 1;
        places.push_back(place);
    }
    return places;
}

void applyDefects(cv::Mat_<float>& frame, const std::vector<cv::Point>& places, DefectStyle style, double low,
                  double high)
{
    const double range = std::max(high - low, 1.0);
    for (std::size_t i = 0; i < places.size(); ++i) {
        float& pixel = frame(places[i]);
        if (style == DefectStyle::markers)
            pixel = std::bit_cast<float>(PixelMarker::all[i % PixelMarker::all.size()]);
        else
            pixel = static_cast<float>(i % 2 == 0 ? low - range : high + range);
    }
}

}  // namespace vxsupport
