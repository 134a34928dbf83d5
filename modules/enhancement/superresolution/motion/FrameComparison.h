// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/base/PointF.h"
#include "core/imaging/SymmetricFilter.h"
#include "enhancement/superresolution/motion/FrameMotion.h"
#include "enhancement/superresolution/motion/FrameTaps.h"
#include "enhancement/superresolution/motion/MotionSolver.h"

namespace halvor::vx {

/// Motion and weight of a frame at places 8 pixels apart.
struct MotionSample
{
    PointF motion;
    float weight;
};

/// What came of comparing a frame with the reference.
struct ComparedFrame
{
    bool fits = false;          ///< a motion was found
    PointF shift{0.0F, 0.0F};   ///< mean motion of the pixels that count, in pixels
    float largestLocal = 0.0F;  ///< largest distance of such a pixel's motion from it
    double weight = 0.0;        ///< sum over the pixels
    double missed = 0.0;        ///< weighted sum of squares of what the start does not predict of the frame
    std::vector<MotionSample> samples;
};

/// Finds a frame's motion against the reference, and by how much each of its pixels counts: where the smoothed
/// frame and the moved reference differ by more than noise, the registration is wrong or something moved.
///
/// The weights come from smoothed images, not from what the start leaves of the frame: that is just the detail
/// which the frame has to give. Runs on one thread; all memory is allocated by the constructor.
class FrameComparison
{
public:
    explicit FrameComparison(const cv::Size& size);

    /// @param frame    in deviations of the noise
    /// @param defects  not 0 where a pixel does not count
    /// @param start    holds the single-frame picture
    /// @param taps     takes the frame's model, weights, and values without their slowly varying offset
    /// @param result   takes the rest
    void run(const MotionReference& reference, const cv::Mat_<float>& frame,
             const cv::Mat_<unsigned char>& defects, const MotionSolver& start, FrameTaps& taps,
             ComparedFrame& result);

private:
    void measureExcess();
    void weigh(const cv::Mat_<unsigned char>& defects);
    void takeOffsets(const cv::Mat_<float>& frame, const MotionSolver& start);
    float errorLimit();
    void sumUp(ComparedFrame& result) const;

    cv::Size size_;
    FrameMotion motion_;
    SymmetricFilter detailFilter_;
    SymmetricFilter slopeFilter_;
    SymmetricFilter excessFilter_;
    SymmetricFilter offsetFilter_;
    cv::Mat_<float> variance_;  // of noise and registration errors
    cv::Mat_<float> weight_;
    cv::Mat_<float> value_;
    cv::Mat_<float> missed_;
    // Results of passes, each used by the next one.
    cv::Mat_<float> error_;
    cv::Mat_<float> squares_;
    cv::Mat_<float> blurred_;
    cv::Mat_<float> detail_;
    cv::Mat_<float> mask_;
    std::vector<float> sorted_;
};

}  // namespace halvor::vx
