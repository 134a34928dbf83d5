// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <opencv2/core.hpp>
#include <vector>

#include "doubles/BlockFrames.h"
#include "enhancement/Matrix.h"

namespace blocktest {

/// Swallows the line that every frame prints.
class QuietOutput
{
public:
    QuietOutput() { testing::internal::CaptureStdout(); }
    ~QuietOutput() { testing::internal::GetCapturedStdout(); }
    QuietOutput(const QuietOutput&) = delete;
    QuietOutput& operator=(const QuietOutput&) = delete;
};

template <typename T>
cv::Mat_<T> imageOf(const std::vector<int>& frame, Size size)
{
    cv::Mat_<T> image(size.rows, size.cols);
    std::transform(frame.begin(), frame.end(), image.begin(),
                   [](int pixel) { return static_cast<T>(pixel); });
    return image;
}

inline std::vector<int> contents(const halvor::vx::ChainMatrix* matrix)
{
    return {matrix->row(0), matrix->row(0) + matrix->size};
}

}  // namespace blocktest
