// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bit>
#include <cstddef>
#include <opencv2/core/mat.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vxapp {

/// What one pixel of a file holds: u unsigned, s signed, f floating point, and its bits.
enum class SampleType
{
    u8,
    u16,
    s16,
    u32,
    s32,
    f32,
    f64
};

/// Facts about a type of samples.
struct SampleFacts
{
    SampleType type;
    std::string_view name;  ///< "u16", as options call it
    std::string_view text;  ///< "unsigned 16-bit counts"
    int storage;            ///< OpenCV's type of a frame; CV_64FC1 holds u32, for which OpenCV has none
    std::size_t bytes;      ///< of a sample in a file
    double low;             ///< least and largest value; infinite for floats
    double high;
};

const SampleFacts& factsOf(SampleType type);
const std::vector<SampleFacts>& sampleTypes();
std::optional<SampleType> sampleTypeNamed(std::string_view name);
/// "u8, u16, ... or f64"
std::string sampleTypeNames();

/// The type of samples that a frame of an OpenCV type holds; f64 for CV_64FC1.
SampleType sampleTypeOf(int storage);
inline bool isFloatType(SampleType type)
{
    return type == SampleType::f32 || type == SampleType::f64;
}

/// A frame from the bytes of its samples, row by row.
/// @param bytes  as many as the size and type ask for
cv::Mat decodeSamples(std::span<const char> bytes, cv::Size size, SampleType type, std::endian order);

/// The way back.
/// @param frame  of the type's storage
std::string encodeSamples(const cv::Mat& frame, SampleType type, std::endian order);

/// A value with the fewest digits from which it can be read again.
/// @param type  of the samples that it comes from
std::string valueText(double value, SampleType type);

/// What became of values in another type.
struct ConversionLosses
{
    std::size_t rounded = 0;    ///< values between two of the type
    std::size_t clipped = 0;    ///< values beyond the type, which became its nearest
    std::size_t undefined = 0;  ///< values that are no numbers, which became 0
    double example = 0.0;       ///< the first of the values above
    cv::Point place{-1, -1};    ///< and its column and row

    bool any() const { return place.x >= 0; }
};

/// A frame in another type, each value the nearest one. Values of f32 that are finite stay finite.
/// @param losses  takes what did not fit
cv::Mat convertSamples(const cv::Mat& frame, SampleType to, ConversionLosses& losses);

}  // namespace vxapp
