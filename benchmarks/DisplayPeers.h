// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "NoisePeers.h"

// What a user would otherwise build from OpenCV for the work of the equaliser, of peaking and of the whole
// chain, on 16-bit frames.
namespace vxbench {

/// Contrast: equalisation with a limit, on 16 bits. One tile, for the equaliser has one curve.
class Equalising
{
public:
    void process(const cv::Mat_<unsigned short>& src, cv::Mat_<unsigned short>& dst)
    {
        clahe_->apply(src, dst);
    }

private:
    cv::Ptr<cv::CLAHE> clahe_ = cv::createCLAHE(4.0, cv::Size(1, 1));
};

/// Sharpness: an unsharp mask.
class Sharpening
{
public:
    void process(const cv::Mat_<unsigned short>& src, cv::Mat_<unsigned short>& dst)
    {
        cv::GaussianBlur(src, blurred_, cv::Size(3, 3), 0.8);
        cv::addWeighted(src, 1.5, blurred_, -0.5, 0.0, dst);
    }

private:
    cv::Mat blurred_;
};

/// The five steps in the order of the chain.
class Pipeline
{
public:
    void process(const cv::Mat_<unsigned short>& src, cv::Mat_<unsigned short>& dst)
    {
        average_.process(src, averaged_);
        destriping_.process(averaged_, destriped_);
        bilateral_.process(destriped_, smooth_);
        equalising_.process(smooth_, equalised_);
        sharpening_.process(equalised_, dst);
    }

private:
    RunningAverage average_;
    ColumnDestriping destriping_;
    Bilateral bilateral_;
    Equalising equalising_;
    Sharpening sharpening_;
    cv::Mat_<unsigned short> averaged_, destriped_, smooth_, equalised_;
};

}  // namespace vxbench
