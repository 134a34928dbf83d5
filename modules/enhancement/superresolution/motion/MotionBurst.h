// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

#include "enhancement/superresolution/LocalMotionReport.h"
#include "enhancement/superresolution/motion/FrameComparison.h"
#include "enhancement/superresolution/motion/FrameMotion.h"
#include "enhancement/superresolution/motion/MotionSolver.h"

namespace halvor::vx {

/// A frame of a window, its defects repaired, and where they were.
struct MotionFrame
{
    cv::Mat_<float> values;
    cv::Mat_<unsigned char> defects;
};

/// Makes a picture of twice the size of a burst whose parts move differently, or of one frame. All pixel memory is
/// allocated by the constructor; results do not depend on the number of threads.
class MotionBurst
{
public:
    /// @param capacity  most frames of a burst
    MotionBurst(const cv::Size& size, int capacity);

    void setPsfSigma(float sigma) { solver_.setPsfSigma(static_cast<double>(sigma)); }

    /// @param frames     one or more; the first `count` are used
    /// @param reference  one of them, on whose grid the picture lies
    /// @param out        takes the picture
    void run(const std::vector<MotionFrame>& frames, int count, int reference, cv::Mat_<float>& out);

    /// Of the last picture.
    const LocalMotionReport& report() const { return report_; }
    /// Of the last picture: how many frames count at each pixel of the reference.
    const cv::Mat_<float>& effectiveFrames() const { return coverage_; }

private:
    void normalise(const std::vector<MotionFrame>& frames, int count, int reference);
    void placeReference(const MotionFrame& reference);
    void compareOthers(const std::vector<MotionFrame>& frames, int count, int reference);
    double samplingPositions() const;
    void fillReport(int count, int reference);
    void judge(double weight, double missed);
    void write(cv::Mat_<float>& out) const;

    cv::Size size_;
    std::vector<cv::Mat_<float>> normalised_;
    cv::Mat_<float> still_;
    MotionReference reference_;
    MotionSolver solver_;
    std::vector<FrameComparison> comparisons_;  // one for each worker
    std::vector<ComparedFrame> compared_;       // by frame
    std::vector<std::vector<float>> sorted_;    // one for each worker
    std::vector<float> noises_;
    cv::Mat_<float> single_;  // the single frame's picture with its border
    cv::Mat_<float> weight_;
    cv::Mat_<float> coverage_;
    float noise_ = 1.0F;
    float centre_ = 0.0F;
    LocalMotionReport report_;
};

}  // namespace halvor::vx
