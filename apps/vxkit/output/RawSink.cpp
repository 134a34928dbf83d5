// SPDX-License-Identifier: Apache-2.0
#include <fstream>

#include "apps/vxkit/output/FrameSinkParts.h"
#include "apps/vxkit/output/SafeWrite.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

class RawSink : public FrameSink
{
public:
    explicit RawSink(const SinkRequest& request)
        : shape_(request.shape),
          order_(request.options.order),
          file_(request.options.path, request.options.force),
          stream_(file_.temporaryPath(), std::ios::binary)
    {}

    void add(const cv::Mat& frame) override
    {
        const std::string bytes = encodeSamples(frame, shape_.samples, order_);
        stream_.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        requireWritten();
    }

    std::string finish() override
    {
        stream_.close();
        requireWritten();
        file_.commit();
        return file_.path().string() + " (" + framesText(shape_) + ", " +
               std::to_string(8 * factsOf(shape_.samples).bytes) +
               (order_ == std::endian::little ? "-bit little-endian)" : "-bit big-endian)");
    }

private:
    void requireWritten() const
    {
        if (!stream_.good())
            throw UsageError(file_.path().string() + " can't be written");
    }

    SequenceShape shape_;
    std::endian order_;
    SafeFile file_;
    std::ofstream stream_;
};

}  // namespace

std::unique_ptr<FrameSink> openRawSink(const SinkRequest& request)
{
    return std::make_unique<RawSink>(request);
}

}  // namespace vxapp
