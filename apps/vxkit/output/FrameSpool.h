// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <fstream>
#include <opencv2/core/mat.hpp>
#include <string>

namespace vxapp {

/// Frames of one size and type, set aside on disk until the last of them is known: in a file beside the output
/// that has no name any more, so that nothing is left whatever happens. Failures are UsageErrors that name the
/// output.
class FrameSpool
{
public:
    /// @param type  OpenCV's
    FrameSpool(const std::filesystem::path& output, cv::Size size, int type);

    void add(const cv::Mat& frame);
    int count() const { return count_; }
    cv::Size size() const { return size_; }
    cv::Mat read(int index);

private:
    void require(bool isDone) const;

    std::string output_;
    cv::Size size_;
    int type_;
    std::fstream file_;
    int count_ = 0;
};

}  // namespace vxapp
