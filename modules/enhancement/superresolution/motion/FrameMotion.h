// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <optional>
#include <vector>

#include "core/base/PointF.h"
#include "enhancement/superresolution/motion/AffineMotion.h"
#include "enhancement/superresolution/motion/ControlPoints.h"
#include "enhancement/superresolution/motion/CubicSpline.h"
#include "enhancement/superresolution/motion/Smoothing.h"

namespace halvor::vx {

/// The reference frame as motion is measured against it: smoothed on every level of a pyramid, as splines.
class MotionReference
{
public:
    explicit MotionReference(const cv::Size& size);

    /// @param frame  in deviations of the noise
    void set(const cv::Mat_<float>& frame);
    const CubicSpline& level(int index) const { return splines_[static_cast<std::size_t>(index)]; }
    int levels() const { return static_cast<int>(splines_.size()); }

private:
    SmoothPyramid pyramid_;
    std::vector<CubicSpline> splines_;
};

/// Finds the motion of a frame: one shift, coarse to fine, an affine motion, then deviations from it at control
/// points. Runs on one thread; all memory is allocated by the constructor.
class FrameMotion
{
public:
    explicit FrameMotion(const cv::Size& size);

    /// @param frame  in deviations of the noise
    /// @return false if no motion fits
    bool find(const MotionReference& reference, const cv::Mat_<float>& frame);

    /// The last frame's motion in pixels: frame(q) is reference(q - d(q)).
    const cv::Mat_<float>& dx() const { return dx_; }
    const cv::Mat_<float>& dy() const { return dy_; }
    /// 1 where a pixel of the frame lies within the reference, else 0.
    const cv::Mat_<unsigned char>& overlap() const { return overlap_; }
    /// The last frame, smoothed, and the reference moved onto it.
    const cv::Mat_<float>& smoothed() const { return pyramid_.smoothed(0); }
    const cv::Mat_<float>& predicted() const { return predicted_; }
    /// The motion of the frame's middle.
    PointF middle() const { return {static_cast<float>(affine_.x[0]), static_cast<float>(affine_.y[0])}; }

private:
    bool findAffine(const MotionReference& reference);
    bool isPlausible() const;
    void predict(const CubicSpline& reference);
    float centreError();
    void addRow(int y, float limit);

    cv::Size size_;
    SmoothPyramid pyramid_;
    std::vector<AffineFit> fits_;
    AffineMotion affine_;
    ControlPoints points_;
    cv::Mat_<float> dx_;
    cv::Mat_<float> dy_;
    cv::Mat_<unsigned char> overlap_;
    cv::Mat_<float> predicted_;
    cv::Mat_<float> error_;
    std::vector<float> sorted_;
    // Of a row: slopes and weights.
    std::vector<float> across_;
    std::vector<float> down_;
    std::vector<float> weight_;
};

}  // namespace halvor::vx
