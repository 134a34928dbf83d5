// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/FrameSpool.h"

#include <unistd.h>

#include <system_error>

#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

FrameSpool::FrameSpool(const std::filesystem::path& output, cv::Size size, int type)
    : output_(output.string()), size_(size), type_(type)
{
    std::string hidden(".");
    hidden += output.filename().string() + ".frames-" + std::to_string(::getpid());
    const std::filesystem::path name = output.parent_path() / hidden;
    file_.open(name, std::ios::binary | std::ios::in | std::ios::out | std::ios::trunc);
    std::error_code ignored;
    std::filesystem::remove(name, ignored);
    require(file_.is_open());
}

void FrameSpool::add(const cv::Mat& frame)
{
    for (int y = 0; y < frame.rows; ++y)
        file_.write(frame.ptr<char>(y),
                    static_cast<std::streamsize>(static_cast<std::size_t>(frame.cols) * frame.elemSize()));
    require(file_.good());
    ++count_;
}

cv::Mat FrameSpool::read(int index)
{
    cv::Mat frame(size_, type_);
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
