// SPDX-License-Identifier: Apache-2.0
#include <fstream>

#include "apps/vxkit/output/FrameSinkParts.h"
#include "apps/vxkit/output/Output.h"
#include "apps/vxkit/output/SafeWrite.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

class RawSink : public FrameSink
{
public:
    explicit RawSink(const SinkRequest& request)
        : shape_(request.shape),
          file_(request.options.path, request.options.force),
          stream_(file_.temporaryPath(), std::ios::binary)
    {}

    void add(const cv::Mat_<std::uint16_t>& frame) override
    {
        appendLittleEndian(stream_, frame);
        requireWritten();
    }

    std::string finish() override
    {
        stream_.close();
        requireWritten();
        file_.commit();
        return file_.path().string() + " (" + framesText(shape_) + ", 16-bit little-endian)";
    }

private:
    void requireWritten() const
    {
        if (!stream_.good())
            throw UsageError(file_.path().string() + " can't be written");
    }

    SequenceShape shape_;
    SafeFile file_;
    std::ofstream stream_;
};

}  // namespace

std::unique_ptr<FrameSink> openRawSink(const SinkRequest& request)
{
    return std::make_unique<RawSink>(request);
}

}  // namespace vxapp
