// SPDX-License-Identifier: Apache-2.0
// The two ends of the reference engine: raw counts to radiance, and the map of sub-pixel coverage.

#include <cmath>
#include <opencv2/core.hpp>

#include "core/base/Exception.h"
#include "enhancement/superresolution/engine/FrameWindow.h"
#include "enhancement/superresolution/reference/SuperResolution.h"

namespace halvor::vx {

namespace {

constexpr float failedLine = -1000.0F;
constexpr float largestLine = 1000.0F;

// Replaces what reaches the bounds by the mean of the good ones among its four neighbours, which a repair
// makes good in turn. Without any it becomes not a number, which bad-pixel handling finds in the frames.
void repairLines(cv::Mat_<float>& lines, float low, float high)
{
    for (int y = 0; y < lines.rows; ++y) {
        for (int x = 0; x < lines.cols; ++x) {
            if (!(lines(y, x) <= low || lines(y, x) >= high))
                continue;
            float sum = 0.0F;
            float count = 0.0F;
            const cv::Point neighbours[] = {{x - 1, y}, {x + 1, y}, {x, y - 1}, {x, y + 1}};
            for (const cv::Point& place : neighbours) {
                const bool isInside =
                    place.x >= 0 && place.x < lines.cols && place.y >= 0 && place.y < lines.rows;
                if (isInside && lines(place) > low && lines(place) < high) {
                    sum += lines(place);
                    count += 1.0F;
                }
            }
            lines(y, x) = sum / count;
        }
    }
}

}  // namespace

void SuperResolution::setNucToRad(const cv::Mat_<short>& nucA, const cv::Mat_<float>& radA,
                                  const cv::Mat_<short>& nucB, const cv::Mat_<float>& radB)
{
    if (radA.size() != nucA.size() || nucB.size() != nucA.size() || radB.size() != nucA.size())
        throw Exception("setNucToRad(): the four matrices differ in size",
                        VX_WHERE("halvor::vx::SuperResolution::setNucToRad"));
    gain_.create(nucA.size());
    offset_.create(nucA.size());
    for (int y = 0; y < nucA.rows; ++y) {
        for (int x = 0; x < nucA.cols; ++x) {
            const float r1 = radA(y, x);
            const float r2 = radB(y, x);
            const auto n1 = static_cast<float>(nucA(y, x));
            const auto n2 = static_cast<float>(nucB(y, x));
            const bool isLine = n2 != n1;
            gain_(y, x) = isLine ? (r2 - r1) / (n2 - n1) : failedLine;
            offset_(y, x) = isLine ? r1 - gain_(y, x) * n1 : failedLine;
        }
    }
    repairLines(gain_, failedLine, largestLine);
    repairLines(offset_, failedLine, largestLine);
}

float SuperResolution::processFrame2(const short* input, float* output)
{
    if (offset_.cols != width_ || gain_.rows != height_)
        throw Exception("NucToRad() not initialized", VX_WHERE("halvor::vx::SuperResolution::processFrame2"));
    // A matrix header takes no pointer to constant data; the matrix is only read.
    const cv::Mat_<short> raw(height_, width_, const_cast<short*>(input));
    NucToRad(raw);
    addFrame(radiance_.ptr<float>());
    return computeSR(output);
}

void SuperResolution::computeQuality()
{
    if (registeredCount_ == 0)
        throw Exception("computeQuality(): no frames have been registered yet",
                        VX_WHERE("halvor::vx::SuperResolution::computeQuality"));
    computeQuality_();
}

void SuperResolution::getQuality(cv::Mat_<float>& out) const
{
    out = quality_.clone();
}

void SuperResolution::NucToRad(const cv::Mat_<short>& raw)
{
    radiance_.create(height_, width_);
    for (int y = 0; y < height_; ++y) {
        for (int x = 0; x < width_; ++x)
            radiance_(y, x) = static_cast<float>(raw(y, x)) * gain_(y, x) + offset_(y, x);
    }
}

void SuperResolution::computeQuality_()
{
    quality_.create(3, 3);
    quality_ = 0.0F;
    const auto add = [this](int row, int column, float weight) {
        // Registration leaves remainders from -0.5 up to 0.5, for which the map has room.
        if (row >= 0 && row < quality_.rows && column >= 0 && column < quality_.cols)
            quality_(row, column) += weight;
    };
    for (int i = 0; i < registeredCount_; ++i) {
        const float x = window_->shifts()[i].x * 2.0F + 1.0F;
        const float y = window_->shifts()[i].y * 2.0F + 1.0F;
        const float fx = std::floor(x);
        const float fy = std::floor(y);
        const float dx = x - fx;
        const float dy = y - fy;
        const int column = static_cast<int>(fx);
        const int row = static_cast<int>(fy);
        add(row, column, (1.0F - dx) * (1.0F - dy));
        add(row, column + 1, (1.0F - dy) * dx);
        add(row + 1, column + 1, dx * dy);
        add(row + 1, column, (1.0F - dx) * dy);
    }
    quality_ /= static_cast<double>(registeredCount_);
}

}  // namespace halvor::vx
