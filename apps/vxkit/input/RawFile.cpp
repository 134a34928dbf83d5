// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/input/Spool.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

std::uint64_t pixelBytes(const RawLayout& layout)
{
    return static_cast<std::uint64_t>(layout.size.width) * static_cast<std::uint64_t>(layout.size.height) *
           factsOf(layout.samples).bytes;
}

std::string sizeText(cv::Size size)
{
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

class RawFile : public FrameFile
{
public:
    RawFile(std::string path, const RawLayout& layout);

    int frameCount() const override { return frameCount_; }
    std::optional<FrameShape> shapeOfAll() const override
    {
        return FrameShape{layout_.size, factsOf(layout_.samples).storage, layout_.samples};
    }
    cv::Mat read(int index) override;

private:
    std::string path_;
    RawLayout layout_;
    int frameCount_ = 0;
};

RawFile::RawFile(std::string path, const RawLayout& layout) : path_(std::move(path)), layout_(layout)
{
    requireFrameSize(path_, layout_.size.width, layout_.size.height);
    std::uint64_t bytes = 0;
    openForReading(path_, bytes);
    if (bytes <= layout_.header)
        throw UsageError(path_ + ": " + std::to_string(bytes) +
                         " bytes; expected more than the --header of " + std::to_string(layout_.header));
    bytes -= layout_.header;
    const std::uint64_t perFrame = pixelBytes(layout_) + layout_.frameHeader;
    if (bytes % perFrame != 0)
        throw UsageError(path_ + ": " + std::to_string(bytes) + " bytes" +
                         (layout_.header > 0 ? " behind the header" : "") + " are not a whole number of " +
                         sizeText(layout_.size) + " frames of " +
                         std::to_string(8 * factsOf(layout_.samples).bytes) + " bits (" +
                         std::to_string(perFrame) +
                         " bytes each); expected another --size, --dtype, --header or --frame-header");
    frameCount_ = checkedFrameCount(path_, bytes / perFrame);
}

cv::Mat RawFile::read(int index)
{
    std::uint64_t bytes = 0;
    std::ifstream file = openForReading(path_, bytes);
    std::vector<char> samples(pixelBytes(layout_));
    const std::uint64_t place = layout_.header + layout_.frameHeader +
                                static_cast<std::uint64_t>(index) * (samples.size() + layout_.frameHeader);
    if (!readBytes(file, place, samples.data(), samples.size()))
        throw UsageError(path_ + ": frame " + std::to_string(index) + " can't be read");
    return decodeSamples(samples, layout_.size, layout_.samples, layout_.order);
}

}  // namespace

std::unique_ptr<FrameFile> openRawFile(const std::string& path, const RawLayout& layout)
{
    if (isReadOnce(path))
        return openReadOnce(path, [&layout](const std::string& name) { return openRawFile(name, layout); });
    return std::make_unique<RawFile>(path, layout);
}

}  // namespace vxapp
