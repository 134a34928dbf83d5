// SPDX-License-Identifier: Apache-2.0
#include "support/Pictures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <stdexcept>

namespace vxsupport {

namespace {

struct NamedColourMap
{
    const char* name;
    int map;
};

constexpr int greyOnly = -1;
constexpr int blueToRed = -2;

constexpr std::array<NamedColourMap, 9> namedColourMaps{{
    {"inferno", cv::COLORMAP_INFERNO},
    {"gray", greyOnly},
    {"magma", cv::COLORMAP_MAGMA},
    {"plasma", cv::COLORMAP_PLASMA},
    {"viridis", cv::COLORMAP_VIRIDIS},
    {"turbo", cv::COLORMAP_TURBO},
    {"hot", cv::COLORMAP_HOT},
    {"bone", cv::COLORMAP_BONE},
    {divergingColourMap, blueToRed},
}};

// The scheme RdBu of Brewer's ColorBrewer, from its blue end on; blue, green, red.
const cv::Mat_<cv::Vec3b>& divergingColours()
{
    static const cv::Mat_<cv::Vec3b> colours = [] {
        const std::array<cv::Vec3b, 11> anchors{{{97, 48, 5},
                                                 {172, 102, 33},
                                                 {195, 147, 67},
                                                 {222, 197, 146},
                                                 {240, 229, 209},
                                                 {247, 247, 247},
                                                 {199, 219, 253},
                                                 {130, 165, 244},
                                                 {77, 96, 214},
                                                 {43, 24, 178},
                                                 {31, 0, 103}}};
        cv::Mat_<cv::Vec3b> table(1, 256);
        for (int level = 0; level < table.cols; ++level) {
            const double place = level / 255.0 * (anchors.size() - 1);
            const auto anchor = std::min(static_cast<std::size_t>(place), anchors.size() - 2);
            const double share = place - static_cast<double>(anchor);
            table(level) =
                cv::Vec3d(anchors[anchor]) * (1.0 - share) + cv::Vec3d(anchors[anchor + 1]) * share;
        }
        return table;
    }();
    return colours;
}

cv::Mat_<cv::Vec3b> throughTable(const cv::Mat_<std::uint8_t>& levels, const cv::Mat_<cv::Vec3b>& table)
{
    cv::Mat_<cv::Vec3b> picture(levels.size());
    std::transform(levels.begin(), levels.end(), picture.begin(),
                   [&table](std::uint8_t level) { return table(level); });
    return picture;
}

constexpr int gap = 10;
constexpr int font = cv::FONT_HERSHEY_SIMPLEX;

struct Lettering
{
    double size;
    int thickness;
    int lineHeight;

    int widthOf(const std::string& text) const
    {
        int baseline = 0;
        return cv::getTextSize(text, font, size, thickness, &baseline).width;
    }
};

// Letters grow with the pictures, which are looked at from further away.
Lettering letteringFor(const std::vector<Panel>& panels)
{
    constexpr double smallest = 0.5;
    constexpr double largest = 2.0;
    constexpr double widthOfOne = 900.0;
    int width = 0;
    for (const Panel& panel : panels)
        width = std::max(width, panel.picture.cols);
    const double size = std::clamp(width / widthOfOne, smallest, largest);
    return {size, size > 1.2 ? 2 : 1, static_cast<int>(std::lround(36.0 * size))};
}

/// A caption as it is written: never smaller than the lettering, so that a narrow picture gets more lines.
struct Caption
{
    std::vector<std::string> lines;
    int width;
};

Caption captionOf(const Panel& panel, const Lettering& lettering)
{
    Caption caption{{}, panel.picture.cols};
    std::istringstream text(panel.caption);
    std::vector<std::string> words;
    for (std::string word; text >> word; words.push_back(word))
        caption.width = std::max(caption.width, lettering.widthOf(word));
    for (const std::string& word : words) {
        const bool fits =
            !caption.lines.empty() && lettering.widthOf(caption.lines.back() + " " + word) <= caption.width;
        if (fits)
            caption.lines.back() += " " + word;
        else
            caption.lines.push_back(word);
    }
    return caption;
}

void writeCaption(cv::Mat_<cv::Vec3b>& sheet, const Caption& caption, cv::Point corner,
                  const Lettering& lettering)
{
    for (std::size_t i = 0; i < caption.lines.size(); ++i) {
        const int x = corner.x + (caption.width - lettering.widthOf(caption.lines[i])) / 2;
        const int y = corner.y + static_cast<int>(i) * lettering.lineHeight + lettering.lineHeight * 3 / 4;
        cv::putText(sheet, caption.lines[i], {x, y}, font, lettering.size, {30, 30, 30}, lettering.thickness,
                    cv::LINE_AA);
    }
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
            else if (map.map == blueToRed)
                picture = throughTable(levels, divergingColours());
            else
                cv::applyColorMap(levels, picture, map.map);
            return picture;
        }
    throw std::invalid_argument("unknown colour map " + colourMap);
}

cv::Mat_<cv::Vec3b> sideBySide(const std::vector<Panel>& panels)
{
    const Lettering lettering = letteringFor(panels);
    std::vector<Caption> captions;
    int width = gap;
    int height = 0;
    std::size_t lines = 1;
    for (const Panel& panel : panels) {
        captions.push_back(captionOf(panel, lettering));
        width += captions.back().width + gap;
        height = std::max(height, panel.picture.rows);
        lines = std::max(lines, captions.back().lines.size());
    }
    const int captionHeight = static_cast<int>(lines) * lettering.lineHeight + gap;
    cv::Mat_<cv::Vec3b> sheet(gap + height + captionHeight, width, cv::Vec3b(255, 255, 255));
    int x = gap;
    for (std::size_t i = 0; i < panels.size(); ++i) {
        const cv::Mat& picture = panels[i].picture;
        const cv::Point place(x + (captions[i].width - picture.cols) / 2, gap + (height - picture.rows) / 2);
        picture.copyTo(sheet(cv::Rect(place, picture.size())));
        writeCaption(sheet, captions[i], {x, gap + height + gap / 2}, lettering);
        x += captions[i].width + gap;
    }
    return sheet;
}

cv::Mat_<cv::Vec3b> stacked(const std::vector<cv::Mat_<cv::Vec3b>>& sheets)
{
    int width = 0;
    for (const cv::Mat& sheet : sheets)
        width = std::max(width, sheet.cols);
    cv::Mat_<cv::Vec3b> whole;
    for (const cv::Mat& sheet : sheets) {
        cv::Mat_<cv::Vec3b> wide;
        cv::copyMakeBorder(sheet, wide, 0, 0, 0, width - sheet.cols, cv::BORDER_CONSTANT,
                           cv::Scalar::all(255));
        whole.push_back(wide);
    }
    return whole;
}

cv::Mat_<cv::Vec3b> magnified(const cv::Mat_<cv::Vec3b>& picture, int times)
{
    cv::Mat_<cv::Vec3b> large;
    cv::resize(picture, large, picture.size() * times, 0.0, 0.0, cv::INTER_NEAREST);
    return large;
}

}  // namespace vxsupport
