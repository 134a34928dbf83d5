// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/StreamSink.h"

namespace vxapp {

StreamSink::StreamSink(const SinkRequest& request) : shape_(request.shape)
{
    const bool force = request.options.force;
    for (const std::string& name : request.names)
        files_.push_back(std::make_unique<vxfiles::OutputFile>(
            name, force, files_.empty() ? nullptr : files_.front()->folder()));
    if (files_.size() > 1)
        list_.emplace(request.options.path, force);
}

void StreamSink::add(const cv::Mat& frame)
{
    vxfiles::OutputFile& file = *files_.at(files_.size() > 1 ? static_cast<std::size_t>(added_) : 0);
    file.append(encode(frame, added_++));
    if (!list_)
        return;
    file.close();
    list_->add(file.path(), file.temporaryPath());
}

std::string StreamSink::finish()
{
    std::vector<vxfiles::OutputFile*> files;
    for (const std::unique_ptr<vxfiles::OutputFile>& file : files_)
        files.push_back(file.get());
    vxfiles::putInPlace(files, list_ ? &list_->file() : nullptr);
    std::string names = files_.front()->path().string();
    if (files_.size() > 1)
        names += " to " + files_.back()->path().filename().string();
    return names + " (" + framesText(shape_) + ", " + kindText() + ")";
}

}  // namespace vxapp
