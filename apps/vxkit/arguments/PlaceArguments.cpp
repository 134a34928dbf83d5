// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/arguments/PlaceArguments.h"

#include <CLI/CLI.hpp>
#include <optional>
#include <vector>

#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

std::string insideText(cv::Size size, const std::string& image)
{
    return " inside the " + std::to_string(size.width) + "x" + std::to_string(size.height) + " pixels of " +
           image;
}

std::optional<cv::Rect> areaFrom(const std::string& text)
{
    const std::size_t first = text.find(',');
    const std::size_t second = first == std::string::npos ? first : text.find(',', first + 1);
    if (second == std::string::npos)
        return std::nullopt;
    const auto corner = parsePair(text.substr(0, second), ',');
    const std::string extent = text.substr(second + 1);
    const auto size = parsePair(extent, extent.find('x') != std::string::npos ? 'x' : ',');
    if (!corner || !size)
        return std::nullopt;
    return cv::Rect(corner->first, corner->second, size->first, size->second);
}

}  // namespace

// Settings files cut lists at commas.
CLI::Option* addAreaOption(CLI::App& command, const std::string& name, std::string& area,
                           const std::string& purpose)
{
    return command
        .add_option_function<std::vector<std::string>>(
            name,
            [&area](const std::vector<std::string>& parts) {
                area.clear();
                for (const std::string& part : parts)
                    area += (area.empty() ? "" : ",") + part;
            },
            purpose)
        ->delimiter(',')
        ->allow_extra_args(false)
        ->type_name("X,Y,WxH");
}

cv::Point parseSpot(const std::string& option, const std::string& text, cv::Size size,
                    const std::string& image)
{
    const auto spot = parsePair(text, ',');
    if (!spot || !cv::Rect({0, 0}, size).contains({spot->first, spot->second}))
        throw UsageError(option + " " + text + ": expected X,Y" + insideText(size, image));
    return {spot->first, spot->second};
}

cv::Rect parseArea(const std::string& option, const std::string& text, cv::Size size,
                   const std::string& image)
{
    const std::optional<cv::Rect> area = areaFrom(text);
    const auto fits = [](int start, int extent, int side) {
        return start >= 0 && extent > 0 && start < side && extent <= side - start;
    };
    if (!area || !fits(area->x, area->width, size.width) || !fits(area->y, area->height, size.height))
        throw UsageError(option + " " + text + ": expected X,Y,WxH" + insideText(size, image));
    return *area;
}

}  // namespace vxapp
