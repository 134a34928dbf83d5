// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/FrameSpool.h"

#include <cstdint>

namespace vxapp {

void FrameSpool::add(const cv::Mat& frame)
{
    const cv::Mat gapless = frame.isContinuous() ? frame : frame.clone();
    file_.append({gapless.ptr<char>(), gapless.total() * gapless.elemSize()});
    ++count_;
}

cv::Mat FrameSpool::read(int index) const
{
    cv::Mat frame(size_, type_);
    const std::size_t bytes = frame.total() * frame.elemSize();
    file_.read(static_cast<std::uint64_t>(index) * bytes, {frame.ptr<char>(), bytes});
    return frame;
}

}  // namespace vxapp
