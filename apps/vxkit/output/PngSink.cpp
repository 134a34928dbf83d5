// SPDX-License-Identifier: Apache-2.0
#include <opencv2/imgcodecs.hpp>
#include <vector>

#include "apps/vxkit/output/FrameSinkParts.h"
#include "apps/vxkit/output/SafeWrite.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

class PngSink : public FrameSink
{
public:
    explicit PngSink(const SinkRequest& request) : shape_(request.shape)
    {
        for (const std::string& name : request.names)
            files_.push_back(std::make_unique<SafeFile>(name, request.options.force));
    }

    void add(const cv::Mat& frame) override
    {
        const SafeFile& file = *files_.at(added_++);
        bool isWritten = false;
        try {
            isWritten = cv::imwrite(file.temporaryPath().string(), frame);
        } catch (const cv::Exception&) {  // told below
        }
        if (!isWritten)
            throw UsageError(file.path().string() + " can't be written");
    }

    std::string finish() override
    {
        for (const std::unique_ptr<SafeFile>& file : files_)
            file->commit();
        std::string names = files_.front()->path().string();
        if (files_.size() > 1)
            names += " to " + files_.back()->path().filename().string();
        return names + " (" + framesText(shape_) + ", " + std::to_string(8 * factsOf(shape_.samples).bytes) +
               " bits)";
    }

private:
    SequenceShape shape_;
    std::vector<std::unique_ptr<SafeFile>> files_;
    std::size_t added_ = 0;
};

}  // namespace

std::unique_ptr<FrameSink> openPngSink(const SinkRequest& request)
{
    return std::make_unique<PngSink>(request);
}

}  // namespace vxapp
