// SPDX-License-Identifier: Apache-2.0
#include "enhancement/UnsharpMask.h"

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace halvor::vx {

namespace {

// 0 for a depth that is not handled.
double fullScaleOf(int depth)
{
    switch (depth) {
        case CV_8U:
            return 255.0;
        case CV_8S:
            return 127.0;
        case CV_32F:
        case CV_64F:
            return 1.0;
        default:
            return 0.0;
    }
}

}  // namespace

int UnsharpMask::unsharp(cv::Mat& src, cv::Mat& dst, double amount, double sigma, double threshold)
{
    // Ahead of the blur, which throws for some of the depths.
    const double fullScale = fullScaleOf(src.depth());
    if (fullScale == 0.0)
        return -1;
    cv::Mat blurred;
    cv::GaussianBlur(src, blurred, cv::Size(0, 0), sigma, sigma, cv::BORDER_REFLECT_101);
    const cv::Mat detail = src - blurred;
    if (src.channels() > 1) {
        dst = src + amount * detail;
        return 0;
    }
    cv::Mat mask;
    cv::threshold(detail, mask, fullScale * threshold, 1.0, cv::THRESH_BINARY);
    const cv::Mat boost = amount * detail;
    src.copyTo(dst);
    cv::add(src, boost, dst, mask, src.depth());
    return 0;
}

}  // namespace halvor::vx
