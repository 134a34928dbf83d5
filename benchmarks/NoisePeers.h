// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

// What a user would otherwise build from OpenCV for the work of the three noise blocks, on 16-bit frames.
namespace vxbench {

/// Temporal noise: a running average of the frames.
class RunningAverage
{
public:
    void process(const cv::Mat_<unsigned short>& src, cv::Mat_<unsigned short>& dst)
    {
        if (average_.empty())
            src.convertTo(average_, CV_32F);
        cv::accumulateWeighted(src, average_, 0.4);
        average_.convertTo(dst, CV_16U);
    }

private:
    cv::Mat average_;
};

/// Static pattern: what a column's mean has over its neighbours', averaged over time, is taken off the
/// column.
class ColumnDestriping
{
public:
    void process(const cv::Mat_<unsigned short>& src, cv::Mat_<unsigned short>& dst)
    {
        cv::reduce(src, mean_, 0, cv::REDUCE_AVG, CV_32F);
        cv::blur(mean_, smooth_, cv::Size(9, 1));
        cv::subtract(mean_, smooth_, stripes_);
        if (learned_.empty())
            stripes_.copyTo(learned_);
        cv::accumulateWeighted(stripes_, learned_, 0.05);
        cv::repeat(learned_, src.rows, 1, offsets_);
        cv::subtract(src, offsets_, dst, cv::noArray(), CV_16U);
    }

private:
    cv::Mat mean_, smooth_, stripes_, learned_, offsets_;
};

/// Spatial noise: a bilateral filter of the same reach.
class Bilateral
{
public:
    void process(const cv::Mat_<unsigned short>& src, cv::Mat_<unsigned short>& dst)
    {
        src.convertTo(float_, CV_32F);
        cv::bilateralFilter(float_, filtered_, 3, 20.0, 1.0);
        filtered_.convertTo(dst, CV_16U);
    }

private:
    cv::Mat float_, filtered_;
};

}  // namespace vxbench
