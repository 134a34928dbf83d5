// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <opencv2/core/mat.hpp>

#include "apps/files/ScratchFile.h"

namespace vxapp {

/// Frames of one size and type, set aside on disk until the last of them is known. Failures are WriteErrors that name
/// the output.
class FrameSpool
{
public:
    /// @param type  OpenCV's
    FrameSpool(const std::filesystem::path& output, cv::Size size, int type)
        : size_(size), type_(type), file_(output)
    {}

    void add(const cv::Mat& frame);
    int count() const { return count_; }
    cv::Size size() const { return size_; }
    cv::Mat read(int index) const;

private:
    cv::Size size_;
    int type_;
    vxfiles::ScratchFile file_;
    int count_ = 0;
};

}  // namespace vxapp
