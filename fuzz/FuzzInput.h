// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <string>
#include <string_view>
#include <utility>

// What the fuzz targets share.

/// Keeps standard output, the streams and the image library's log silent for the rest of the process, and empties the
/// standard input. libFuzzer's engine, or the replaying main, calls it first.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

/// Each target defines it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace vxfuzz {

/// Stops the program, as a finding, if something promised does not hold.
void require(bool holds, const char* promise);

inline std::string_view textOf(const std::uint8_t* data, std::size_t size)
{
    return {reinterpret_cast<const char*>(data), size};
}

/// The parts of an input in front of the first zero byte and behind it; the second is empty if there is none.
std::pair<std::string_view, std::string_view> splitAtZero(std::string_view bytes);

/// A file in memory that has a path.
class MemoryFile
{
public:
    explicit MemoryFile(std::string_view bytes);
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    const std::string& path() const { return path_; }

private:
    int descriptor_;
    std::string path_;
};

/// The bytes of an input as numbers, from its start; zeros when they are used up. Several are taken within braces, which
/// keep the order, so that a finding is the same with every compiler.
class Numbers
{
public:
    explicit Numbers(std::string_view bytes) : bytes_(bytes) {}

    bool isAtEnd() const { return bytes_.empty(); }
    std::uint8_t byte();
    std::uint32_t word();
    /// 0 to `most`.
    int upTo(int most) { return byte() % (most + 1); }
    /// A setting: mostly small, now and then any value of 32 bits.
    int setting();
    /// A temperature, or any other pattern of bits that a float can have.
    float value();
    /// A frame of values that form a picture, noise, one level or any patterns of bits.
    cv::Mat_<float> frame(cv::Size size);

private:
    std::string_view bytes_;
};

}  // namespace vxfuzz
