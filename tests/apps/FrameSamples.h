// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "core/io/ImageIO.h"
#include "doubles/SameBits.h"

/// Counts that differ at every pixel and in every frame, and use all 16 bits.
inline cv::Mat_<std::uint16_t> sampleCounts(cv::Size size, int seed = 0)
{
    cv::Mat_<std::uint16_t> frame(size);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            frame(y, x) = static_cast<std::uint16_t>(y * 4099 + x * 257 + seed * 13 + 3);
    return frame;
}

inline void appendRaw(const std::filesystem::path& path, const cv::Mat_<std::uint16_t>& frame)
{
    std::ofstream file(path, std::ios::binary | std::ios::app);
    for (const std::uint16_t count : frame) {
        file.put(static_cast<char>(static_cast<unsigned char>(count & 0xFF)));
        file.put(static_cast<char>(static_cast<unsigned char>(count >> 8)));
    }
}

inline void writePfmStream(const std::filesystem::path& path, const std::vector<cv::Mat_<float>>& frames)
{
    halvor::vx::ImageIO stream(halvor::vx::ImageIO::pfm);
    stream.open(path.string());
    for (const cv::Mat_<float>& frame : frames)
        stream << frame;
}

using vxtest::sameBits;
