// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <opencv2/core/mat.hpp>
#include <string>

#include "apps/vxkit/output/SafeWrite.h"

namespace vxapp {

/// Frames of one size, set aside on disk until the last of them is known: in a file beside the output that has
/// no name any more, so that nothing is left whatever happens. Failures are UsageErrors that name the output.
class FrameSpool
{
public:
    FrameSpool(const SafeFile& output, cv::Size size);

    void add(const cv::Mat_<std::uint16_t>& frame);
    int count() const { return count_; }
    cv::Mat_<std::uint16_t> read(int index);

private:
    void require(bool isDone) const;

    std::string output_;
    cv::Size size_;
    std::fstream file_;
    int count_ = 0;
};

}  // namespace vxapp
