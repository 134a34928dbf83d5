#include "support/Defects.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

namespace vxsupport {

namespace {

constexpr std::array<std::uint32_t, 4> markers{0x81, 0x82, 0x84, 0x85};

}  // namespace

std::vector<cv::Point> drawDefects(cv::Size frame, int count, Random random)
{
    cv::Mat_<std::uint8_t> taken(frame, std::uint8_t{0});
    const int wanted = std::min(count, frame.area());
    std::vector<cv::Point> places;
    while (static_cast<int>(places.size()) < wanted) {
        const cv::Point place(random.below(frame.width), random.below(frame.height));
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
            pixel = std::bit_cast<float>(markers[i % markers.size()]);
        else
            pixel = static_cast<float>(i % 2 == 0 ? low - range : high + range);
    }
}

}  // namespace vxsupport
