// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>

#include "apps/vxkit/output/StreamSink.h"

namespace vxapp {

namespace {

// Readers take a table whose numbers have more digits for 64-bit floats.
constexpr int digitsOfFloats = 9;

template <typename T>
std::string shortest(T value)
{
    std::array<char, 64> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

std::string textOf(std::int64_t value)
{
    return shortest(value);
}

std::string textOf(float value)
{
    return std::isnan(value) ? "nan" : shortest(value);
}

std::ptrdiff_t significantDigits(const std::string& text)
{
    const auto isSignificant = [started = false](unsigned char c) mutable {
        started = started || (c >= '1' && c <= '9');
        return started && std::isdigit(c) != 0;
    };
    return std::count_if(text.begin(), std::find(text.begin(), text.end(), 'e'), isSignificant);
}

// The shortest text from which the value can be read again, with zeros behind it if need be.
std::string textOf(double value)
{
    std::string text = std::isnan(value) ? "nan" : shortest(value);
    if (!std::isfinite(value) || significantDigits(text) > digitsOfFloats)
        return text;
    std::array<char, 64> padded{};
    return {padded.data(), std::to_chars(padded.data(), padded.data() + padded.size(), value,
                                         std::chars_format::scientific, digitsOfFloats)
                               .ptr};
}

template <typename T, typename Number>
void appendNumbers(const cv::Mat& frame, int y, std::string& text)
{
    for (int x = 0; x < frame.cols; ++x) {
        if (x > 0)
            text.push_back(',');
        text += textOf(static_cast<Number>(frame.at<T>(y, x)));
    }
    text.push_back('\n');
}

class CsvSink : public StreamSink
{
public:
    using StreamSink::StreamSink;

private:
    std::string encode(const cv::Mat& frame, int index) const override
    {
        std::string text = index > 0 ? "\n" : "";
        for (int y = 0; y < frame.rows; ++y)
            appendRow(frame, y, text);
        return text;
    }

    void appendRow(const cv::Mat& frame, int y, std::string& text) const
    {
        switch (shape().samples) {
            case SampleType::u8:
                return appendNumbers<std::uint8_t, std::int64_t>(frame, y, text);
            case SampleType::u16:
                return appendNumbers<std::uint16_t, std::int64_t>(frame, y, text);
            case SampleType::s16:
                return appendNumbers<std::int16_t, std::int64_t>(frame, y, text);
            case SampleType::s32:
                return appendNumbers<std::int32_t, std::int64_t>(frame, y, text);
            case SampleType::u32:
                return appendNumbers<double, std::int64_t>(frame, y, text);
            case SampleType::f32:
                return appendNumbers<float, float>(frame, y, text);
            case SampleType::f64:
                return appendNumbers<double, double>(frame, y, text);
        }
    }
};

}  // namespace

std::unique_ptr<FrameSink> openCsvSink(const SinkRequest& request)
{
    return std::make_unique<CsvSink>(request);
}

}  // namespace vxapp
