// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <utility>
#include <vector>

#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/terminal/Failure.h"

// The array files of NumPy: "\x93NUMPY", two bytes of version, the length of the header, and the header as a
// Python dictionary: {'descr': '<u2', 'fortran_order': False, 'shape': (300, 120, 160), }
namespace vxapp {

namespace {

constexpr std::size_t magicBytes = 8;
constexpr std::uint64_t longestHeader = 1 << 16;
constexpr std::size_t blockBytes = 1 << 20;  // of the column of all frames that is read at once

struct NpyHeader
{
    SampleType samples = SampleType::u16;
    std::endian order = std::endian::little;
    bool isFortran = false;
    std::vector<std::int64_t> shape;
    std::uint64_t bytes = 0;  // of everything before the samples
};

// What stands behind a key of the dictionary, up to the text's end.
std::string_view valueOf(std::string_view header, std::string_view key)
{
    for (const char quote : {'\'', '"'}) {
        const std::size_t place = header.find(quote + std::string(key) + quote);
        if (place == std::string_view::npos)
            continue;
        std::string_view rest = header.substr(place + key.size() + 2);
        const std::size_t start = rest.find_first_not_of(" :");
        return start == std::string_view::npos ? std::string_view() : rest.substr(start);
    }
    return {};
}

std::string_view quoted(std::string_view text)
{
    if (text.empty() || (text.front() != '\'' && text.front() != '"'))
        return {};
    const std::size_t end = text.find(text.front(), 1);
    return end == std::string_view::npos ? std::string_view() : text.substr(1, end - 1);
}

std::optional<SampleType> samplesOf(std::string_view kind)
{
    constexpr std::array<std::pair<std::string_view, SampleType>, 7> kinds{{
        {"u1", SampleType::u8},
        {"u2", SampleType::u16},
        {"i2", SampleType::s16},
        {"u4", SampleType::u32},
        {"i4", SampleType::s32},
        {"f4", SampleType::f32},
        {"f8", SampleType::f64},
    }};
    for (const auto& [name, samples] : kinds)
        if (kind == name)
            return samples;
    return std::nullopt;
}

// Empty unless it is a tuple of whole numbers.
std::vector<std::int64_t> tuple(std::string_view text)
{
    std::vector<std::int64_t> numbers;
    if (text.empty() || text.front() != '(')
        return {};
    const char* place = text.data() + 1;
    const char* const end = text.data() + text.size();
    while (place < end && *place != ')') {
        std::int64_t number = 0;
        const auto [behind, error] = std::from_chars(place, end, number);
        if (error != std::errc())
            return {};
        numbers.push_back(number);
        place = std::find_if(behind, end, [](char c) { return c != ',' && c != ' '; });
    }
    return place < end ? numbers : std::vector<std::int64_t>();
}

class NpyFile : public FrameFile
{
public:
    explicit NpyFile(std::string path);

    int frameCount() const override { return frames_; }
    std::optional<FrameShape> shapeOfAll() const override
    {
        return FrameShape{size_, factsOf(header_.samples).storage, header_.samples};
    }
    cv::Mat read(int index) override;

private:
    std::string readText(std::ifstream& file, std::uint64_t fileBytes);
    void parse(const std::string& text);
    void checkShape(std::uint64_t fileBytes);
    std::vector<char> fortranFrame(std::ifstream& file, int index) const;
    UsageError cutOff() const
    {
        return UsageError(path_ + ": cut off or damaged; expected a complete .npy file");
    }

    std::string path_;
    NpyHeader header_;
    cv::Size size_;
    int frames_ = 0;
};

NpyFile::NpyFile(std::string path) : path_(std::move(path))
{
    std::uint64_t fileBytes = 0;
    std::ifstream file = openForReading(path_, fileBytes);
    parse(readText(file, fileBytes));
    checkShape(fileBytes);
}

std::string NpyFile::readText(std::ifstream& file, std::uint64_t fileBytes)
{
    std::array<char, magicBytes + 4> start{};
    if (!readBytes(file, 0, start.data(), start.size()))
        throw cutOff();
    const auto byte = [&](std::size_t place) {
        return static_cast<std::uint64_t>(static_cast<unsigned char>(start.at(place)));
    };
    const bool isLong = byte(6) > 1;
    std::uint64_t length = byte(8) | byte(9) << 8;
    if (isLong)
        length |= byte(10) << 16 | byte(11) << 24;
    const std::uint64_t textPlace = magicBytes + (isLong ? 4 : 2);
    header_.bytes = textPlace + length;
    if (length > longestHeader)
        throw UsageError(path_ + ": a header of " + std::to_string(length) + " bytes; expected at most " +
                         std::to_string(longestHeader));
    if (header_.bytes > fileBytes)
        throw cutOff();
    std::string text(length, '\0');
    if (!readBytes(file, textPlace, text.data(), text.size()))
        throw cutOff();
    return text;
}

void NpyFile::parse(const std::string& text)
{
    const std::string_view kind = quoted(valueOf(text, "descr"));
    const std::optional<SampleType> samples =
        kind.size() > 1 ? samplesOf(kind.substr(1)) : std::optional<SampleType>();
    if (!samples || std::string_view("<>|=").find(kind.front()) == std::string_view::npos)
        throw UsageError(path_ + ": holds samples of " +
                         (kind.empty() ? "several fields" : std::string(kind)) +
                         "; expected u1, u2, i2, u4, i4, f4 or f8 in either byte order");
    header_.samples = *samples;
    header_.order = kind.front() == '>' ? std::endian::big : std::endian::little;
    header_.isFortran = valueOf(text, "fortran_order").starts_with("True");
    header_.shape = tuple(valueOf(text, "shape"));
}

void NpyFile::checkShape(std::uint64_t fileBytes)
{
    const std::vector<std::int64_t>& shape = header_.shape;
    if (shape.size() != 2 && shape.size() != 3) {
        std::string text;
        for (const std::int64_t length : shape)
            text += (text.empty() ? "" : ", ") + std::to_string(length);
        throw UsageError(path_ + ": an array of the shape (" + text +
                         "); expected (rows, columns) or (frames, rows, columns)");
    }
    const std::int64_t rows = shape[shape.size() - 2];
    const std::int64_t columns = shape.back();
    requireFrameSize(path_, columns, rows);
    size_ = {static_cast<int>(columns), static_cast<int>(rows)};
    frames_ =
        checkedFrameCount(path_, shape.size() == 3 && shape[0] > 0 ? static_cast<std::uint64_t>(shape[0])
                                 : shape.size() == 2               ? 1
                                                                   : 0);
    const std::uint64_t perFrame = static_cast<std::uint64_t>(size_.area()) * factsOf(header_.samples).bytes;
    if (fileBytes - header_.bytes < static_cast<std::uint64_t>(frames_) * perFrame)
        throw cutOff();
}

// Samples of a frame in the order of its rows, from an array in which the first index runs fastest.
std::vector<char> NpyFile::fortranFrame(std::ifstream& file, int index) const
{
    const std::size_t width = factsOf(header_.samples).bytes;
    const std::size_t step = static_cast<std::size_t>(frames_) * width;  // from row to row
    const auto rows = static_cast<std::size_t>(size_.height);
    const auto columns = static_cast<std::size_t>(size_.width);
    const std::size_t most = std::max<std::size_t>(1, blockBytes / step);
    std::vector<char> frame(rows * columns * width);
    std::vector<char> block((std::min(most, rows) - 1) * step + width);
    for (std::size_t x = 0; x < columns; ++x)
        for (std::size_t top = 0; top < rows; top += most) {
            const std::size_t count = std::min(most, rows - top);
            const std::uint64_t place =
                header_.bytes + (x * rows + top) * step + static_cast<std::size_t>(index) * width;
            if (!readBytes(file, place, block.data(), (count - 1) * step + width))
                throw cutOff();
            for (std::size_t y = 0; y < count; ++y)
                std::copy_n(block.data() + y * step, width, frame.data() + ((top + y) * columns + x) * width);
        }
    return frame;
}

cv::Mat NpyFile::read(int index)
{
    std::uint64_t fileBytes = 0;
    std::ifstream file = openForReading(path_, fileBytes);
    if (header_.isFortran)
        return decodeSamples(fortranFrame(file, index), size_, header_.samples, header_.order);
    std::vector<char> bytes(static_cast<std::size_t>(size_.area()) * factsOf(header_.samples).bytes);
    if (!readBytes(file, header_.bytes + static_cast<std::uint64_t>(index) * bytes.size(), bytes.data(),
                   bytes.size()))
        throw UsageError(path_ + ": frame " + std::to_string(index) + " can't be read");
    return decodeSamples(bytes, size_, header_.samples, header_.order);
}

}  // namespace

std::unique_ptr<FrameFile> openNpyFile(const std::string& path, const FileHints& /*hints*/)
{
    return std::make_unique<NpyFile>(path);
}

}  // namespace vxapp
