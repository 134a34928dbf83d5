// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/SampleScale.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <opencv2/core.hpp>
#include <sstream>
#include <vector>

#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/FrameSink.h"
#include "apps/vxkit/stream/BadPixels.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

constexpr double mostCount = 65535.0;
constexpr double middleCount = 32768.0;
constexpr double largestSigned = 32767.0;
// With fewer values that are numbers, neighbours can't stand in for the others.
constexpr double leastDefinedShare = 0.5;
constexpr double countsPerNoise = 4.0;
constexpr int shownDigits = 10;
constexpr double leastRange = 1e-20;
constexpr double countsWithoutNoise = 10000.0;  // of the range

cv::Mat asDoubles(const cv::Mat& frame)
{
    cv::Mat values;
    frame.convertTo(values, CV_64F);
    return values;
}

/// What the finite values of a recording are like.
struct Extent
{
    double low = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();
    bool isWhole = true;
    double noise = 0.0;

    double range() const { return high - low; }
};

// Quartile of what values differ by from the mean of their neighbours left and right; it is 0 where most of them
// lie on a line.
double noiseOf(const cv::Mat_<double>& frame)
{
    std::vector<double> deviations;
    deviations.reserve(frame.total());
    for (int y = 0; y < frame.rows; ++y)
        for (int x = 1; x + 1 < frame.cols; ++x) {
            const double deviation = frame(y, x) - (frame(y, x - 1) + frame(y, x + 1)) / 2.0;
            if (std::isfinite(deviation))
                deviations.push_back(std::abs(deviation));
        }
    if (deviations.empty())
        return 0.0;
    const auto middle = deviations.begin() + static_cast<std::ptrdiff_t>(deviations.size() / 2);
    std::nth_element(deviations.begin(), middle, deviations.end());
    constexpr double medianPerDeviation = 0.6745;
    return *middle / medianPerDeviation / std::sqrt(1.5);
}

Extent extentOf(Recording& recording)
{
    Extent extent;
    for (int i = 0; i < recording.frameCount(); ++i) {
        const cv::Mat_<double> values = asDoubles(recording.frame(i));
        for (const double value : values)
            if (std::isfinite(value)) {
                extent.low = std::min(extent.low, value);
                extent.high = std::max(extent.high, value);
                extent.isWhole = extent.isWhole && value == std::floor(value);
            }
        if (i == 0)
            extent.noise = noiseOf(values);
    }
    if (!(extent.low <= extent.high))
        throw UsageError(recording.nameOf(0) + ": holds no finite values");
    return extent;
}

// 1, 2 or 5 times a power of ten: the largest up to a value.
double roundedDown(double value)
{
    const double power = std::pow(10.0, std::floor(std::log10(value)));
    for (const double digit : {5.0, 2.0})
        if (digit * power <= value * (1.0 + 1e-9))
            return digit * power;
    return power;
}

double roundedUp(double value)
{
    const double power = std::pow(10.0, std::floor(std::log10(value)));
    for (const double digit : {1.0, 2.0, 5.0})
        if (digit * power >= value * (1.0 - 1e-9))
            return digit * power;
    return 10.0 * power;
}

double finiteOr(const char* option, std::optional<double> value, double usual)
{
    if (value && !std::isfinite(*value))
        throw UsageError(std::string(option) + ": expected a finite number");
    return value.value_or(usual);
}

}  // namespace

SampleScale::SampleScale(Recording& recording, const ScaleOptions& options)
    : form_(options.form),
      fileType_(recording.sampleType()),
      valueType_(fileType_),
      scale_(finiteOr("--scale", options.scale, 1.0)),
      offset_(finiteOr("--offset", options.offset, 0.0))
{
    if (scale_ == 0.0)
        throw UsageError("--scale 0: expected another number");
    const bool isCounts = fileType_ == SampleType::u16 || fileType_ == SampleType::s16;
    if (form_ == SampleForm::signedSamples && !isCounts)
        throw UsageError("--signed: the recording holds " + std::string(factsOf(fileType_).text) +
                         "; expected 16-bit counts");
    if (fileType_ == SampleType::s16)
        form_ = SampleForm::signedSamples;
    if (!isCounts && !options.scale && !options.offset)
        choose(recording);
    const bool isFloat = isFloatType(fileType_);
    if (isCounts && !isPlain())
        valueType_ = SampleType::f32;
    else if (!isCounts && !isFloat)
        valueType_ = isPlain() ? SampleType::u16 : SampleType::f64;
}

void SampleScale::choose(Recording& recording)
{
    isChosen_ = true;
    const Extent extent = extentOf(recording);
    if (extent.isWhole && extent.low >= 0.0 && extent.high <= mostCount)
        return;
    if (extent.isWhole && extent.range() <= mostCount) {
        offset_ = extent.low;
        return;
    }
    noise_ = extent.noise;
    const double range = std::max(extent.range(), leastRange);
    const double needed = roundedUp(range / (mostCount - 1.0));
    scale_ = std::max(
        needed, roundedDown(extent.noise > 0.0 ? extent.noise / countsPerNoise : range / countsWithoutNoise));
    offset_ = std::floor(extent.low / scale_) * scale_;
}

void SampleScale::toSamples(Recording& recording, int index, cv::Mat_<short>& samples)
{
    const cv::Mat frame = recording.frame(index);
    if (frame.type() == CV_16SC1) {
        frame.copyTo(samples);
    } else if (frame.type() == CV_16UC1) {
        const cv::Mat_<std::uint16_t> counts = frame;
        vxapp::toSamples(counts, form_, samples);
        largestCount_ =
            std::max(largestCount_, static_cast<double>(*std::max_element(counts.begin(), counts.end())));
    } else {
        undefined_[index] = convert(asDoubles(frame), recording.nameOf(index), samples);
    }
}

int SampleScale::convert(const cv::Mat& values, const std::string& name, cv::Mat_<short>& samples) const
{
    BadPixelMap undefined;
    undefined.marks = cv::Mat_<std::uint8_t>::zeros(values.size());
    samples.create(values.size());
    for (int y = 0; y < values.rows; ++y)
        for (int x = 0; x < values.cols; ++x) {
            const double value = values.at<double>(y, x);
            const double count = std::round((value - offset_) / scale_);
            if (!std::isfinite(value)) {
                undefined.marks(y, x) = BadPixelMap::hot;
                samples(y, x) = 0;
                continue;
            }
            if (count < 0.0 || count > mostCount) {
                std::ostringstream text;
                text << name << ": holds " << value << ", which is no count by --scale " << scale_
                     << " --offset " << offset_ << "; expected "
                     << std::min(offset_, offset_ + mostCount * scale_) << " to "
                     << std::max(offset_, offset_ + mostCount * scale_);
                throw UsageError(text.str());
            }
            samples(y, x) = static_cast<short>(count - middleCount);
        }
    const int count = undefined.bad();
    if (count > static_cast<int>(leastDefinedShare * static_cast<double>(values.total())))
        throw UsageError(name + ": most of its values are no numbers");
    BadPixelMender(undefined).mend(samples);
    return count;
}

cv::Mat SampleScale::toValues(const cv::Mat_<short>& samples) const
{
    if (valueType_ == SampleType::u16) {
        cv::Mat_<std::uint16_t> counts;
        toCounts(samples, form_, counts);
        return counts;
    }
    if (valueType_ == SampleType::s16)
        return samples.clone();
    const double zero = form_ == SampleForm::signedSamples ? 0.0 : middleCount;
    cv::Mat values;
    samples.convertTo(values, CV_64F, scale_, zero * scale_ + offset_);
    values.convertTo(values, factsOf(valueType_).storage);
    return values;
}

SampleType SampleScale::typeFor(const SequenceOptions& options) const
{
    const FileFormat* const format =
        options.format.empty() ? formatOf(options.path) : formatNamed(options.format);
    return format == nullptr || format->takes(valueType_) ? valueType_ : SampleType::u16;
}

cv::Mat SampleScale::toFile(const cv::Mat_<short>& samples, SampleType type) const
{
    if (type == valueType_)
        return toValues(samples);
    cv::Mat_<std::uint16_t> counts;
    toCounts(samples, form_, counts);
    return counts;
}

std::string SampleScale::description() const
{
    std::ostringstream text;
    text << std::setprecision(shownDigits) << "samples: " << factsOf(fileType_).text;
    if (form_ == SampleForm::signedSamples && fileType_ == SampleType::u16)
        text << ", taken as two's complement";
    if (!isPlain())
        text << "; value = count * " << scale_ << (offset_ < 0.0 ? " - " : " + ") << std::abs(offset_)
             << (isChosen_ ? ", chosen from the recording" : "");
    else if (isChosen_)
        text << "; whole numbers, taken as counts";
    if (lostDetail())
        text << "\nwarning: a count is more than the noise of " << noise_
             << ", since the values go so far apart: detail is lost; --scale and --offset choose the range "
                "that matters";
    return text.str();
}

int SampleScale::undefinedValues() const
{
    int undefined = 0;
    for (const auto& [frame, count] : undefined_)
        undefined += count;
    return undefined;
}

std::optional<double> SampleScale::lostDetail() const
{
    return scale_ > noise_ && noise_ > 0.0 ? std::optional(scale_) : std::nullopt;
}

std::string SampleScale::remarks() const
{
    std::string text;
    if (fileType_ == SampleType::u16 && form_ == SampleForm::unsignedCounts && largestCount_ > largestSigned)
        text += "note: counts up to " + std::to_string(static_cast<int>(largestCount_)) +
                " were taken as unsigned; --signed takes those above 32767 as negative\n";
    if (const int undefined = undefinedValues(); undefined > 0)
        text += "note: " + std::to_string(undefined) +
                (undefined == 1 ? " value was no number and was" : " values were no numbers and were") +
                " filled in from neighbours\n";
    return text;
}

}  // namespace vxapp
