// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/PictureMarks.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iomanip>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <utility>

namespace vxapp {

namespace {

using vxsupport::ValueRange;

constexpr int font = cv::FONT_HERSHEY_SIMPLEX;
const cv::Scalar white(255, 255, 255);
const cv::Scalar black(0, 0, 0);
const cv::Scalar ink(30, 30, 30);

double letterSize(const cv::Mat& picture)
{
    return std::clamp(picture.rows / 1000.0, 0.45, 1.5);
}

cv::Size extentOf(const std::string& text, double size)
{
    int baseline = 0;
    return cv::getTextSize(text, font, size, 1, &baseline);
}

// White on black, so that it shows on every colour; moved inside the picture.
void write(cv::Mat& picture, const std::string& text, cv::Point start)
{
    const double size = letterSize(picture);
    const cv::Size extent = extentOf(text, size);
    start.x = std::clamp(start.x, 2, std::max(2, picture.cols - extent.width - 2));
    start.y = std::clamp(start.y, extent.height + 2, std::max(extent.height + 2, picture.rows - 4));
    cv::putText(picture, text, start, font, size, black, 3, cv::LINE_AA);
    cv::putText(picture, text, start, font, size, white, 1, cv::LINE_AA);
}

/// Draws on the part of an image that is shown, at its zoom.
class Marker
{
public:
    Marker(cv::Mat& picture, const cv::Mat_<float>& image, const PictureLook& look, const cv::Rect& part)
        : picture_(picture), image_(image), look_(look), part_(part)
    {}

    void drawIsotherm(double level)
    {
        cv::Mat_<float> fine;
        cv::resize(image_(part_), fine, picture_.size(), 0.0, 0.0, cv::INTER_LINEAR);
        const cv::Mat above = fine >= level;
        cv::Mat shrunk;
        cv::erode(above, shrunk, cv::Mat());
        const cv::Mat line = above & ~shrunk;
        cv::Mat halo;
        cv::dilate(line, halo, cv::Mat());
        if (look_.zoom > 2)
            picture_.setTo(black, halo);
        picture_.setTo(white, line);
    }

    void drawRegion(const cv::Rect& region, const std::string& name)
    {
        const cv::Rect shown((region.tl() - part_.tl()) * look_.zoom, region.size() * look_.zoom);
        cv::rectangle(picture_, shown, black, 3);
        cv::rectangle(picture_, shown, white, 1);
        write(picture_, name, shown.tl() + cv::Point(5, 5 + extentOf(name, letterSize(picture_)).height));
    }

    void drawSpot(cv::Point spot, const std::string& name)
    {
        if (!part_.contains(spot))
            return;
        const cv::Point centre = (spot - part_.tl()) * look_.zoom + cv::Point(1, 1) * (look_.zoom / 2);
        const int reach = std::max(6, static_cast<int>(std::lround(14.0 * letterSize(picture_))));
        for (const auto& [colour, thickness] : {std::pair(black, 3), std::pair(white, 1)})
            cv::drawMarker(picture_, centre, colour, cv::MARKER_CROSS, reach, thickness);
        write(picture_, name + " " + valueText(image_(spot), look_.range),
              centre + cv::Point(reach * 2 / 3, -reach / 3));
    }

private:
    cv::Mat& picture_;
    const cv::Mat_<float>& image_;
    const PictureLook& look_;
    cv::Rect part_;
};

void drawMarks(cv::Mat& picture, const cv::Mat_<float>& image, const PictureLook& look,
               const PictureMarks& marks)
{
    Marker marker(picture, image, look, marks.part);
    for (const double level : marks.isotherms)
        marker.drawIsotherm(level);
    for (std::size_t i = 0; i < marks.regions.size(); ++i)
        marker.drawRegion(marks.regions[i], markName('R', i));
    for (std::size_t i = 0; i < marks.spots.size(); ++i)
        marker.drawSpot(marks.spots[i], markName('S', i));
    for (std::size_t i = 0; i < marks.extremes.size(); ++i)
        marker.drawSpot(marks.extremes[i], i == 0 ? "min" : "max");
}

// Colours from the range's high end down, with round numbers and the isotherms' levels.
cv::Mat_<cv::Vec3b> colourBar(int height, const PictureLook& look, const std::vector<double>& isotherms)
{
    const double size = std::clamp(height / 1000.0, 0.45, 1.5);
    const cv::Size letters = extentOf("0", size);
    const std::vector<double> numbers = roundNumbers(look.range);
    int textWidth = extentOf(look.unit, size).width;
    for (const double number : numbers)
        textWidth = std::max(textWidth, extentOf(valueText(number, look.range), size).width);
    const int width = 2 * letters.height;
    const int top = std::min(height / 4, 2 * letters.height + 4);
    const int bottom = std::min(height / 8, letters.height / 2 + 2);
    cv::Mat_<cv::Vec3b> bar(height, 8 + width + 8 + textWidth, cv::Vec3b(255, 255, 255));
    cv::Mat_<std::uint8_t> levels(std::max(1, height - top - bottom), width);
    for (int y = 0; y < levels.rows; ++y)
        levels.row(y) = static_cast<std::uint8_t>(255 - 255 * y / std::max(1, levels.rows - 1));
    vxsupport::falseColours(levels, look.colourMap).copyTo(bar(cv::Rect({8, top}, levels.size())));
    const auto rowOf = [&](double value) {
        const double span = std::max(1e-9, static_cast<double>(look.range.high) - look.range.low);
        const double share = std::clamp((value - look.range.low) / span, 0.0, 1.0);
        return top + static_cast<int>(std::lround((1.0 - share) * (levels.rows - 1)));
    };
    for (const double number : numbers) {
        const int y = rowOf(number);
        cv::line(bar, {8 + width, y}, {8 + width + 4, y}, ink);
        cv::putText(bar, valueText(number, look.range), {8 + width + 7, y + letters.height / 2}, font, size,
                    ink, 1, cv::LINE_AA);
    }
    for (const double level : isotherms)
        if (level >= look.range.low && level <= look.range.high) {
            cv::line(bar, {8, rowOf(level)}, {8 + width, rowOf(level)}, black, 3);
            cv::line(bar, {8, rowOf(level)}, {8 + width, rowOf(level)}, white, 1);
        }
    cv::putText(bar, look.unit, {8, letters.height + 2}, font, size, ink, 1, cv::LINE_AA);
    return bar;
}

}  // namespace

cv::Mat_<cv::Vec3b> markedPicture(const cv::Mat_<float>& image, const PictureLook& look,
                                  const PictureMarks& marks)
{
    const cv::Mat_<std::uint8_t> levels = vxsupport::greyLevels(image(marks.part), look.range);
    cv::Mat picture = vxsupport::magnified(vxsupport::falseColours(levels, look.colourMap), look.zoom);
    drawMarks(picture, image, look, marks);
    cv::Mat_<cv::Vec3b> whole;
    cv::hconcat(picture, colourBar(picture.rows, look, marks.isotherms), whole);
    return whole;
}

std::vector<double> roundNumbers(const ValueRange& range)
{
    constexpr double mostNumbers = 8.0;
    const double span = static_cast<double>(range.high) - range.low;
    if (!(span > 0.0) || !std::isfinite(span))
        return {range.low};
    double step = std::pow(10.0, std::floor(std::log10(span / mostNumbers)));
    for (const double factor : {2.0, 2.5, 2.0})
        if (span / step > mostNumbers)
            step *= factor;
    std::vector<double> numbers;
    const double first = std::ceil(range.low / step);
    for (double i = first; i * step <= range.high && i < first + mostNumbers + 1.0; i += 1.0)
        numbers.push_back(i * step);
    return numbers;
}

std::string markName(char letter, std::size_t index)
{
    std::string name(1, letter);
    name += std::to_string(index + 1);
    return name;
}

std::string valueText(double value, const ValueRange& range)
{
    constexpr int mostDecimals = 6;
    const double span = std::max(1e-9, static_cast<double>(range.high) - range.low);
    const int decimals = std::clamp(2 - static_cast<int>(std::floor(std::log10(span))), 0, mostDecimals);
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << value + 0.0;
    return text.str();
}

ValueRange colourRange(const ValueRange& values)
{
    return values.low < values.high ? values : ValueRange{values.low - 0.5F, values.low + 0.5F};
}

std::vector<std::string> captionNames(const std::vector<std::string>& paths)
{
    std::vector<std::string> names;
    names.reserve(paths.size());
    for (const std::string& path : paths)
        names.push_back(std::filesystem::path(path).filename().string());
    for (std::size_t i = 0; i < paths.size(); ++i)
        for (std::size_t other = 0; other < paths.size(); ++other)
            if (paths[i] != paths[other] &&
                std::filesystem::path(paths[other]).filename() == std::filesystem::path(paths[i]).filename())
                names[i] = paths[i];
    return names;
}

}  // namespace vxapp
