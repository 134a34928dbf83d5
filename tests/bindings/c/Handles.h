// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include <array>
#include <opencv2/core.hpp>
#include <string>
#include <utility>
#include <vector>

#include "doubles/SameBits.h"
#include "vxkit.h"

namespace vxtest {

/// An object of the interface in C for the time of a test.
class Handle
{
public:
    explicit Handle(const std::string& kind, cv::Size frame = {96, 72})
    {
        EXPECT_EQ(vxkit_create(kind.c_str(), frame.width, frame.height, &object_), VXKIT_OK)
            << vxkit_last_error();
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { vxkit_release(object_); }

    operator vxkit_object*() const { return object_; }

    void set(const char* name, double value) const
    {
        EXPECT_EQ(vxkit_set_number(object_, name, value), VXKIT_OK) << vxkit_last_error();
    }
    double get(const char* name) const
    {
        double value = -1e9;
        EXPECT_EQ(vxkit_get_number(object_, name, &value), VXKIT_OK) << vxkit_last_error();
        return value;
    }

private:
    vxkit_object* object_ = nullptr;
};

inline vxkit_image imageOf(const cv::Mat& matrix)
{
    constexpr std::array<vxkit_type, 7> types{VXKIT_U8,  VXKIT_I8,  VXKIT_U16, VXKIT_I16,
                                              VXKIT_I32, VXKIT_F32, VXKIT_F64};
    return {matrix.data, matrix.cols, matrix.rows, static_cast<std::ptrdiff_t>(matrix.step),
            types.at(static_cast<std::size_t>(matrix.depth()))};
}

vxkit_image imageOf(cv::Mat&&) = delete;  // it would look at what is gone

/// The same values in another type.
inline cv::Mat converted(const cv::Mat& matrix, int depth, double scale = 1.0, double offset = 0.0)
{
    cv::Mat result;
    matrix.convertTo(result, depth, scale, offset);
    return result;
}

/// A named result; empty, with a failure of the test, where there is none.
template <typename T>
cv::Mat_<T> resultOf(const vxkit_object* object, const char* name)
{
    vxkit_image shape{};
    EXPECT_EQ(vxkit_result_shape(object, name, &shape), VXKIT_OK) << vxkit_last_error();
    cv::Mat_<T> result(shape.height, shape.width);
    const vxkit_image image = imageOf(result);
    EXPECT_EQ(image.type, shape.type);
    EXPECT_EQ(vxkit_result(object, name, &image), VXKIT_OK) << vxkit_last_error();
    return result;
}

/// Adds the frames; the report is the last one's.
template <typename Frames>
vxkit_burst_report addFrames(vxkit_object* object, const Frames& frames)
{
    vxkit_burst_report report{};
    for (const auto& frame : frames) {
        const vxkit_image image = imageOf(frame);
        EXPECT_EQ(vxkit_add_frame(object, &image, &report), VXKIT_OK) << vxkit_last_error();
    }
    return report;
}

/// A frame through a filter.
inline cv::Mat processed(vxkit_object* object, const cv::Mat& frame)
{
    cv::Mat result(frame.size(), frame.type());
    const vxkit_image src = imageOf(frame);
    const vxkit_image dst = imageOf(result);
    EXPECT_EQ(vxkit_process(object, &src, &dst), VXKIT_OK) << vxkit_last_error();
    return result;
}

/// A short stream of signed samples with pattern and noise.
inline std::vector<cv::Mat_<short>> sampleStream(int count, cv::Size size = {96, 72})
{
    cv::RNG random(7);
    cv::Mat_<short> pattern(size);
    random.fill(pattern, cv::RNG::NORMAL, 0, 12);
    std::vector<cv::Mat_<short>> frames;
    for (int i = 0; i < count; ++i) {
        cv::Mat_<short> frame(size);
        random.fill(frame, cv::RNG::NORMAL, 0, 6);
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x)
                frame(y, x) =
                    static_cast<short>(frame(y, x) + pattern(y, x) + 900 + 7 * x + (x > 40 + i ? 300 : 0));
        frames.push_back(frame);
    }
    return frames;
}

}  // namespace vxtest
