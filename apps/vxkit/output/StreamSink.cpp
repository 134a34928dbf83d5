// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/StreamSink.h"

#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

StreamSink::StreamSink(const SinkRequest& request) : shape_(request.shape)
{
    for (const std::string& name : request.names)
        files_.push_back(std::make_unique<SafeFile>(name, request.options.force));
}

void StreamSink::add(const cv::Mat& frame)
{
    const auto index = static_cast<std::size_t>(added_);
    const bool isFirstOfItsFile = index == 0 || files_.size() > 1;
    if (isFirstOfItsFile) {
        close();
        stream_.open(files_.at(index)->temporaryPath(), std::ios::binary | std::ios::trunc);
    }
    const std::string bytes = encode(frame, added_++);
    stream_.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!stream_.good())
        throw UsageError(files_.at(isFirstOfItsFile ? index : 0)->path().string() + " can't be written");
}

std::string StreamSink::finish()
{
    close();
    for (const std::unique_ptr<SafeFile>& file : files_)
        file->commit();
    std::string names = files_.front()->path().string();
    if (files_.size() > 1)
        names += " to " + files_.back()->path().filename().string();
    return names + " (" + framesText(shape_) + ", " + kindText() + ")";
}

void StreamSink::close()
{
    if (!stream_.is_open())
        return;
    stream_.close();
    if (!stream_.good())
        throw UsageError(files_.front()->path().string() + " can't be written");
}

}  // namespace vxapp
