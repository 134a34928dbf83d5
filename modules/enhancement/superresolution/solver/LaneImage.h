// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <opencv2/core/mat.hpp>

#include "enhancement/superresolution/solver/LaneOrder.h"

namespace halvor::vx {

/// Geometry of a large image in that order.
///
/// The operators between the large image and a frame have a stride of 2: a lane's run is an even number of
/// columns, twice the run of a frame's row. Places beyond the image, the block behind each row and one row
/// above and below are zero, as long as the image is finite.
struct LaneLayout : LaneOrder
{
    LaneLayout(int imageWidth, int imageHeight)
        : LaneOrder(2 * std::max(2, (imageWidth + 2 * lanes - 1) / (2 * lanes))),
          width(imageWidth),
          height(imageHeight),
          pitch((run + 1) * lanes)
    {}

    LaneOrder frameOrder() const { return LaneOrder(run / 2); }

    int width;
    int height;
    int pitch;
};

/// An image in that layout, zero at first.
class LaneImage
{
public:
    /// @param index  differs between images that are used together, so that they do not share cache sets
    LaneImage(const LaneLayout& layout, int index)
        : pitch_(layout.pitch),
          storage_(1, (layout.height + 2) * layout.pitch + index * stagger, 0.0F),
          origin_(storage_.ptr<float>() + index * stagger + layout.pitch)
    {}
    LaneImage(const LaneImage&) = delete;
    LaneImage(LaneImage&&) = default;
    LaneImage& operator=(const LaneImage&) = delete;
    LaneImage& operator=(LaneImage&&) = default;
    ~LaneImage() = default;

    /// Rows -1 and height are there too, and zero.
    float* row(int y) { return origin_ + static_cast<std::ptrdiff_t>(y) * pitch_; }
    const float* row(int y) const { return origin_ + static_cast<std::ptrdiff_t>(y) * pitch_; }

private:
    static constexpr int stagger = 5 * LaneOrder::lanes;

    int pitch_;
    cv::Mat_<float> storage_;
    float* origin_;
};

}  // namespace halvor::vx
