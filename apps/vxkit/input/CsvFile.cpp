// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/terminal/Failure.h"

// Tables of numbers as text: a line for each row, an empty line between two frames. Numbers are separated by
// commas, semicolons, tabs or blanks; with semicolons and tabs they may have a decimal comma.
namespace vxapp {

namespace {

// Digits that a 32-bit float always tells apart; a table with more of them holds 64-bit floats.
constexpr std::size_t digitsOfFloats = 9;
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr double largestWholeFloat = 16777216.0;  // up to it all whole numbers are floats

struct Frame
{
    std::uint64_t place;
    int firstLine;  // counted from 1
    int rows;
};

std::string_view trimmed(std::string_view text)
{
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

std::size_t significantDigits(std::string_view number)
{
    number = number.substr(0, number.find_first_of("eE"));
    std::size_t digits = 0;
    for (const char c : number)
        if (std::isdigit(static_cast<unsigned char>(c)) != 0 && (digits > 0 || c != '0'))
            ++digits;
    return digits;
}

char separatorOf(std::string_view line)
{
    for (const char separator : {';', '\t'})
        if (line.find(separator) != std::string_view::npos)
            return separator;
    return line.find(',') == std::string_view::npos && trimmed(line).find(' ') != std::string_view::npos
               ? ' '
               : ',';
}

// The cells of a line; a separator at its end opens none.
std::vector<std::string_view> cellsOf(std::string_view line, char separator)
{
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    std::vector<std::string_view> cells;
    while (separator == ' ' && !(line = trimmed(line)).empty()) {
        cells.push_back(line.substr(0, line.find(' ')));
        line.remove_prefix(cells.back().size());
    }
    while (separator != ' ') {
        const std::size_t end = line.find(separator);
        cells.push_back(trimmed(line.substr(0, end)));
        if (end == std::string_view::npos)
            break;
        line.remove_prefix(end + 1);
    }
    if (cells.size() > 1 && cells.back().empty())
        cells.pop_back();
    return cells;
}

template <typename T>
bool parse(std::string_view cell, char separator, T& value)
{
    std::string number(cell);
    if (number.starts_with('+'))
        number.erase(0, 1);
    if (separator != ',' && number.find('.') == std::string::npos)
        std::replace(number.begin(), number.end(), ',', '.');
    const char* const end = number.data() + number.size();
    const auto [behind, error] = std::from_chars(number.data(), end, value);
    return !number.empty() && error == std::errc() && behind == end;
}

class CsvFile : public FrameFile
{
public:
    CsvFile(std::string path, std::optional<SampleType> samples);

    int frameCount() const override { return static_cast<int>(frames_.size()); }
    std::optional<FrameShape> shapeOfAll() const override
    {
        return FrameShape{{columns_, frames_.front().rows}, factsOf(samples_).storage, samples_};
    }
    cv::Mat read(int index) override;

private:
    template <typename T>
    cv::Mat_<T> parseFrame(int index) const;
    void scan(std::istream& file);
    void scanRow(std::string_view line, int number);
    void checkFrames() const;
    UsageError at(int line, const std::string& what) const
    {
        return UsageError(path_ + ": line " + std::to_string(line) + what);
    }

    std::string path_;
    SampleType samples_;
    char separator_ = 0;
    int columns_ = 0;
    std::size_t mostDigits_ = 0;
    std::vector<Frame> frames_;
};

CsvFile::CsvFile(std::string path, std::optional<SampleType> samples)
    : path_(std::move(path)), samples_(samples.value_or(SampleType::f32))
{
    std::uint64_t fileBytes = 0;
    std::ifstream file = openForReading(path_, fileBytes);
    scan(file);
    checkFrames();
    if (!samples && mostDigits_ > digitsOfFloats)
        samples_ = SampleType::f64;
}

void CsvFile::scan(std::istream& file)
{
    std::string text;
    bool isInFrame = false;
    std::uint64_t place = 0;
    for (int number = 1; std::getline(file, text); ++number) {
        const std::uint64_t start = place;
        place += text.size() + 1;
        std::string_view line = text;
        if (number == 1 && line.starts_with(byteOrderMark))
            line.remove_prefix(byteOrderMark.size());
        if (trimmed(line).starts_with('#'))
            continue;
        if (trimmed(line).empty()) {
            isInFrame = false;
            continue;
        }
        if (!isInFrame)
            frames_.push_back({start + (text.size() - line.size()), number, 0});
        isInFrame = true;
        scanRow(line, number);
        ++frames_.back().rows;
    }
    if (frames_.empty())
        throw UsageError(path_ + ": holds no numbers; expected a table of them");
}

void CsvFile::scanRow(std::string_view line, int number)
{
    if (separator_ == 0)
        separator_ = separatorOf(line);
    const std::vector<std::string_view> cells = cellsOf(line, separator_);
    if (columns_ == 0)
        columns_ = static_cast<int>(std::min<std::size_t>(cells.size(), std::numeric_limits<int>::max()));
    if (cells.size() != static_cast<std::size_t>(columns_))
        throw at(number, " has " + std::to_string(cells.size()) + " numbers; expected " +
                             std::to_string(columns_) + ", as in the lines before it");
    for (const std::string_view cell : cells) {
        double value = 0.0;
        if (!parse(cell, separator_, value))
            throw at(number, ": '" + std::string(cell.substr(0, 40)) +
                                 "' is no number; expected numbers separated by commas or blanks, or by "
                                 "semicolons or tabs "
                                 "with a decimal point or comma");
        const bool isWhole = cell.find_first_of(".,eE") == std::string_view::npos;
        const bool needsDouble = isWhole && std::isfinite(value) && std::abs(value) > largestWholeFloat;
        mostDigits_ = std::max(mostDigits_, needsDouble ? digitsOfFloats + 1 : significantDigits(cell));
    }
}

void CsvFile::checkFrames() const
{
    requireFrameSize(path_, columns_, frames_.front().rows);
    for (const Frame& frame : frames_)
        if (frame.rows != frames_.front().rows)
            throw at(frame.firstLine, " begins a frame of " + std::to_string(frame.rows) +
                                          " rows; expected " + std::to_string(frames_.front().rows) +
                                          ", as in the frame before it");
}

template <typename T>
cv::Mat_<T> CsvFile::parseFrame(int index) const
{
    std::uint64_t fileBytes = 0;
    std::ifstream file = openForReading(path_, fileBytes);
    const Frame& frame = frames_.at(static_cast<std::size_t>(index));
    file.seekg(static_cast<std::streamoff>(frame.place));
    cv::Mat_<T> values(frame.rows, columns_);
    std::string line;
    for (int y = 0; y < frame.rows;) {
        if (!std::getline(file, line))
            throw UsageError(path_ + ": frame " + std::to_string(index) + " can't be read");
        if (trimmed(line).starts_with('#'))
            continue;
        const std::vector<std::string_view> cells = cellsOf(line, separator_);
        for (int x = 0; x < columns_; ++x) {
            double value = 0.0;  // for what is too small or too large for a float
            const std::string_view cell =
                static_cast<std::size_t>(x) < cells.size() ? cells[static_cast<std::size_t>(x)] : "";
            if (!parse(cell, separator_, values(y, x)) && parse(cell, separator_, value))
                values(y, x) = static_cast<T>(value);
        }
        ++y;
    }
    return values;
}

cv::Mat CsvFile::read(int index)
{
    if (samples_ == SampleType::f32)
        return parseFrame<float>(index);
    ConversionLosses losses;
    cv::Mat converted = convertSamples(parseFrame<double>(index), samples_, losses);
    if (losses.any())
        throw UsageError(path_ + ": frame " + std::to_string(index) + ", row " +
                         std::to_string(losses.place.y) + ", column " + std::to_string(losses.place.x) +
                         ": no value of " + std::string(factsOf(samples_).name) +
                         "; expected another --dtype");
    return converted;
}

}  // namespace

bool looksLikeCsv(std::string_view start)
{
    constexpr std::string_view digits = "0123456789";
    constexpr std::string_view characters = "0123456789+-.,;eE \t\rnaNiIfF";
    if (start.starts_with(byteOrderMark))
        start.remove_prefix(byteOrderMark.size());
    bool hasDigits = false;
    while (!start.empty()) {
        const std::string_view line = start.substr(0, start.find('\n'));
        start.remove_prefix(std::min(start.size(), line.size() + 1));
        if (trimmed(line).starts_with('#'))
            continue;
        if (line.find_first_not_of(characters) != std::string_view::npos)
            return false;
        hasDigits = hasDigits || line.find_first_of(digits) != std::string_view::npos;
    }
    return hasDigits;
}

std::unique_ptr<FrameFile> openCsvFile(const std::string& path, const FileHints& hints)
{
    return std::make_unique<CsvFile>(path, hints.samples);
}

}  // namespace vxapp
