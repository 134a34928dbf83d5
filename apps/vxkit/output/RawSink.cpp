// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/StreamSink.h"

namespace vxapp {

namespace {

class RawSink : public StreamSink
{
public:
    explicit RawSink(const SinkRequest& request) : StreamSink(request), order_(request.options.order) {}

private:
    std::string encode(const cv::Mat& frame, int /*index*/) const override
    {
        return encodeSamples(frame, shape().samples, order_);
    }

    std::string kindText() const override
    {
        return std::to_string(8 * factsOf(shape().samples).bytes) +
               (order_ == std::endian::little ? "-bit little-endian" : "-bit big-endian");
    }

    std::endian order_;
};

}  // namespace

std::unique_ptr<FrameSink> openRawSink(const SinkRequest& request)
{
    return std::make_unique<RawSink>(request);
}

}  // namespace vxapp
