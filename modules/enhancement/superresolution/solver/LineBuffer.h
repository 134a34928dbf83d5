// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include "enhancement/superresolution/solver/LaneImage.h"

namespace halvor::vx {

/// Line buffer: the rows of a large image around the place where a thread works, with the edge blocks that
/// kernels look at: one before and four behind each row. Small enough to stay in the cache.
class LineBuffer
{
public:
    static constexpr int rows = 8;

    explicit LineBuffer(const LaneLayout& layout);

    /// Place for row y, whose run the caller fills before close(); forgets row y - 8.
    float* open(int y) { return ring_[y % rows] + guard; }
    void close(int y);
    /// A row that was closed; zero outside the image.
    const float* row(int y) const { return ring_[y < 0 || y >= height_ ? rows : y % rows] + guard; }

private:
    static constexpr int guard = LaneOrder::lanes;
    static constexpr int behind = 4;

    int run_;
    int height_;
    cv::Mat_<float> ring_;  // the last row stays zero
};

}  // namespace halvor::vx
