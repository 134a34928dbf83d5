// SPDX-License-Identifier: Apache-2.0
#include "support/Pictures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

namespace vxsupport {

namespace {

struct NamedColourMap
{
    const char* name;
    int map;
};

constexpr int greyOnly = -1;

constexpr std::array<NamedColourMap, 8> namedColourMaps{{
    {"inferno", cv::COLORMAP_INFERNO},
    {"gray", greyOnly},
    {"magma", cv::COLORMAP_MAGMA},
    {"plasma", cv::COLORMAP_PLASMA},
    {"viridis", cv::COLORMAP_VIRIDIS},
    {"turbo", cv::COLORMAP_TURBO},
    {"hot", cv::COLORMAP_HOT},
    {"bone", cv::COLORMAP_BONE},
}};

constexpr int gap = 10;
constexpr int captionHeight = 30;

void writeCaption(cv::Mat_<cv::Vec3b>& sheet, const std::string& text, const cv::Rect& strip)
{
    constexpr int font = cv::FONT_HERSHEY_SIMPLEX;
    double size = 0.6;
    int baseline = 0;
    cv::Size extent = cv::getTextSize(text, font, size, 1, &baseline);
    if (extent.width > strip.width) {
        size *= static_cast<double>(strip.width) / extent.width;
        extent = cv::getTextSize(text, font, size, 1, &baseline);
    }
    const cv::Point start(strip.x + (strip.width - extent.width) / 2,
                          strip.y + (strip.height + extent.height) / 2);
    cv::putText(sheet, text, start, font, size, {30, 30, 30}, 1, cv::LINE_AA);
}

}  // namespace

ValueRange visibleRange(const cv::Mat_<float>& image, double leftOut)
{
    std::vector<float> values;
    values.reserve(image.total());
    std::copy_if(image.begin(), image.end(), std::back_inserter(values),
                 [](float value) { return std::isfinite(value); });
    if (values.empty())
        return {0.0F, 0.0F};
    const auto cut = static_cast<std::ptrdiff_t>(static_cast<double>(values.size() - 1) * leftOut);
    std::nth_element(values.begin(), values.begin() + cut, values.end());
    const float low = *(values.begin() + cut);
    std::nth_element(values.begin(), values.end() - 1 - cut, values.end());
    return {low, *(values.end() - 1 - cut)};
}

cv::Mat_<std::uint8_t> greyLevels(const cv::Mat_<float>& image, const ValueRange& range)
{
    const float span = range.high > range.low ? range.high - range.low : 1.0F;
    cv::Mat_<std::uint8_t> levels(image.size());
    std::transform(image.begin(), image.end(), levels.begin(), [&](float value) {
        const float level = (value - range.low) / span;
        return std::isnan(level)
                   ? std::uint8_t{0}
                   : static_cast<std::uint8_t>(std::lround(std::clamp(level, 0.0F, 1.0F) * 255.0F));
    });
    return levels;
}

const std::vector<std::string>& colourMapNames()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        list.reserve(std::size(namedColourMaps));
        for (const NamedColourMap& map : namedColourMaps)
            list.emplace_back(map.name);
        return list;
    }();
    return names;
}

cv::Mat_<cv::Vec3b> falseColours(const cv::Mat_<std::uint8_t>& levels, const std::string& colourMap)
{
    for (const NamedColourMap& map : namedColourMaps)
        if (colourMap == map.name) {
            cv::Mat_<cv::Vec3b> picture;
            if (map.map == greyOnly)
                cv::cvtColor(levels, picture, cv::COLOR_GRAY2BGR);
            else
                cv::applyColorMap(levels, picture, map.map);
            return picture;
        }
    throw std::invalid_argument("unknown colour map " + colourMap);
}

cv::Mat_<cv::Vec3b> sideBySide(const std::vector<Panel>& panels)
{
    int width = gap;
    int height = 0;
    for (const Panel& panel : panels) {
        width += panel.picture.cols + gap;
        height = std::max(height, panel.picture.rows);
    }
    cv::Mat_<cv::Vec3b> sheet(height + gap + captionHeight, width, cv::Vec3b(255, 255, 255));
    int x = gap;
    for (const Panel& panel : panels) {
        const int y = gap + (height - panel.picture.rows) / 2;
        panel.picture.copyTo(sheet(cv::Rect({x, y}, panel.picture.size())));
        writeCaption(sheet, panel.caption, {x, gap + height, panel.picture.cols, captionHeight - gap / 2});
        x += panel.picture.cols + gap;
    }
    return sheet;
}

cv::Mat_<cv::Vec3b> magnified(const cv::Mat_<cv::Vec3b>& picture, int times)
{
    cv::Mat_<cv::Vec3b> large;
    cv::resize(picture, large, picture.size() * times, 0.0, 0.0, cv::INTER_NEAREST);
    return large;
}

}  // namespace vxsupport
