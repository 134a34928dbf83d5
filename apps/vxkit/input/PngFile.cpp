// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <new>
#include <opencv2/imgcodecs.hpp>
#include <utility>

#include "apps/vxkit/formats/PngChunks.h"
#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/QuietStream.h"

namespace vxapp {

namespace {

class PngFile : public FrameFile
{
public:
    explicit PngFile(std::string path) : path_(std::move(path)) {}

    int frameCount() const override { return 1; }
    std::optional<FrameShape> shapeOfAll() const override { return std::nullopt; }

    cv::Mat read(int /*index*/) override
    {
        requireHeldSize();
        std::uint64_t bytes = 0;
        std::ifstream file = openForReading(path_, bytes);
        cv::Mat frame;
        try {
            const QuietStandardError quiet;
            if (hasWholeChunks(file))
                frame = cv::imread(path_, cv::IMREAD_UNCHANGED);
        } catch (const cv::Exception& error) {  // told below
            if (error.code == cv::Error::StsNoMem)
                throw std::bad_alloc();
        }
        if (frame.empty())
            throw UsageError(path_ + ": can't be decoded; expected an undamaged, complete image");
        requireFrameType(path_, frame.type());
        return frame;
    }

private:
    // The image library takes memory for what the header tells before it looks at the rest.
    void requireHeldSize() const
    {
        constexpr std::size_t place = 16;  // of width and height, as big-endian words
        std::uint64_t fileBytes = 0;
        std::ifstream file = openForReading(path_, fileBytes);
        std::array<char, 8> sides{};
        if (!readBytes(file, place, sides.data(), sides.size()))
            return;
        const auto word = [&sides](std::size_t at) {
            std::int64_t value = 0;
            for (std::size_t i = at; i < at + 4; ++i)
                value = value << 8 | static_cast<unsigned char>(sides.at(i));
            return value;
        };
        requireFrameSize(path_, word(0), word(4));
        requirePlausibleSize(path_, static_cast<std::uint64_t>(word(0) * word(4)) * 2, fileBytes);
    }

    std::string path_;
};

}  // namespace

std::unique_ptr<FrameFile> openPngFile(const std::string& path, const FileHints& /*hints*/)
{
    return std::make_unique<PngFile>(path);
}

}  // namespace vxapp
