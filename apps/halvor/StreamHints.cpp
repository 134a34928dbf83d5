// SPDX-License-Identifier: Apache-2.0
#include "apps/halvor/StreamHints.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <vector>

namespace halvorapp {

namespace {

constexpr std::size_t searchedBytes = 8U << 20;
constexpr std::size_t leastFrameBytes = 512;
constexpr int usualFormats[][2] = {{80, 60},   {160, 120}, {206, 156}, {320, 240}, {320, 256},
                                   {384, 288}, {640, 480}, {640, 512}, {1024, 768}};

// The smallest even number of bytes after which the beginning stands there once more; 0 if there is none. An even
// surface would repeat at once: what is shorter than any frame doesn't count.
std::size_t repeatedBytes(const std::string& stream)
{
    // What was a pipe can't be read again, and would be waited for.
    std::error_code error;
    if (!std::filesystem::is_regular_file(stream, error))
        return 0;
    std::ifstream file(stream, std::ios::binary);
    std::vector<char> bytes(searchedBytes);
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(file.gcount()));
    for (std::size_t length = leastFrameBytes; 2 * length <= bytes.size(); length += 2)
        if (std::equal(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length),
                       bytes.begin() + static_cast<std::ptrdiff_t>(length)))
            return length;
    return 0;
}

std::string sizeHint(std::size_t bytes)
{
    const std::size_t pixels = bytes / 2;
    std::string text = "its first " + std::to_string(pixels) + " samples stand in it twice: sensor=@Size(";
    for (const auto& [columns, rows] : usualFormats)
        if (pixels == static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows))
            return text + std::to_string(columns) + " " + std::to_string(rows) + ") would fit";
    return text + "COLUMNS ROWS) with that product would fit";
}

}  // namespace

std::string hintFor(const std::string& stream, const StreamCensus& census)
{
    const std::string frame = "frames of " + std::to_string(census.frameBytes) + " bytes (sensor=@Size)";
    if (!census.isAtEnd)
        return "";
    if (census.captures == 0 && census.rest == 0)
        return "the stream is empty";
    const bool isStrange = 4 * census.frames < census.captures || census.frames == 0;
    std::string text;
    if (census.rest != 0)
        text = "the stream is no whole number of " + frame + ": " + std::to_string(census.rest) +
               " bytes are left over";
    if (!isStrange)
        return text;
    const std::size_t repeated = repeatedBytes(stream);
    if (!text.empty())
        text += "; ";
    if (repeated != 0 && repeated != census.frameBytes)
        return text + sizeHint(repeated);
    return text + std::to_string(census.frames) + " of " + std::to_string(census.captures) +
           " frames repeat the one before, and only these count: a stream holds every frame twice or more" +
           " (vxkit convert --double makes one)";
}

}  // namespace halvorapp
