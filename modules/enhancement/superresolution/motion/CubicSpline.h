// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

namespace halvor::vx {

/// The cubic B-spline through the pixels of an image, to be read between them (Unser, Aldroubi and Eden, 1993).
///
/// Places are exact: tables that round them cost tenths of a decibel. Beyond its edges the image goes on as its
/// mirror picture, the edge pixel being the mirror. All memory is allocated by the constructor; several threads
/// may read at the same time.
class CubicSpline
{
public:
    explicit CubicSpline(const cv::Size& size);

    /// @param image  of the size of the construction
    void fit(const cv::Mat_<float>& image);

    /// out[x] = image(x - dx[x], y - dy[x]) for a row of the image. Places more than a pixel beyond the edges
    /// take the value of a place just outside.
    void sampleRow(int y, const float* dx, const float* dy, float* out) const;

    cv::Size size() const { return size_; }

private:
    void fitRows();
    void fitColumns();
    void mirrorEdges();

    cv::Size size_;
    cv::Mat_<float> coefficients_;  // with a margin on each side
};

}  // namespace halvor::vx
