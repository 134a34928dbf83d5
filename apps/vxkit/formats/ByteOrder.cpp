// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/formats/ByteOrder.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace vxapp {

namespace {

// How much rougher the wrong order is at least. Real frames: above 30, noise of all 16 bits: 1.
constexpr double clearly = 8.0;

template <typename T>
T swapped(T value)
{
    std::array<char, sizeof(T)> bytes{};
    std::memcpy(bytes.data(), &value, sizeof(T));
    std::reverse(bytes.begin(), bytes.end());
    std::memcpy(&value, bytes.data(), sizeof(T));
    return value;
}

OrderGuess judge(double asRead, double swappedBytes)
{
    if (asRead > clearly * swappedBytes)
        return OrderGuess::swapped;
    return swappedBytes > clearly * asRead ? OrderGuess::asRead : OrderGuess::unknown;
}

template <typename T>
OrderGuess guessOfCounts(const cv::Mat& frame)
{
    double asRead = 0.0;
    double swappedBytes = 0.0;
    bool usesLowByte = false;  // else the counts are those of 8 bits, shifted
    for (int y = 0; y < frame.rows; ++y) {
        const T* row = frame.ptr<T>(y);
        for (int x = 1; x < frame.cols; ++x) {
            asRead += std::abs(static_cast<double>(row[x]) - row[x - 1]);
            swappedBytes += std::abs(static_cast<double>(swapped(row[x])) - swapped(row[x - 1]));
            usesLowByte = usesLowByte || (static_cast<std::uint32_t>(row[x]) & 0xFFU) != 0;
        }
    }
    return usesLowByte ? judge(asRead, swappedBytes) : OrderGuess::unknown;
}

template <typename T>
OrderGuess guessOfFloats(const cv::Mat& frame)
{
    const auto isAbsurd = [](T value) {
        return !std::isfinite(value) ||
               (value != 0 && (std::abs(value) > T(1e12) || std::abs(value) < T(1e-12)));
    };
    double asRead = 0.0;
    double swappedBytes = 0.0;
    for (int y = 0; y < frame.rows; ++y)
        for (int x = 0; x < frame.cols; ++x) {
            asRead += isAbsurd(frame.at<T>(y, x)) ? 1.0 : 0.0;
            swappedBytes += isAbsurd(swapped(frame.at<T>(y, x))) ? 1.0 : 0.0;
        }
    return judge(asRead, swappedBytes);
}

}  // namespace

OrderGuess guessByteOrder(const cv::Mat& frame)
{
    switch (frame.depth()) {
        case CV_16U:
            return guessOfCounts<std::uint16_t>(frame);
        case CV_16S:
            return guessOfCounts<std::int16_t>(frame);
        case CV_32F:
            return guessOfFloats<float>(frame);
        case CV_64F:
            return guessOfFloats<double>(frame);
        default:
            return OrderGuess::unknown;
    }
}

bool looksLikeWiderSamples(const cv::Mat_<std::uint16_t>& frame)
{
    if (frame.total() < 256)  // chance may do it
        return false;
    for (const int parts : {2, 4}) {
        double neighbours = 0.0;
        std::array<double, 4> apart{};  // by the place of a part in its sample
        for (int y = 0; y < frame.rows; ++y)
            for (int x = parts; x < frame.cols; ++x) {
                const double value = frame(y, x);
                neighbours += std::abs(value - frame(y, x - 1)) / parts;
                apart.at(static_cast<std::size_t>(x % parts)) += std::abs(value - frame(y, x - parts));
            }
        const auto [least, most] = std::minmax_element(apart.begin(), apart.begin() + parts);
        if (neighbours > clearly * *least && *most > clearly * *least)
            return true;
    }
    return false;
}

bool looksTurned(const cv::Mat_<std::uint16_t>& frame)
{
    constexpr double farMore = 1.8;  // recordings have 2.4 to 60, and 0.02 to 0.4 with the right size
    if (frame.rows == frame.cols || frame.total() < 256 || !frame.isContinuous())
        return false;
    const auto roughness = [&frame](int lag) {
        const std::span pixels(frame[0], frame.total());
        double sum = 0.0;
        for (std::size_t i = static_cast<std::size_t>(lag); i < pixels.size(); ++i)
            sum += std::abs(pixels[i] - pixels[i - static_cast<std::size_t>(lag)]);
        return sum / static_cast<double>(pixels.size() - static_cast<std::size_t>(lag));
    };
    return roughness(frame.cols) > farMore * roughness(frame.rows);
}

}  // namespace vxapp
