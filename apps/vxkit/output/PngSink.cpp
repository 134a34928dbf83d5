// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include "apps/vxkit/output/Output.h"
#include "apps/vxkit/output/StreamSink.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

class PngSink : public StreamSink
{
public:
    explicit PngSink(const SinkRequest& request) : StreamSink(request), path_(request.options.path)
    {
        if (request.names.size() == 1 && shape().frames > 1)
            throw UsageError(path_ + ": a PNG file holds one frame; expected a format for several");
    }

private:
    std::string encode(const cv::Mat& frame, int /*index*/) const override
    {
        const std::vector<unsigned char> bytes = encodePng(path_, frame);
        return {bytes.begin(), bytes.end()};
    }

    std::string kindText() const override
    {
        return std::to_string(8 * factsOf(shape().samples).bytes) + " bits";
    }

    std::string path_;
};

}  // namespace

std::unique_ptr<FrameSink> openPngSink(const SinkRequest& request)
{
    return std::make_unique<PngSink>(request);
}

}  // namespace vxapp
