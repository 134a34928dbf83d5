// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
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

// What a row of the widest frame takes with 64 characters for each number.
constexpr std::size_t longestLine = std::size_t{64} << 16;
constexpr std::size_t mostCells = std::size_t{1} << 16;

// A line without its end, and at most one part more than the longest; false at the end.
bool takeLine(std::istream& file, std::string& line)
{
    std::array<char, 4096> part{};
    line.clear();
    for (;;) {
        file.getline(part.data(), part.size());
        const auto count = static_cast<std::size_t>(file.gcount());
        const bool hasEnd = file.good();
        line.append(part.data(), hasEnd ? count - 1 : count);
        if (hasEnd || file.eof() || count == 0 || line.size() > longestLine)
            return hasEnd || !line.empty();
        file.clear();
    }
}

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

// The cells of a line, and not many more than a frame may have; a separator at its end opens none.
std::vector<std::string_view> cellsOf(std::string_view line, char separator)
{
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    std::vector<std::string_view> cells;
    while (separator == ' ' && cells.size() <= mostCells && !(line = trimmed(line)).empty()) {
        cells.push_back(line.substr(0, line.find(' ')));
        line.remove_prefix(cells.back().size());
    }
    while (separator != ' ' && cells.size() <= mostCells) {
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

    int frameCount() const override { return static_cast<int>(places_.size()); }
    std::optional<FrameShape> shapeOfAll() const override
    {
        return FrameShape{{columns_, rows_}, factsOf(samples_).storage, samples_};
    }
    cv::Mat read(int index) override;

private:
    template <typename T>
    cv::Mat_<T> parseFrame(int index) const;
    void scan(std::istream& file);
    void scanRow(std::string_view line, std::int64_t number);
    void endFrame(std::int64_t firstLine, int rows);
    UsageError at(std::int64_t line, const std::string& what) const
    {
        return UsageError(path_ + ": line " + std::to_string(line) + what);
    }

    std::string path_;
    SampleType samples_;
    char separator_ = 0;
    int columns_ = 0;
    std::size_t mostDigits_ = 0;
    int rows_ = 0;
    FrameTable places_;
};

CsvFile::CsvFile(std::string path, std::optional<SampleType> samples)
    : path_(std::move(path)), samples_(samples.value_or(SampleType::f32)), places_(path_)
{
    std::uint64_t fileBytes = 0;
    std::ifstream file = openForReading(path_, fileBytes);
    scan(file);
    if (!samples && mostDigits_ > digitsOfFloats)
        samples_ = SampleType::f64;
}

void CsvFile::scan(std::istream& file)
{
    std::string text;
    std::int64_t firstLine = 0;
    int rows = 0;  // of the frame so far
    std::uint64_t place = 0;
    for (std::int64_t number = 1; takeLine(file, text); ++number) {
        if (text.size() > longestLine)
            throw at(number, " is longer than " + std::to_string(longestLine) +
                                 " bytes; expected a table of numbers");
        const std::uint64_t start = place;
        place += text.size() + 1;
        std::string_view line = text;
        if (number == 1 && line.starts_with(byteOrderMark))
            line.remove_prefix(byteOrderMark.size());
        if (trimmed(line).starts_with('#'))
            continue;
        if (trimmed(line).empty()) {
            endFrame(firstLine, std::exchange(rows, 0));
            continue;
        }
        if (rows == 0) {
            firstLine = number;
            places_.add(start + (text.size() - line.size()));
        }
        scanRow(line, number);
        requireFrameSize(path_, columns_, ++rows);
    }
    endFrame(firstLine, rows);
    if (places_.empty())
        throw UsageError(path_ + ": holds no numbers; expected a table of them");
}

void CsvFile::scanRow(std::string_view line, std::int64_t number)
{
    if (separator_ == 0)
        separator_ = separatorOf(line);
    const std::vector<std::string_view> cells = cellsOf(line, separator_);
    if (columns_ == 0)
        columns_ = static_cast<int>(cells.size());
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

void CsvFile::endFrame(std::int64_t firstLine, int rows)
{
    if (rows == 0)
        return;
    if (rows_ == 0)
        rows_ = rows;
    if (rows != rows_)
        throw at(firstLine, " begins a frame of " + std::to_string(rows) + " rows; expected " +
                                std::to_string(rows_) + ", as in the frame before it");
}

template <typename T>
cv::Mat_<T> CsvFile::parseFrame(int index) const
{
    std::uint64_t fileBytes = 0;
    std::ifstream file = openForReading(path_, fileBytes);
    file.seekg(static_cast<std::streamoff>(places_[index]));
    cv::Mat_<T> values(rows_, columns_);
    std::string line;
    for (int y = 0; y < rows_;) {
        if (!takeLine(file, line))
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
