// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <omp.h>

#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/base/RowSums.h"
#include "enhancement/superresolution/motion/FrameTaps.h"
#include "enhancement/superresolution/solver/LaneImage.h"
#include "enhancement/superresolution/solver/LineBuffer.h"
#include "enhancement/superresolution/solver/TotalVariationRows.h"

namespace halvor::vx {

/// Solves for the picture u that lowers
///     1/2 sum over frames and pixels of weight * (A u - frame)^2 + strength * sum over neighbours of phi(D u),
/// with the frames' imaging models A and phi(t) a square up to a bend and linear beyond (Huber): lagged
/// diffusivity outside, conjugate gradients inside. Eight neighbours, diagonal ones by the root of 1/2.
///
/// Values are in deviations of the noise. Threads share stretches of the picture's rows, and each pixel takes its
/// sums in the same order from whichever thread, so that results do not depend on their number. All memory is
/// allocated by the constructor.
class MotionSolver
{
public:
    /// @param frame     size of the frames
    /// @param capacity  most frames of a solve
    MotionSolver(const cv::Size& frame, int capacity);

    /// @param sigma  deviation of the point spread in picture pixels
    void setPsfSigma(double sigma) { table_ = TapTable(sigma); }
    const TapTable& table() const { return table_; }
    cv::Size pictureSize() const { return size_; }

    /// The imaging models of a solve's frames, for the caller to fill.
    FrameTaps& frame(int index) { return frames_[static_cast<std::size_t>(index)]; }

    /// Sets the estimate to a frame, enlarged by bicubic interpolation.
    void start(const cv::Mat_<float>& frame);
    /// Improves the estimate by the frames' first `count`.
    void solve(int count, float strength);

    /// The estimate with its border; rows go on behind the picture.
    const cv::Mat_<float>& estimate() const { return picture_; }
    /// Sum over the first `count` frames of the weight with which they see each frame pixel of the reference: how
    /// many frames count there, 1 for one that counts fully. Of the size of a frame.
    void coverage(int count, cv::Mat_<float>& out);

private:
    struct Worker
    {
        explicit Worker(const LaneLayout& layout);

        LineBuffer lines;
        std::vector<float> columns;  // a row in the picture's own order
        std::vector<float> lanes;
    };

    template <typename Visit>
    void forEachBand(Visit visit);
    void linearise(int count, float strength);
    void multiply(int count);
    void finishRows(Worker& worker, const RowRange& range, const LaneImage& image, bool isResidual);
    void toLanes(Worker& worker, const float* row, float* lanes) const;
    void takeEstimate();
    WeightRow weights(int y);

    cv::Size frameSize_;
    cv::Size size_;
    LaneLayout layout_;
    TapTable table_;
    std::vector<FrameTaps> frames_;
    cv::Mat_<float> picture_;    // the estimate
    cv::Mat_<float> direction_;  // of conjugate gradients
    cv::Mat_<float> product_;    // of the frames' models
    LaneImage u_;
    LaneImage right_;
    LaneImage below_;
    LaneImage belowLeft_;
    LaneImage belowRight_;
    LaneImage r_;
    LaneImage s_;
    LaneImage q_;
    RowSums<double> sums_;
    std::vector<Worker> workers_;
};

}  // namespace halvor::vx
