// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <utility>
#include <vector>

#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/input/Spool.h"
#include "apps/vxkit/terminal/Failure.h"

// Cameras put the raw image of a radiometric picture into application segments of a JPEG file (ITU-T T.81, B.2.4.6).
// A segment holds at most 64 KiB, so that the raw image is cut into a chain: every segment of it begins with the
// same name, which a zero byte ends, and with bytes that number it.
namespace vxapp {

namespace {

using namespace std::string_view_literals;

constexpr unsigned char applicationMarker = 0xE1;  // APP1
constexpr std::size_t longestName = 32;
constexpr std::size_t longestNumbering = 8;
constexpr std::size_t mostChains = 64;
constexpr std::size_t mostSegments = 4096;  // of 64 KiB each
constexpr int mostTries = 64;               // of a file full of what looks like the start of an image

struct Chain
{
    std::string name;  // with its zero byte
    std::vector<std::string> segments;
};

// The name at a segment's start, with its zero byte; empty if there is none.
std::string_view nameOf(std::string_view segment)
{
    const std::size_t end = segment.find('\0');
    if (end == 0 || end >= longestName)
        return {};
    const bool isText = std::all_of(segment.begin(), segment.begin() + static_cast<std::ptrdiff_t>(end),
                                    [](unsigned char c) { return std::isprint(c) != 0; });
    return isText ? segment.substr(0, end + 1) : std::string_view();
}

// Exif data have a TIFF header but no raw image.
void addSegment(std::vector<Chain>& chains, std::string_view segment)
{
    const std::string_view name = nameOf(segment);
    if (name.empty() || name == "Exif\0"sv)
        return;
    auto chain = std::find_if(chains.begin(), chains.end(), [&](const Chain& c) { return c.name == name; });
    if (chain == chains.end())
        chain = chains.insert(chains.end(), {std::string(name), {}});
    chain->segments.emplace_back(segment.substr(name.size()));
}

// The application segments by their names, in their order, up to the picture itself.
std::vector<Chain> chainsOf(const std::string& path)
{
    std::uint64_t fileBytes = 0;
    std::ifstream file = openForReading(path, fileBytes);
    std::vector<Chain> chains;
    std::array<char, 4> head{};
    std::string segment;
    std::size_t segments = 0;
    for (std::uint64_t place = 2; readBytes(file, place, head.data(), head.size()) && head[0] == '\xFF';) {
        const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(head.at(i)); };
        constexpr unsigned char startOfScan = 0xDA;
        const std::size_t length = static_cast<std::size_t>(byte(2)) << 8U | byte(3);
        if (byte(1) == startOfScan || length < 2)
            break;
        segment.resize(length - 2);
        if (!readBytes(file, place + 4, segment.data(), segment.size()))
            break;
        place += 2 + length;
        if (byte(1) != applicationMarker)
            continue;
        addSegment(chains, segment);
        if (++segments > mostSegments || chains.size() > mostChains)
            throw UsageError(path + ": more than " + std::to_string(mostSegments) +
                             " application segments, or " + std::to_string(mostChains) +
                             " names of them; expected a radiometric JPEG picture");
    }
    return chains;
}

// Length of the numbering at the start of each segment: up to the byte that counts them, and with the byte behind
// it if that tells the last number in all of them. Nothing if no byte counts.
std::size_t numberingOf(const std::vector<std::string>& segments)
{
    const auto holds = [&](std::size_t place, auto expected) {
        for (std::size_t i = 0; i < segments.size(); ++i)
            if (segments[i].size() <= place ||
                static_cast<unsigned char>(segments[i][place]) != static_cast<unsigned char>(expected(i)))
                return false;
        return true;
    };
    for (std::size_t place = 0; place < longestNumbering; ++place)
        for (const std::size_t first : {0U, 1U})
            if (holds(place, [first](std::size_t i) { return i + first; })) {
                const std::size_t last = segments.size() - 1 + first;
                return holds(place + 1, [last](std::size_t) { return last; }) ? place + 2 : place + 1;
            }
    return 0;
}

std::string joined(const Chain& chain)
{
    const std::size_t numbering = chain.segments.size() > 1 ? numberingOf(chain.segments) : 0;
    std::string bytes;
    for (const std::string_view segment : chain.segments)
        bytes += segment.substr(std::min(numbering, segment.size()));
    return bytes;
}

// Images of one channel inside the bytes, by the first bytes of PNG and TIFF.
// @param tries  how many of them may still be opened
std::unique_ptr<FrameFile> imageInside(const std::string& path, const std::string& bytes, int& tries)
{
    constexpr std::array starts{"\x89PNG\r\n\x1a\n"sv, "II*\0"sv, "MM\0*"sv};
    for (const std::string_view start : starts)
        for (std::size_t place = bytes.find(start); place != std::string::npos && tries > 0;
             place = bytes.find(start, place + 1), --tries) {
            auto spool = std::make_unique<Spool>();
            spool->append(std::string_view(bytes).substr(place));
            try {
                std::unique_ptr<FrameFile> file = openSpooled(
                    path, std::move(spool),
                    [start](const std::string& name) { return formatStartingWith(start)->open(name, {}); });
                if (file->sampleOf(file->read(0)) != SampleType::u8)
                    return file;
            } catch (const UsageError&) {  // a picture in colours, or other bytes by chance
            }
        }
    return nullptr;
}

class JpegFile : public FrameFile
{
public:
    JpegFile(std::unique_ptr<FrameFile> image, bool isSwapped)
        : image_(std::move(image)), isSwapped_(isSwapped)
    {}

    int frameCount() const override { return 1; }
    std::optional<FrameShape> shapeOfAll() const override { return std::nullopt; }
    SampleType sampleOf(const cv::Mat& frame) const override { return image_->sampleOf(frame); }
    cv::Mat read(int index) override
    {
        cv::Mat frame = image_->read(index);
        if (!isSwapped_)
            return frame;
        const SampleType samples = image_->sampleOf(frame);
        const std::string bytes = encodeSamples(frame, samples, std::endian::little);
        return decodeSamples(bytes, frame.size(), samples, std::endian::big);
    }

private:
    std::unique_ptr<FrameFile> image_;
    bool isSwapped_;
};

}  // namespace

std::unique_ptr<FrameFile> openJpegFile(const std::string& path, const FileHints& hints)
{
    // PNG prescribes big-endian samples, and some cameras write little-endian ones all the same.
    const bool isSwapped = hints.order == std::endian::little;
    int tries = mostTries;
    for (const Chain& chain : chainsOf(path))
        if (std::unique_ptr<FrameFile> image = imageInside(path, joined(chain), tries))
            return std::make_unique<JpegFile>(std::move(image), isSwapped);
    throw UsageError(
        path +
        ": a JPEG picture without a raw image; expected one whose application segments hold an image "
        "of 16 bits as PNG or TIFF");
}

}  // namespace vxapp
