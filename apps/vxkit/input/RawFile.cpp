// SPDX-License-Identifier: Apache-2.0
#include <bit>
#include <limits>
#include <vector>

#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

std::uint64_t frameBytes(cv::Size size)
{
    return static_cast<std::uint64_t>(size.width) * static_cast<std::uint64_t>(size.height) * 2;
}

std::string sizeText(cv::Size size)
{
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

class RawFile : public FrameFile
{
public:
    RawFile(std::string path, cv::Size size);

    int frameCount() const override { return frameCount_; }
    std::optional<FrameShape> shapeOfAll() const override { return FrameShape{size_, CV_16UC1}; }
    cv::Mat read(int index) override;

private:
    std::string path_;
    cv::Size size_;
    int frameCount_ = 0;
};

RawFile::RawFile(std::string path, cv::Size size) : path_(std::move(path)), size_(size)
{
    std::uint64_t bytes = 0;
    openForReading(path_, bytes);
    const std::uint64_t perFrame = frameBytes(size_);
    if (bytes % perFrame != 0)
        throw UsageError(path_ + ": " + std::to_string(bytes) + " bytes are not a whole number of " +
                         sizeText(size_) + " frames of 16 bits (" + std::to_string(perFrame) +
                         " bytes each); expected another --size");
    const std::uint64_t frames = bytes / perFrame;
    if (frames > static_cast<std::uint64_t>(std::numeric_limits<int>::max()))
        throw UsageError(path_ + ": holds more frames than can be counted; expected another --size");
    frameCount_ = static_cast<int>(frames);
}

cv::Mat RawFile::read(int index)
{
    std::uint64_t bytes = 0;
    std::ifstream file = openForReading(path_, bytes);
    cv::Mat_<std::uint16_t> frame(size_);
    const std::uint64_t perFrame = frameBytes(size_);
    if (!readBytes(file, static_cast<std::uint64_t>(index) * perFrame, frame.ptr<char>(), perFrame))
        throw UsageError(path_ + ": frame " + std::to_string(index) + " can't be read");
    if constexpr (std::endian::native == std::endian::big)
        for (std::uint16_t& count : frame)
            count = static_cast<std::uint16_t>((count >> 8) | (count << 8));
    return frame;
}

}  // namespace

std::unique_ptr<FrameFile> openRawFile(const std::string& path, cv::Size size)
{
    return std::make_unique<RawFile>(path, size);
}

}  // namespace vxapp
