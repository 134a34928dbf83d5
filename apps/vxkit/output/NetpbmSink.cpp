// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/StreamSink.h"

namespace vxapp {

namespace {

class PgmSink : public StreamSink
{
public:
    using StreamSink::StreamSink;

private:
    std::string encode(const cv::Mat& frame, int /*index*/) const override
    {
        return "P5\n" + std::to_string(frame.cols) + " " + std::to_string(frame.rows) +
               (shape().samples == SampleType::u8 ? "\n255\n" : "\n65535\n") +
               encodeSamples(frame, shape().samples, std::endian::big);
    }
};

class PfmSink : public StreamSink
{
public:
    using StreamSink::StreamSink;

private:
    std::string encode(const cv::Mat& frame, int /*index*/) const override
    {
        std::string bytes =
            "Pf\n" + std::to_string(frame.cols) + " " + std::to_string(frame.rows) + "\n-1.0\n";
        for (int y = frame.rows - 1; y >= 0; --y)  // the bottom row comes first
            bytes += encodeSamples(frame.row(y), SampleType::f32, std::endian::little);
        return bytes;
    }
};

}  // namespace

std::unique_ptr<FrameSink> openPgmSink(const SinkRequest& request)
{
    return std::make_unique<PgmSink>(request);
}

std::unique_ptr<FrameSink> openPfmSink(const SinkRequest& request)
{
    return std::make_unique<PfmSink>(request);
}

}  // namespace vxapp
