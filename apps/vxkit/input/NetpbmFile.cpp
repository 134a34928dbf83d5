// SPDX-License-Identifier: Apache-2.0
#include <cctype>
#include <charconv>
#include <utility>
#include <vector>

#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

constexpr int largestCount = 65535;

struct Image
{
    bool isPlain;  // P2, numbers as text; else P5
    cv::Size size;
    int largest;          // count that the header names as white
    std::uint64_t place;  // of the first sample
};

// The next word, without the comments before it; takes one blank behind it. Empty at the file's end.
std::string takeWord(std::istream& file)
{
    std::string word;
    int c = file.get();
    for (; c == '#' || std::isspace(c) != 0; c = file.get())
        while (c == '#' && file.good() && file.peek() != '\n')
            file.get();
    for (; c != EOF && std::isspace(c) == 0 && c != '#' && word.size() < 16; c = file.get())
        word.push_back(static_cast<char>(c));
    if (c == '#')
        file.unget();
    return word;
}

int takeNumber(std::istream& file)
{
    const std::string word = takeWord(file);
    int number = -1;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    return error == std::errc() && end == word.data() + word.size() ? number : -1;
}

class NetpbmFile : public FrameFile
{
public:
    explicit NetpbmFile(std::string path);

    int frameCount() const override { return static_cast<int>(places_.size()); }
    std::optional<FrameShape> shapeOfAll() const override
    {
        return FrameShape{first_.size, factsOf(samples()).storage};
    }
    cv::Mat read(int index) override;

private:
    SampleType samples() const { return first_.largest > 255 ? SampleType::u16 : SampleType::u8; }
    std::string nameOf(std::size_t index) const { return path_ + ", frame " + std::to_string(index); }
    Image takeHeader(std::istream& file, const std::string& magic, std::size_t index) const;
    void requireKind(const Image& image, std::size_t index) const;
    std::uint64_t bytesOf(const Image& image) const;
    void readPlain(std::istream& file, const Image& image, const std::string& name, cv::Mat& frame) const;

    std::string path_;
    FrameTable places_;  // of the headers
    Image first_{};
};

NetpbmFile::NetpbmFile(std::string path) : path_(std::move(path)), places_(path_)
{
    std::uint64_t fileBytes = 0;
    std::ifstream file = openForReading(path_, fileBytes);
    std::uint64_t place = 0;
    for (std::string magic = takeWord(file); !magic.empty(); magic = takeWord(file)) {
        const std::size_t index = places_.size();
        const Image image = takeHeader(file, magic, index);
        if (index == 0)
            first_ = image;
        requireKind(image, index);
        places_.add(place);
        if (image.isPlain) {
            cv::Mat ignored;
            readPlain(file, image, nameOf(index), ignored);
            place = file.good() ? static_cast<std::uint64_t>(file.tellg()) : fileBytes;
            continue;
        }
        place = image.place + bytesOf(image);
        if (place > fileBytes)
            throw UsageError(path_ + ": cut off within frame " + std::to_string(index) +
                             "; expected a complete PGM image");
        file.seekg(static_cast<std::streamoff>(place));
    }
}

void NetpbmFile::requireKind(const Image& image, std::size_t index) const
{
    if (image.size != first_.size || (image.largest > 255) != (first_.largest > 255))
        throw UsageError(nameOf(index) +
                         ": has another size or depth than frame 0; expected frames of one kind");
}

Image NetpbmFile::takeHeader(std::istream& file, const std::string& magic, std::size_t index) const
{
    Image image{magic == "P2", {}, 0, 0};
    const int width = takeNumber(file);
    const int height = takeNumber(file);
    image.largest = takeNumber(file);
    const bool isHeader = file.good() && (magic == "P2" || magic == "P5");
    if (!isHeader || width <= 0 || height <= 0 || image.largest <= 0 || image.largest > largestCount)
        throw UsageError(path_ + ": no valid PGM header in front of frame " + std::to_string(index) +
                         "; expected \"P5\" or \"P2\", width, height and a largest count up to 65535");
    requireFrameSize(path_, width, height);
    image.size = {width, height};
    image.place = static_cast<std::uint64_t>(file.tellg());
    return image;
}

std::uint64_t NetpbmFile::bytesOf(const Image& image) const
{
    return static_cast<std::uint64_t>(image.size.area()) * factsOf(samples()).bytes;
}

// Fills the frame, if it is none without memory.
void NetpbmFile::readPlain(std::istream& file, const Image& image, const std::string& name,
                           cv::Mat& frame) const
{
    for (int y = 0; y < image.size.height; ++y)
        for (int x = 0; x < image.size.width; ++x) {
            const int count = takeNumber(file);
            if (count < 0 || count > image.largest)
                throw UsageError(name + ": row " + std::to_string(y) + ", column " + std::to_string(x) +
                                 " holds no count from 0 to " + std::to_string(image.largest));
            if (frame.empty())
                continue;
            if (frame.depth() == CV_8U)
                frame.at<std::uint8_t>(y, x) = static_cast<std::uint8_t>(count);
            else
                frame.at<std::uint16_t>(y, x) = static_cast<std::uint16_t>(count);
        }
}

cv::Mat NetpbmFile::read(int index)
{
    std::uint64_t fileBytes = 0;
    std::ifstream file = openForReading(path_, fileBytes);
    const auto number = static_cast<std::size_t>(index);
    file.seekg(static_cast<std::streamoff>(places_[index]));
    const std::string magic = takeWord(file);
    const Image image = takeHeader(file, magic, number);
    requireKind(image, number);
    if (image.isPlain) {
        cv::Mat frame(image.size, factsOf(samples()).storage);
        readPlain(file, image, nameOf(number), frame);
        return frame;
    }
    std::vector<char> bytes(bytesOf(image));
    if (!readBytes(file, image.place, bytes.data(), bytes.size()))
        throw UsageError(nameOf(number) + ": can't be read");
    return decodeSamples(bytes, image.size, samples(), std::endian::big);
}

}  // namespace

std::unique_ptr<FrameFile> openNetpbmFile(const std::string& path, const FileHints& /*hints*/)
{
    return std::make_unique<NetpbmFile>(path);
}

}  // namespace vxapp
