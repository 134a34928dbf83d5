// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/burst/QualityMap.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>

#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/output/Output.h"

namespace vxapp {

namespace {

constexpr std::array<const char*, 3> steps{"-0.5", "0", "+0.5"};
constexpr int squareSide = 96;

std::string percent(float share)
{
    return std::to_string(std::lround(share * 100.0F)) + " %";
}

// Each share as a square of its colour, from none to the largest.
cv::Mat_<cv::Vec3b> pictureOf(const cv::Mat_<float>& map)
{
    double largest = 0.0;
    cv::minMaxLoc(map, nullptr, &largest);
    const cv::Mat_<std::uint8_t> levels = vxsupport::greyLevels(map, {0.0F, static_cast<float>(largest)});
    cv::Mat_<cv::Vec3b> picture = vxsupport::magnified(
        vxsupport::falseColours(levels, vxsupport::colourMapNames().front()), squareSide);
    for (int y = 0; y < map.rows; ++y)
        for (int x = 0; x < map.cols; ++x) {
            const cv::Scalar ink = levels(y, x) > 128 ? cv::Scalar::all(0) : cv::Scalar::all(255);
            const cv::Point place(x * squareSide + squareSide / 4, y * squareSide + squareSide * 5 / 9);
            cv::putText(picture, percent(map(y, x)), place, cv::FONT_HERSHEY_SIMPLEX, 0.6, ink, 1,
                        cv::LINE_AA);
        }
    return vxsupport::sideBySide({{picture, "frames by sub-pixel displacement"}});
}

}  // namespace

std::string qualityTable(const cv::Mat_<float>& map)
{
    std::ostringstream table;
    table << "      sub-pixel coverage, share of the frames by displacement in frame pixels\n";
    table << std::setw(21) << "x" << std::setw(8) << steps[0] << std::setw(8) << steps[1] << std::setw(8)
          << steps[2] << '\n';
    for (int y = 0; y < map.rows; ++y) {
        table << std::setw(15) << "y" << std::setw(6) << steps[static_cast<std::size_t>(y)];
        for (int x = 0; x < map.cols; ++x)
            table << std::setw(8) << percent(map(y, x));
        table << '\n';
    }
    return table.str();
}

void saveQualityMap(const std::filesystem::path& path, const cv::Mat_<float>& map, bool force)
{
    if (isFloatFile(path))
        return saveFloats(path, map, force);
    savePicture(path, pictureOf(map), force);
}

void saveConfidence(const std::filesystem::path& path, const cv::Mat_<float>& frames, bool force)
{
    if (isFloatFile(path))
        return saveFloats(path, frames, force);
    double most = 0.0;
    cv::minMaxLoc(frames, nullptr, &most);
    const ValueRange range{1.0F, std::max(2.0F, static_cast<float>(most))};
    savePreview(path, frames, range, vxsupport::colourMapNames().front(), force);
}

}  // namespace vxapp
