// SPDX-License-Identifier: Apache-2.0
#include "fuzz/FuzzInput.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <streambuf>

namespace vxfuzz {

namespace {

class NullBuffer : public std::streambuf
{
    int overflow(int c) override { return c; }
    std::streamsize xsputn(const char* /*text*/, std::streamsize count) override { return count; }
};

// Bad-pixel markers, no numbers, ends of the range and values that are hardly above 0.
constexpr std::array<std::uint32_t, 14> patterns{0x81,       0x82,       0x84,       0x85,       0x7F800000,
                                                 0xFF800000, 0x7FC00000, 0x7F800001, 0x7F7FFFFF, 0xFF7FFFFF,
                                                 0x80000000, 0x00000001, 0x00800000, 0x4F000000};

}  // namespace

void require(bool holds, const char* promise)
{
    if (holds)
        return;
    std::fprintf(stderr, "broken promise: %s\n", promise);
    std::abort();
}

std::pair<std::string_view, std::string_view> splitAtZero(std::string_view bytes)
{
    const std::size_t end = std::min(bytes.find('\0'), bytes.size());
    return {bytes.substr(0, end), bytes.substr(std::min(end + 1, bytes.size()))};
}

MemoryFile::MemoryFile(std::string_view bytes)
    : descriptor_(::memfd_create("input", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(descriptor_))
{
    require(::write(descriptor_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
            "memory takes an input");
}

MemoryFile::~MemoryFile()
{
    ::close(descriptor_);
}

std::uint8_t Numbers::byte()
{
    if (bytes_.empty())
        return 0;
    const auto value = static_cast<std::uint8_t>(bytes_.front());
    bytes_.remove_prefix(1);
    return value;
}

std::uint32_t Numbers::word()
{
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i)
        value = value << 8U | byte();
    return value;
}

int Numbers::setting()
{
    const std::uint8_t kind = byte();
    if (kind < 224)
        return kind % 112;
    if (kind < 240)
        return byte() - 128;
    return std::bit_cast<int>(word());
}

float Numbers::value()
{
    const std::uint8_t kind = byte();
    if (kind < 160)
        return 20.0F + static_cast<float>(kind) / 8.0F;
    if (kind < 224)
        return std::bit_cast<float>(patterns.at(kind % patterns.size()));
    return std::bit_cast<float>(word());
}

cv::Mat_<float> Numbers::frame(cv::Size size)
{
    const int kind = upTo(4);
    const int shift = upTo(7);
    const float contrast = value();
    cv::RNG noise(word());
    cv::Mat_<float> pixels(size);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) {
            const bool isBright = ((x + shift) / 4 + (y + shift) / 4) % 2 != 0;
            const float picture = (isBright ? contrast : 10.0F) + noise.uniform(0.0F, 0.2F);
            pixels(y, x) = kind == 0   ? value()
                           : kind == 1 ? contrast
                           : kind == 2 ? std::bit_cast<float>(noise.next())
                           : kind == 3 ? (noise.next() % 16 == 0 ? value() : picture)
                                       : picture;
        }
    return pixels;
}

}  // namespace vxfuzz

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    static vxfuzz::NullBuffer nowhere;
    std::cout.rdbuf(&nowhere);
    std::cerr.rdbuf(&nowhere);
    const int nothing = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    vxfuzz::require(::dup2(nothing, STDIN_FILENO) >= 0 && ::dup2(nothing, STDOUT_FILENO) >= 0,
                    "there is /dev/null");
    ::close(nothing);
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    cv::redirectError([](int, const char*, const char*, const char*, int, void*) { return 0; });
    return 0;
}
