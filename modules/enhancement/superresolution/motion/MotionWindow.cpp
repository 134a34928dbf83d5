// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/motion/MotionWindow.h"

#include <algorithm>
#include <utility>

#include "core/base/Exception.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "enhancement/superresolution/engine/EngineSettings.h"
#include "enhancement/superresolution/motion/DefectMap.h"

namespace halvor::vx {

namespace {

constexpr int smallestSide = 8;

std::vector<MotionFrame> emptyFrames(const cv::Size& size, int count)
{
    std::vector<MotionFrame> frames;
    frames.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        frames.push_back({cv::Mat_<float>(size), cv::Mat_<unsigned char>(size)});
    return frames;
}

}  // namespace

MotionWindow::MotionWindow(const cv::Size& size, int capacity)
    : size_(size), frames_(emptyFrames(size, capacity))
{}

int MotionWindow::add(const float* frame, SuperResolutionBadPixelHandling& badPixels)
{
    MotionFrame& newest = frames_.push();
    std::copy_n(frame, size_.area(), newest.values.ptr<float>());
    findDefects(newest.values, limits_, newest.defects);
    return badPixels.detectAndReplaceBadPixel(newest.values);
}

int MotionWindow::referenceFrame(int index) const
{
    return std::max(count() - index - 1, 0);
}

void requireMotionSize(int width, int height, const std::string& where)
{
    pixelCount(width, height, where);
    if (width < smallestSide || height < smallestSide)
        throw Exception("Invalid image size: " + std::to_string(width) + " x " + std::to_string(height) +
                            "; expected at least 8 x 8",
                        where);
    pixelCount(enlarged(width, EngineDefaults::enlargement, 1.0F, where) + 32,
               enlarged(height, EngineDefaults::enlargement, 1.0F, where) + 32, where);
}

void requireFrame(const cv::Mat_<float>& frame, const cv::Size& size, const std::string& where)
{
    if (frame.size() == size && frame.isContinuous())
        return;
    throw Exception("addFrame(): expected a continuous matrix of " + std::to_string(size.height) +
                        " rows and " + std::to_string(size.width) + " columns, got " +
                        std::to_string(frame.rows) + " and " + std::to_string(frame.cols),
                    where);
}

void requireMotionPsfSigma(float sigma)
{
    constexpr float largest = 4.0F;
    requirePsfSigma(sigma);
    if (!(sigma <= largest))
        throw "Invalid standard deviation of the sensor psf specified.";
}

}  // namespace halvor::vx
