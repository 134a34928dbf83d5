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
        const SampleFacts& facts = factsOf(shape().samples);
        std::string text = std::to_string(8 * facts.bytes) +
                           (order_ == std::endian::little ? "-bit little-endian" : "-bit big-endian");
        if (shape().samples != SampleType::u16)  // what a reader takes a headerless file for
            text += ", to be read with --dtype " + std::string(facts.name);
        return text;
    }

    std::endian order_;
};

}  // namespace

std::unique_ptr<FrameSink> openRawSink(const SinkRequest& request)
{
    return std::make_unique<RawSink>(request);
}

}  // namespace vxapp
