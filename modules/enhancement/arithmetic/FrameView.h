// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <opencv2/core/mat.hpp>

#include "core/base/ParallelPixels.h"

namespace halvor::vx {

/// A frame and the place of its result, by rows; strides in elements.
template <typename Pixel>
struct FrameView
{
    const Pixel* in;
    std::size_t inStride;
    Pixel* out;
    std::size_t outStride;
    int cols;
    int rows;

    /// Row y of the frame; beyond the frame its edge row stands.
    const Pixel* input(int y) const
    {
        return in + static_cast<std::size_t>(std::clamp(y, 0, rows - 1)) * inStride;
    }

    Pixel* output(int y) const { return out + static_cast<std::size_t>(y) * outStride; }

    std::size_t pixelCount() const { return static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows); }
};

/// What a block is given: rows without a gap.
inline FrameView<int> viewOf(const int* in, int* out, int cols, int rows)
{
    const std::size_t stride = static_cast<std::size_t>(cols);
    return {in, stride, out, stride, cols, rows};
}

/// What a filter is given; dst has the size of src.
inline FrameView<short> viewOf(const cv::Mat_<short>& src, cv::Mat_<short>& dst)
{
    return {src.ptr<short>(), src.step1(), dst.ptr<short>(), dst.step1(), src.cols, src.rows};
}

}  // namespace halvor::vx
