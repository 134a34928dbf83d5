// SPDX-License-Identifier: Apache-2.0
#include "enhancement/ParameterFile.h"

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace halvor::vx {

namespace {

constexpr std::size_t maxLineLength = 254;

bool isSpace(char c)
{
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

// The number at the text's beginning, white space ahead of it allowed; null if there is none.
const char* scanInt(const char* text, int base, int& value)
{
    char* end = nullptr;
    const long long number = std::strtoll(text, &end, base);
    if (end == text)
        return nullptr;
    value = static_cast<int>(static_cast<std::uint32_t>(number));
    return end;
}

bool scanWord(const char* text, std::string& word)
{
    while (isSpace(*text))
        ++text;
    const char* end = text;
    while (*end != '\0' && !isSpace(*end))
        ++end;
    if (end == text)
        return false;
    word.assign(text, end);
    return true;
}

// One line without its end, or the next 254 characters of a longer one.
bool readLine(std::istream& file, std::string& line)
{
    line.clear();
    char c = '\0';
    while (line.size() < maxLineLength && file.get(c)) {
        if (c == '\n')
            return true;
        line.push_back(c);
    }
    return !line.empty();
}

}  // namespace

ParameterFile::ParameterFile(const char* fileName)
{
    // Opening a pipe would wait for its other end, and a device may have none.
    std::error_code error;
    if (fileName != nullptr && std::filesystem::is_regular_file(fileName, error))
        file_.open(fileName, std::ios::binary);
    open_ = file_.is_open();
}

bool ParameterFile::next()
{
    while (open_ && readLine(file_, line_)) {
        if (line_[0] != '[' || !scanWord(line_.c_str() + 1, section_))
            return true;
    }
    return false;
}

const char* ParameterFile::behind(const char* key) const
{
    const std::size_t length = std::strlen(key);
    return line_.compare(0, length, key) == 0 ? line_.c_str() + length : nullptr;
}

bool ParameterFile::readDecimal(const char* key, int& value) const
{
    const char* text = behind(key);
    return text != nullptr && scanInt(text, 10, value) != nullptr;
}

bool ParameterFile::readInteger(const char* key, int& value) const
{
    const char* text = behind(key);
    return text != nullptr && scanInt(text, 0, value) != nullptr;
}

bool ParameterFile::readDecimalPair(const char* key, int& first, int& second) const
{
    const char* text = behind(key);
    const char* rest = text != nullptr ? scanInt(text, 10, first) : nullptr;
    return rest != nullptr && scanInt(rest, 10, second) != nullptr;
}

bool ParameterFile::readWord(const char* key, std::string& word) const
{
    const char* text = behind(key);
    return text != nullptr && scanWord(text, word);
}

}  // namespace halvor::vx
