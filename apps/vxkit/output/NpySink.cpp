// SPDX-License-Identifier: Apache-2.0
#include <fstream>

#include "apps/vxkit/output/FrameSinkParts.h"
#include "apps/vxkit/output/SafeWrite.h"
#include "apps/vxkit/terminal/Failure.h"

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
    const std::string frames = shape.frames > 1 ? std::to_string(shape.frames) + ", " : "";
    std::string text = "{'descr': '" + std::string(shape.samples == SampleType::u8 ? "|" : "<") +
                       kindOf(shape.samples) + "', 'fortran_order': False, 'shape': (" + frames +
                       std::to_string(shape.size.height) + ", " + std::to_string(shape.size.width) + "), }";
    const std::size_t start = 10;
    const std::size_t unaligned = (start + text.size() + 1) % alignment;
    text.append(unaligned == 0 ? 0 : alignment - unaligned, ' ');
    text.push_back('\n');
    const std::string lengthBytes{static_cast<char>(text.size() & 0xFFU),
                                  static_cast<char>(text.size() >> 8U)};
    return std::string("\x93NUMPY\x01\0", 8) + lengthBytes + text;
}

class NpySink : public FrameSink
{
public:
    explicit NpySink(const SinkRequest& request)
        : shape_(request.shape),
          file_(request.options.path, request.options.force),
          stream_(file_.temporaryPath(), std::ios::binary)
    {
        write(headerOf(shape_));
    }

    void add(const cv::Mat& frame) override
    {
        write(encodeSamples(frame, shape_.samples, std::endian::little));
    }

    std::string finish() override
    {
        stream_.close();
        requireWritten();
        file_.commit();
        return file_.path().string() + " (" + framesText(shape_) + ", " +
               std::string(factsOf(shape_.samples).text) + ")";
    }

private:
    void write(const std::string& bytes)
    {
        stream_.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        requireWritten();
    }

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

std::unique_ptr<FrameSink> openNpySink(const SinkRequest& request)
{
    return std::make_unique<NpySink>(request);
}

}  // namespace vxapp
