// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/FrameSpool.h"

#include <system_error>

#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

FrameSpool::FrameSpool(const SafeFile& output, cv::Size size) : output_(output.path().string()), size_(size)
{
    const std::string name = output.temporaryPath().string() + ".frames";
    file_.open(name, std::ios::binary | std::ios::in | std::ios::out | std::ios::trunc);
    std::error_code ignored;
    std::filesystem::remove(name, ignored);
    require(file_.is_open());
}

void FrameSpool::add(const cv::Mat_<std::uint16_t>& frame)
{
    for (int y = 0; y < frame.rows; ++y)
        file_.write(frame.ptr<char>(y), static_cast<std::streamsize>(frame.cols * frame.elemSize()));
    require(file_.good());
    ++count_;
}

cv::Mat_<std::uint16_t> FrameSpool::read(int index)
{
    cv::Mat_<std::uint16_t> frame(size_);
    const auto bytes = static_cast<std::streamsize>(frame.total() * frame.elemSize());
    file_.seekg(index * bytes);
    file_.read(frame.ptr<char>(), bytes);
    require(file_.good());
    return frame;
}

void FrameSpool::require(bool isDone) const
{
    if (!isDone)
        throw UsageError(output_ + " can't be written: no room to set its frames aside beside it");
}

}  // namespace vxapp
