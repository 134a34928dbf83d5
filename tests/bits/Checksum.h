// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <opencv2/core/mat.hpp>

namespace vxtest {

/// 64-bit FNV-1a hash of all bytes that were added.
class Checksum
{
public:
    void add(const void* data, std::size_t bytes)
    {
        const auto* byte = static_cast<const unsigned char*>(data);
        for (std::size_t i = 0; i < bytes; ++i)
            hash_ = (hash_ ^ byte[i]) * 0x100000001B3U;
    }

    template <typename T>
    void add(const cv::Mat_<T>& image)
    {
        for (int y = 0; y < image.rows; ++y)
            add(image[y], static_cast<std::size_t>(image.cols) * sizeof(T));
    }

    std::uint64_t value() const { return hash_; }

private:
    std::uint64_t hash_ = 0xCBF29CE484222325U;
};

}  // namespace vxtest
