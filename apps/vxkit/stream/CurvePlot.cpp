// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/CurvePlot.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace vxapp {

namespace {

const cv::Scalar background(250, 250, 250);
const cv::Scalar gridColour(225, 225, 225);
const cv::Scalar barColour(205, 180, 140);
const cv::Scalar curveColour(30, 30, 170);
const cv::Scalar frameColour(120, 120, 120);
constexpr double tallestBar = 0.9;
constexpr int gridLines = 4;

void drawGrid(cv::Mat& picture)
{
    for (int i = 1; i < gridLines; ++i) {
        const int x = picture.cols * i / gridLines;
        const int y = picture.rows * i / gridLines;
        cv::line(picture, {x, 0}, {x, picture.rows}, gridColour);
        cv::line(picture, {0, y}, {picture.cols, y}, gridColour);
    }
}

void drawBars(cv::Mat& picture, const std::vector<double>& bars)
{
    const double tallest = bars.empty() ? 0.0 : *std::max_element(bars.begin(), bars.end());
    if (tallest <= 0.0)
        return;
    for (int x = 0; x < picture.cols; ++x) {
        const double bar =
            bars[static_cast<std::size_t>(x) * bars.size() / static_cast<std::size_t>(picture.cols)];
        const int height = static_cast<int>(std::lround(bar / tallest * tallestBar * picture.rows));
        if (height > 0)
            cv::line(picture, {x, picture.rows - height}, {x, picture.rows - 1}, barColour);
    }
}

void drawCurve(cv::Mat& picture, const std::vector<double>& curve)
{
    std::vector<cv::Point> line;
    for (std::size_t i = 0; i < curve.size(); ++i) {
        const double x = static_cast<double>(i) / static_cast<double>(curve.size() - 1) * (picture.cols - 1);
        const double y = (1.0 - std::clamp(curve[i], 0.0, 1.0)) * (picture.rows - 1);
        line.emplace_back(static_cast<int>(std::lround(x)), static_cast<int>(std::lround(y)));
    }
    cv::polylines(picture, line, false, curveColour, 2, cv::LINE_AA);
}

}  // namespace

cv::Mat_<cv::Vec3b> plotCurve(const std::vector<double>& curve, const std::vector<double>& bars,
                              cv::Size size)
{
    cv::Mat picture(size, CV_8UC3, background);
    drawGrid(picture);
    drawBars(picture, bars);
    if (curve.size() > 1)
        drawCurve(picture, curve);
    cv::rectangle(picture, cv::Rect({0, 0}, size), frameColour);
    return picture;
}

}  // namespace vxapp
