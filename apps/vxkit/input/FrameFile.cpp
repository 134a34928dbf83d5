// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/input/FrameFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>
#include <utility>
#include <vector>

#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/input/FrameFileParts.h"
#include "apps/vxkit/input/Spool.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

constexpr std::size_t startBytes = 512;

std::string depthText(int depth)
{
    switch (depth) {
        case CV_8U:
        case CV_8S:
            return "8-bit";
        case CV_32F:
            return "32-bit float";
        default:
            return "16-bit";
    }
}

const FileFormat* formatOfContent(const std::string& path, std::string_view start)
{
    if (const FileFormat* format = formatStartingWith(start))
        return format;
    if (looksLikeCsv(start))
        return formatNamed("csv");
    const FileFormat* format = formatOf(path);
    const bool tellsNothing = format != nullptr && format->open != nullptr && format->starts.empty();
    return tellsNothing ? format : nullptr;
}

}  // namespace

std::ifstream openForReading(const std::string& path, std::uint64_t& size)
{
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::exists(status))
        throw UsageError(path + ": no such file");
    if (!fs::is_regular_file(status))
        throw UsageError(path + ": not a file; expected the name of an image or recording");
    std::ifstream file(path, std::ios::binary);
    if (!file.is_open())
        throw UsageError(path + ": can't be read (" + std::strerror(errno) + ")");
    size = fs::file_size(path, error);
    if (error || size == 0)
        throw UsageError(path + ": empty; expected an image or recording");
    return file;
}

bool readBytes(std::ifstream& file, std::uint64_t place, char* bytes, std::size_t count)
{
    file.clear();
    file.seekg(static_cast<std::streamoff>(place));
    file.read(bytes, static_cast<std::streamsize>(count));
    return file.good();
}

void requireFrameType(const std::string& name, int type)
{
    if (CV_MAT_CN(type) == 1 && factsOf(sampleTypeOf(type)).storage == type)
        return;
    const int channels = CV_MAT_CN(type);
    throw UsageError(name + ": " + depthText(CV_MAT_DEPTH(type)) + " image with " + std::to_string(channels) +
                     (channels == 1 ? " channel" : " channels") +
                     "; expected one channel of unsigned 16-bit counts or 32-bit floats");
}

void requireFrameSize(const std::string& name, std::int64_t width, std::int64_t height)
{
    constexpr std::int64_t largestSide = 1 << 16;
    constexpr std::int64_t largestArea = std::int64_t{1} << 28;
    const auto fits = [](std::int64_t side) { return side > 0 && side <= largestSide; };
    if (!fits(width) || !fits(height) || width * height > largestArea)
        throw UsageError(name + ": frames of " + std::to_string(width) + "x" + std::to_string(height) +
                         "; expected 1 to 65536 pixels on each side and 2^28 in all");
}

void requirePlausibleSize(const std::string& name, std::uint64_t frameBytes, std::uint64_t fileBytes)
{
    // Deflate reaches 1032, LZW 1365; some codings write an even frame of any size in a few bytes.
    constexpr std::uint64_t largestCompression = 4096;
    constexpr std::uint64_t alwaysTaken = std::uint64_t{64} << 20;
    if (frameBytes > alwaysTaken && frameBytes / largestCompression > fileBytes)
        throw UsageError(name + ": a frame of " + std::to_string(frameBytes) + " bytes in a file of " +
                         std::to_string(fileBytes) + "; expected an undamaged, complete file");
}

int checkedFrameCount(const std::string& name, std::uint64_t count)
{
    if (count == 0 || count > static_cast<std::uint64_t>(std::numeric_limits<int>::max()))
        throw UsageError(name + ": " + std::to_string(count) + " frames; expected 1 to " +
                         std::to_string(std::numeric_limits<int>::max()));
    return static_cast<int>(count);
}

void requireMoreThanBytes(const std::string& name, SampleType samples)
{
    if (samples == SampleType::u8)
        throw UsageError(
            name +
            ": 8-bit counts, as pictures for looking at hold them; expected one channel of unsigned "
            "16-bit counts or floats (vxkit convert --type u16 makes counts of them)");
}

std::unique_ptr<FrameFile> openImageFile(const std::string& path, const FileHints& hints)
{
    if (isReadOnce(path))
        return openReadOnce(path, [&hints](const std::string& name) { return openImageFile(name, hints); });
    std::uint64_t bytes = 0;
    std::ifstream file = openForReading(path, bytes);
    std::array<char, startBytes> buffer{};
    const std::string_view start(buffer.data(), std::min<std::uint64_t>(buffer.size(), bytes));
    if (!readBytes(file, 0, buffer.data(), start.size()))
        throw UsageError(path + ": can't be read");
    if (const FileFormat* format = formatOfContent(path, start))
        return format->open(path, hints);
    const auto isRead = [](const FileFormat& format) { return format.open != nullptr; };
    throw UsageError(path + ": " + looksOf(start) + "; expected " + endingsText(isRead) +
                     ", or with --size WIDTHxHEIGHT a headerless recording");
}

}  // namespace vxapp
