// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <opencv2/core.hpp>
#include <opencv2/superres.hpp>
#include <vector>

#include "benchmarks/LiveEngine.h"

namespace vxbench {

/// Feeds the peer the same frames again and again.
class FrameLoop : public cv::superres::FrameSource
{
public:
    explicit FrameLoop(const std::vector<cv::Mat_<float>>& frames)
    {
        for (const cv::Mat_<float>& frame : frames) {
            cv::Mat gray;
            cv::normalize(frame, gray, 0.0, 255.0, cv::NORM_MINMAX, CV_8U);
            frames_.push_back(gray);
        }
    }
    void nextFrame(cv::OutputArray frame) override
    {
        frames_[next_].copyTo(frame);
        next_ = (next_ + 1) % frames_.size();
    }
    void reset() override { next_ = 0; }

private:
    std::vector<cv::Mat> frames_;
    std::size_t next_ = 0;
};

/// OpenCV's burst super-resolution as it is shipped, but for the enlargement and the window of five frames; like
/// the engines it takes one new frame and gives one image.
inline cv::Ptr<cv::superres::SuperResolution> burstPeer(const cv::Size& size)
{
    cv::Ptr<cv::superres::SuperResolution> peer = cv::superres::createSuperResolution_BTVL1();
    peer->setScale(2);
    peer->setTemporalAreaRadius(windowSize / 2);
    peer->setInput(cv::makePtr<FrameLoop>(framesOf(size)));
    return peer;
}

}  // namespace vxbench
