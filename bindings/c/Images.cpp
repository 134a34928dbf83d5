// SPDX-License-Identifier: Apache-2.0
#include "bindings/c/Images.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <opencv2/core.hpp>

#include "bindings/c/Failure.h"
#include "enhancement/superresolution/engine/PixelValues.h"

namespace vxc {

namespace {

constexpr std::array<int, 7> depths{CV_8U, CV_8S, CV_16U, CV_16S, CV_32S, CV_32F, CV_64F};
constexpr int countOfZero = 32768;

std::string sizeText(int width, int height)
{
    return std::to_string(width) + "x" + std::to_string(height);
}

int depthOf(const vxkit_image& image, const char* what)
{
    if (image.type < VXKIT_U8 || image.type > VXKIT_F64)
        throw Failure(VXKIT_WRONG_TYPE, std::string(what) + ": type " +
                                            std::to_string(static_cast<int>(image.type)) +
                                            "; expected one of vxkit_type");
    return depths.at(static_cast<std::size_t>(image.type));
}

std::size_t strideOf(const vxkit_image& image, int depth, const char* what)
{
    const auto sample = static_cast<std::ptrdiff_t>(CV_ELEM_SIZE1(depth));
    const std::ptrdiff_t row = sample * image.width;
    const std::ptrdiff_t stride = image.stride == 0 ? row : image.stride;
    if (stride < row || stride % sample != 0)
        throw Failure(VXKIT_OUT_OF_RANGE, std::string(what) + ": stride " + std::to_string(image.stride) +
                                              "; expected 0, or a multiple of " + std::to_string(sample) +
                                              " of at least " + std::to_string(row) + " bytes");
    if (reinterpret_cast<std::uintptr_t>(image.data) % static_cast<std::uintptr_t>(sample) != 0)
        throw Failure(VXKIT_OUT_OF_RANGE, std::string(what) + ": data is not aligned to samples of " +
                                              std::to_string(sample) + " bytes");
    return static_cast<std::size_t>(stride);
}

}  // namespace

cv::Mat matrixOf(const vxkit_image* image, cv::Size expected, const char* what)
{
    if (image == nullptr || image->data == nullptr)
        throw Failure(VXKIT_NULL_ARGUMENT, std::string(what) + ": found no image; expected one of " +
                                               sizeText(expected.width, expected.height));
    if (image->width != expected.width || image->height != expected.height)
        throw Failure(VXKIT_WRONG_SHAPE, std::string(what) + ": found " +
                                             sizeText(image->width, image->height) + "; expected " +
                                             sizeText(expected.width, expected.height));
    const int depth = depthOf(*image, what);
    return {expected, CV_MAKETYPE(depth, 1), image->data, strideOf(*image, depth, what)};
}

vxkit_type typeOf(const cv::Mat& matrix)
{
    for (std::size_t i = 0; i < depths.size(); ++i)
        if (depths[i] == matrix.depth())
            return static_cast<vxkit_type>(i);
    throw Failure(VXKIT_FAILED, "a result of an unknown type");
}

void requireType(const vxkit_image& image, vxkit_type expected, const char* what)
{
    if (image.type != expected)
        throw Failure(VXKIT_WRONG_TYPE, std::string(what) + ": found " + vxkit_type_text(image.type) +
                                            "; expected " + vxkit_type_text(expected));
}

void convertExactly(const cv::Mat& frame, cv::Mat_<float>& floats, const char* what)
{
    frame.convertTo(floats, CV_32F);
    if (frame.depth() != CV_32S && frame.depth() != CV_64F)
        return;
    for (int y = 0; y < frame.rows; ++y)
        for (int x = 0; x < frame.cols; ++x) {
            const double value = frame.depth() == CV_64F ? frame.at<double>(y, x) : frame.at<int>(y, x);
            if (static_cast<double>(floats(y, x)) != value && !std::isnan(value))
                throw Failure(VXKIT_OUT_OF_RANGE, std::string(what) + ": " + std::to_string(value) +
                                                      " at row " + std::to_string(y) + ", column " +
                                                      std::to_string(x) +
                                                      " is no number of single precision; expected f32");
        }
}

// Counts that were taken for degrees would else give failures that name corners and bad pixels.
void requireSomeDegrees(const cv::Mat_<float>& frame)
{
    using halvor::vx::temperatureLimits;
    if (std::any_of(frame.begin(), frame.end(), [](float value) {
            return value >= temperatureLimits.lowest && value <= temperatureLimits.highest;
        }))
        return;
    throw Failure(VXKIT_OUT_OF_RANGE,
                  "frame: no value lies within -274 to 5000, others count as bad pixels; expected degrees "
                  "Celsius, or counts that were turned into such or divided by 16");
}

void requireSignedCounts(const cv::Mat_<float>& frame, const char* what)
{
    for (int y = 0; y < frame.rows; ++y)
        for (int x = 0; x < frame.cols; ++x) {
            const float value = frame(y, x);
            if (!(value >= -32768.0F && value <= 32767.0F && value == std::floor(value)))
                throw Failure(VXKIT_OUT_OF_RANGE, std::string(what) + ": " + std::to_string(value) +
                                                      " at row " + std::to_string(y) + ", column " +
                                                      std::to_string(x) +
                                                      "; expected whole counts of -32768 to 32767");
        }
}

void toSamples(const cv::Mat& frame, cv::Mat_<short>& samples)
{
    frame.convertTo(samples, CV_16S, 1.0, frame.depth() == CV_16U ? -countOfZero : 0);
}

void toFrame(const cv::Mat_<short>& samples, cv::Mat& frame)
{
    samples.convertTo(frame, frame.depth(), 1.0, frame.depth() == CV_16U ? countOfZero : 0);
}

}  // namespace vxc
