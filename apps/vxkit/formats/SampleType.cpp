// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/formats/SampleType.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "apps/vxkit/formats/FileFormats.h"

namespace vxapp {

namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();

void swapEach(char* bytes, std::size_t count, std::size_t width)
{
    for (std::size_t i = 0; i < count; ++i)
        std::reverse(bytes + i * width, bytes + (i + 1) * width);
}

template <typename From, typename To>
void copyValues(const char* from, std::size_t count, char* to)
{
    for (std::size_t i = 0; i < count; ++i) {
        From value{};
        std::memcpy(&value, from + i * sizeof(From), sizeof(From));
        const To wide = static_cast<To>(value);
        std::memcpy(to + i * sizeof(To), &wide, sizeof(To));
    }
}

double nearestIn(const SampleFacts& facts, double value)
{
    if (facts.type == SampleType::f64)
        return value;
    if (facts.type == SampleType::f32) {
        constexpr double largest = std::numeric_limits<float>::max();
        const bool overflows = std::isfinite(value) && std::abs(value) > largest;
        return overflows ? std::copysign(largest, value) : static_cast<double>(static_cast<float>(value));
    }
    return std::isnan(value) ? 0.0 : std::clamp(std::round(value), facts.low, facts.high);
}

void count(ConversionLosses& losses, const SampleFacts& to, double value, double kept, cv::Point place)
{
    if (kept == value || (std::isnan(kept) && std::isnan(value)))
        return;
    if (std::isnan(value))
        ++losses.undefined;
    else if (isFloatType(to.type) ? std::abs(value) > std::numeric_limits<float>::max()
                                  : std::round(value) != kept)
        ++losses.clipped;
    else
        ++losses.rounded;
    if (!losses.any()) {
        losses.example = value;
        losses.place = place;
    }
}

}  // namespace

const std::vector<SampleFacts>& sampleTypes()
{
    static const std::vector<SampleFacts> types{
        {SampleType::u8, "u8", "unsigned 8-bit counts", CV_8UC1, 1, 0.0, 255.0},
        {SampleType::u16, "u16", "16-bit counts", CV_16UC1, 2, 0.0, 65535.0},
        {SampleType::s16, "s16", "signed 16-bit counts", CV_16SC1, 2, -32768.0, 32767.0},
        {SampleType::u32, "u32", "unsigned 32-bit counts", CV_64FC1, 4, 0.0, 4294967295.0},
        {SampleType::s32, "s32", "signed 32-bit counts", CV_32SC1, 4, -2147483648.0, 2147483647.0},
        {SampleType::f32, "f32", "32-bit floats", CV_32FC1, 4, -infinite, infinite},
        {SampleType::f64, "f64", "64-bit floats", CV_64FC1, 8, -infinite, infinite},
    };
    return types;
}

const SampleFacts& factsOf(SampleType type)
{
    return sampleTypes().at(static_cast<std::size_t>(type));
}

std::optional<SampleType> sampleTypeNamed(std::string_view name)
{
    for (const SampleFacts& facts : sampleTypes())
        if (facts.name == name)
            return facts.type;
    return std::nullopt;
}

std::string sampleTypeNames()
{
    std::vector<std::string_view> names;
    for (const SampleFacts& facts : sampleTypes())
        names.push_back(facts.name);
    return orList(names);
}

SampleType sampleTypeOf(int storage)
{
    if (storage == CV_64FC1)
        return SampleType::f64;
    for (const SampleFacts& facts : sampleTypes())
        if (facts.storage == storage)
            return facts.type;
    return SampleType::u16;
}

cv::Mat decodeSamples(std::span<const char> bytes, cv::Size size, SampleType type, std::endian order)
{
    const SampleFacts& facts = factsOf(type);
    cv::Mat frame(size, facts.storage);
    if (type != SampleType::u32) {
        std::memcpy(frame.ptr<char>(), bytes.data(), frame.total() * facts.bytes);
        if (order != std::endian::native)
            swapEach(frame.ptr<char>(), frame.total(), facts.bytes);
        return frame;
    }
    std::string words(bytes.data(), frame.total() * facts.bytes);
    if (order != std::endian::native)
        swapEach(words.data(), frame.total(), facts.bytes);
    copyValues<std::uint32_t, double>(words.data(), frame.total(), frame.ptr<char>());
    return frame;
}

std::string encodeSamples(const cv::Mat& frame, SampleType type, std::endian order)
{
    const SampleFacts& facts = factsOf(type);
    const cv::Mat gapless = frame.isContinuous() ? frame : frame.clone();
    std::string bytes(gapless.total() * facts.bytes, '\0');
    if (type == SampleType::u32)
        copyValues<double, std::uint32_t>(gapless.ptr<char>(), gapless.total(), bytes.data());
    else
        std::memcpy(bytes.data(), gapless.ptr<char>(), bytes.size());
    if (order != std::endian::native)
        swapEach(bytes.data(), gapless.total(), facts.bytes);
    return bytes;
}

std::string valueText(double value, SampleType type)
{
    std::array<char, 64> text{};
    char* const end = text.data() + text.size();
    const auto written = type == SampleType::f32 ? std::to_chars(text.data(), end, static_cast<float>(value))
                                                 : std::to_chars(text.data(), end, value);
    return {text.data(), written.ptr};
}

cv::Mat convertSamples(const cv::Mat& frame, SampleType to, ConversionLosses& losses)
{
    const SampleFacts& facts = factsOf(to);
    cv::Mat_<double> values;
    frame.convertTo(values, CV_64F);
    for (int y = 0; y < values.rows; ++y)
        for (int x = 0; x < values.cols; ++x) {
            const double value = values(y, x);
            values(y, x) = nearestIn(facts, value);
            count(losses, facts, value, values(y, x), {x, y});
        }
    cv::Mat converted;
    values.convertTo(converted, facts.storage);
    return converted;
}

}  // namespace vxapp
