// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/StreamSink.h"

namespace vxapp {

namespace {

// "u2" of NumPy for u16.
std::string kindOf(SampleType samples)
{
    const SampleFacts& facts = factsOf(samples);
    const char letter = facts.name.front() == 's' ? 'i' : facts.name.front();
    return letter + std::to_string(facts.bytes);
}

std::string headerOf(const SequenceShape& shape)
{
    constexpr std::size_t alignment = 64;
    constexpr std::size_t start = 10;
    const std::string frames = shape.frames > 1 ? std::to_string(shape.frames) + ", " : "";
    std::string text = "{'descr': '" + std::string(shape.samples == SampleType::u8 ? "|" : "<") +
                       kindOf(shape.samples) + "', 'fortran_order': False, 'shape': (" + frames +
                       std::to_string(shape.size.height) + ", " + std::to_string(shape.size.width) + "), }";
    const std::size_t unaligned = (start + text.size() + 1) % alignment;
    text.append(unaligned == 0 ? 0 : alignment - unaligned, ' ');
    text.push_back('\n');
    const std::string lengthBytes{static_cast<char>(text.size() & 0xFFU),
                                  static_cast<char>(text.size() >> 8U)};
    return std::string("\x93NUMPY\x01\0", 8) + lengthBytes + text;
}

class NpySink : public StreamSink
{
public:
    using StreamSink::StreamSink;

private:
    std::string encode(const cv::Mat& frame, int index) const override
    {
        return (index == 0 ? headerOf(shape()) : "") +
               encodeSamples(frame, shape().samples, std::endian::little);
    }
};

}  // namespace

std::unique_ptr<FrameSink> openNpySink(const SinkRequest& request)
{
    return std::make_unique<NpySink>(request);
}

}  // namespace vxapp
