// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <string_view>
#include <vector>

#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

constexpr int largestSide = 1 << 16;

struct PfmHeader
{
    cv::Size size;
    std::endian order;
    std::uint64_t bytes;  // length of the header
};

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Takes the next word off the text, and exactly one blank behind it. Empty if there is none.
std::string_view takeWord(std::string_view& text)
{
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    std::size_t end = 0;
    while (end < text.size() && !isBlank(text[end]))
        ++end;
    if (end == text.size())
        return {};
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(end + 1);
    return word;
}

template <typename T>
bool parseWhole(std::string_view word, T& value)
{
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    return error == std::errc() && end == word.data() + word.size();
}

std::optional<PfmHeader> parseHeader(std::string_view text)
{
    const std::size_t length = text.size();
    PfmHeader header{};
    double scale = 0.0;
    if (takeWord(text) != "Pf" || !parseWhole(takeWord(text), header.size.width) ||
        !parseWhole(takeWord(text), header.size.height) || !parseWhole(takeWord(text), scale))
        return std::nullopt;
    const auto sideFits = [](int side) { return side > 0 && side <= largestSide; };
    if (!sideFits(header.size.width) || !sideFits(header.size.height) || !std::isfinite(scale) ||
        scale == 0.0)
        return std::nullopt;
    // The sign tells the byte order. The magnitude is a note on units that writers leave at 1.
    header.order = scale < 0.0 ? std::endian::little : std::endian::big;
    header.bytes = length - text.size();
    return header;
}

void swapBytes(cv::Mat& image)
{
    char* const bytes = image.ptr<char>();
    for (std::size_t i = 0; i < image.total(); ++i)
        std::reverse(bytes + i * sizeof(float), bytes + (i + 1) * sizeof(float));
}

class PfmFile : public FrameFile
{
public:
    explicit PfmFile(std::string path);

    int frameCount() const override { return static_cast<int>(places_.size()); }
    std::optional<FrameShape> shapeOfAll() const override { return FrameShape{size_, CV_32FC1}; }
    cv::Mat read(int index) override;

private:
    PfmHeader headerAt(std::ifstream& file, std::uint64_t place, std::uint64_t fileBytes) const;

    std::string path_;
    cv::Size size_;
    FrameTable places_;  // of the headers
};

PfmFile::PfmFile(std::string path) : path_(std::move(path)), places_(path_)
{
    std::uint64_t fileBytes = 0;
    std::ifstream file = openForReading(path_, fileBytes);
    if (std::array<char, 2> kind{}; readBytes(file, 0, kind.data(), kind.size()) && kind[1] == 'F')
        requireFrameType(path_, CV_32FC3);
    for (std::uint64_t place = 0; place < fileBytes;) {
        const PfmHeader header = headerAt(file, place, fileBytes);
        requireFrameSize(path_, header.size.width, header.size.height);
        if (places_.empty())
            size_ = header.size;
        else if (header.size != size_)
            throw UsageError(path_ + ": frame " + std::to_string(places_.size()) +
                             " has another size than frame 0; expected frames of one size");
        places_.add(place);
        place += header.bytes;
        place += static_cast<std::uint64_t>(size_.width) * static_cast<std::uint64_t>(size_.height) * 4;
        if (place > fileBytes)
            throw UsageError(path_ + ": cut off within frame " + std::to_string(places_.size() - 1) +
                             "; expected a complete PFM image");
    }
}

PfmHeader PfmFile::headerAt(std::ifstream& file, std::uint64_t place, std::uint64_t fileBytes) const
{
    std::array<char, 128> text{};
    const std::size_t length = std::min<std::uint64_t>(text.size(), fileBytes - place);
    std::optional<PfmHeader> header;
    if (readBytes(file, place, text.data(), length))
        header = parseHeader({text.data(), length});
    if (!header)
        throw UsageError(path_ + ": no valid PFM header at byte " + std::to_string(place) +
                         "; expected \"Pf\", width, height and byte order");
    return *header;
}

cv::Mat PfmFile::read(int index)
{
    std::uint64_t fileBytes = 0;
    std::ifstream file = openForReading(path_, fileBytes);
    const PfmHeader header = headerAt(file, places_[index], fileBytes);
    const std::size_t rowBytes = static_cast<std::size_t>(size_.width) * sizeof(float);
    cv::Mat frame(size_, CV_32FC1);
    // The bottom row comes first.
    std::uint64_t place = places_[index] + header.bytes;
    for (int y = size_.height - 1; y >= 0; --y, place += rowBytes)
        if (!readBytes(file, place, frame.ptr<char>(y), rowBytes))
            throw UsageError(path_ + ": frame " + std::to_string(index) + " can't be read");
    if (header.order != std::endian::native)
        swapBytes(frame);
    return frame;
}

}  // namespace

std::unique_ptr<FrameFile> openPfmFile(const std::string& path, const FileHints& /*hints*/)
{
    return std::make_unique<PfmFile>(path);
}

}  // namespace vxapp
