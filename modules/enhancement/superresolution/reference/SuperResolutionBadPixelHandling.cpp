// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/reference/SuperResolutionBadPixelHandling.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

#include "core/base/Exception.h"
#include "core/base/Kernel.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "enhancement/superresolution/engine/PixelValues.h"

namespace halvor::vx {

namespace {

enum DefectCode : unsigned char
{
    good = 0,
    underRangeMarked = 1,
    overRangeMarked = 2,
    invalid = 3,
    belowLimit = 4,
    aboveLimit = 5,
};

// How far a defect's trace is taken to reach in the large image, and how much larger that image is.
constexpr int stampRadius = 3;
constexpr float enlargement = 2.0F;
constexpr int largestUnrepairableCount = 10;

// Bitwise operators, so that the row kernels have no branch.
inline bool isDefect(float value, float minValue, float maxValue)
{
    const bool inRange = static_cast<bool>((value >= minValue) & (value <= maxValue));
    return static_cast<bool>(!inRange | isPixelMarker(value));
}

VX_KERNEL bool rowHasDefect(const float* row, int n, float minValue, float maxValue)
{
    std::uint32_t defects = 0;
    for (int i = 0; i < n; ++i)
        defects |= isDefect(row[i], minValue, maxValue) ? 1U : 0U;
    return defects != 0;
}

VX_KERNEL bool rowHasNonZero(const unsigned char* row, int n)
{
    unsigned char all = 0;
    for (int i = 0; i < n; ++i)
        all = static_cast<unsigned char>(all | row[i]);
    return all != 0;
}

// The markers that a refill looks for: no 0x85, which is never stamped.
inline bool isStamp(float value)
{
    const auto bits = std::bit_cast<std::uint32_t>(value);
    return static_cast<bool>((bits == PixelMarker::overRange) | (bits == PixelMarker::underRange) |
                             (bits == PixelMarker::invalid));
}

VX_KERNEL bool rowHasStamp(const float* row, int n)
{
    std::uint32_t stamps = 0;
    for (int i = 0; i < n; ++i)
        stamps |= isStamp(row[i]) ? 1U : 0U;
    return stamps != 0;
}

struct Extremes
{
    float minimum;
    float maximum;
};

// Extremes of a row's good pixels, in independent lanes so that the comparisons vectorise. Of equal values
// any one may come out, so the sign of a zero is open.
VX_KERNEL Extremes rowExtremes(const float* row, int n, float minValue, float maxValue)
{
    constexpr int lanes = 16;
    float low[lanes];
    float high[lanes];
    for (int lane = 0; lane < lanes; ++lane) {
        low[lane] = maxValue;
        high[lane] = minValue;
    }
    int i = 0;
    for (; i + lanes <= n; i += lanes) {
        for (int lane = 0; lane < lanes; ++lane) {
            const float value = row[i + lane];
            const bool defect = isDefect(value, minValue, maxValue);
            const float forLow = defect ? maxValue : value;
            const float forHigh = defect ? minValue : value;
            low[lane] = forLow < low[lane] ? forLow : low[lane];
            high[lane] = forHigh > high[lane] ? forHigh : high[lane];
        }
    }
    for (; i < n; ++i) {
        if (isDefect(row[i], minValue, maxValue))
            continue;
        low[0] = std::min(low[0], row[i]);
        high[0] = std::max(high[0], row[i]);
    }
    return {*std::min_element(low, low + lanes), *std::max_element(high, high + lanes)};
}

template <typename Pixel>
bool contains(const cv::Mat_<Pixel>& image, int x, int y)
{
    return x >= 0 && y >= 0 && x < image.cols && y < image.rows;
}

std::uint32_t stampFor(unsigned char code)
{
    switch (code) {
        case underRangeMarked:
            return PixelMarker::underRange;
        case overRangeMarked:
            return PixelMarker::overRange;
        default:
            return PixelMarker::invalid;
    }
}

void stampBlock(cv::Mat_<float>& result, int centreX, int centreY, float stamp)
{
    for (int y = centreY - stampRadius; y <= centreY + stampRadius; ++y)
        for (int x = centreX - stampRadius; x <= centreX + stampRadius; ++x)
            if (contains(result, x, y))
                result(y, x) = stamp;
}

// Stamps the place in the large image where pixel (row, column) of a frame landed. The comparisons are made
// before the conversion, so that a not-a-number or a huge shift is no undefined cast.
void stampDefect(cv::Mat_<float>& result, int row, int column, const PointF& shift, unsigned char code)
{
    const float x = (static_cast<float>(column) - shift.x) * enlargement;
    const float y = (static_cast<float>(row) - shift.y) * enlargement;
    const bool rowInside = y >= 0.0F && y < static_cast<float>(result.rows);
    const bool blockReachesColumns = x >= 0.0F && x < static_cast<float>(result.cols + stampRadius);
    if (rowInside && blockReachesColumns)
        stampBlock(result, static_cast<int>(std::floor(x)), static_cast<int>(std::floor(y)),
                   std::bit_cast<float>(stampFor(code)));
}

// Whether truncation gives an index of 0 to count - 1.
bool truncatesInside(float position, int count)
{
    return position > -1.0F && position < static_cast<float>(count);
}

}  // namespace

SuperResolutionBadPixelHandling::SuperResolutionBadPixelHandling(unsigned int frameCount)
    : maxFrames_(frameCount), neighbours_{{{-1, 0}, {1, 0}, {0, -1}, {0, 1}}}
{
    setDataIsNUC(false);
    defectMaps_.reserve(maxFrames_);
}

void SuperResolutionBadPixelHandling::setDataIsNUC(bool isNUC)
{
    dataIsNuc_ = isNUC;
    const PixelLimits& limits = isNUC ? countLimits : temperatureLimits;
    minValue_ = limits.lowest;
    maxValue_ = limits.highest;
}

int SuperResolutionBadPixelHandling::detectAndReplaceBadPixel(cv::Mat_<float>& frame)
{
    cv::Mat_<unsigned char> map = nextMap(frame.size());
    Repair outcome;
    if (hasDefects(frame))
        outcome = repair(frame, map);
    if (maxFrames_ > 0)
        defectMaps_.push_back(std::move(map));
    if (outcome.unrepairable > largestUnrepairableCount)
        throw Exception("Too many defect pixels. No processing possible.",
                        VX_WHERE("halvor::vx::SuperResolutionBadPixelHandling::detectAndReplaceBadPixel"));
    return outcome.usedFallback ? SuperResolution_fallbackPixel : SuperResolution_success;
}

void SuperResolutionBadPixelHandling::maskBadPixel(cv::Mat_<float>& result,
                                                   const std::vector<PointF>& shifts) const
{
    if (shifts.size() != defectMaps_.size())
        throw Exception("maskBadPixel(): number of shifts ist not equal to number of defectMaps",
                        VX_WHERE("halvor::vx::SuperResolutionBadPixelHandling::maskBadPixel"));
    for (std::size_t i = 0; i < defectMaps_.size(); ++i) {
        for (int row = 0; row < defectMaps_[i].rows; ++row) {
            const unsigned char* codes = defectMaps_[i][row];
            if (!rowHasNonZero(codes, defectMaps_[i].cols))
                continue;
            for (int column = 0; column < defectMaps_[i].cols; ++column)
                if (codes[column] != good)
                    stampDefect(result, row, column, shifts[i], codes[column]);
        }
    }
}

void SuperResolutionBadPixelHandling::replaceMaskedPixel(cv::Mat_<float>& result,
                                                         const std::vector<PointF>& shifts,
                                                         const std::vector<cv::Mat_<float>>& frames) const
{
    if (defectMaps_.empty())
        throw Exception("bad pixel masks not initalized",
                        VX_WHERE("halvor::vx::SuperResolutionBadPixelHandling::replaceMaskedPixel"));
    for (int row = 0; row < result.rows; ++row) {
        float* pixels = result[row];
        if (!rowHasStamp(pixels, result.cols))
            continue;
        for (int column = 0; column < result.cols; ++column)
            if (isStamp(pixels[column]))
                refill(pixels[column], column, row, shifts, frames);
    }
}

void SuperResolutionBadPixelHandling::colorBadPixel(const cv::Mat_<float>& image,
                                                    cv::Mat_<cv::Vec<unsigned char, 3>>& colours)
{
    if (image.size() != colours.size())
        throw Exception("colorBadPixel(): image and colours have different sizes",
                        VX_WHERE("halvor::vx::SuperResolutionBadPixelHandling::colorBadPixel"));
    for (int row = 0; row < image.rows; ++row) {
        for (int column = 0; column < image.cols; ++column) {
            const auto bits = std::bit_cast<std::uint32_t>(image(row, column));
            if (bits == PixelMarker::overRange)
                colours(row, column) = {0, 0, 255};
            else if (bits == PixelMarker::underRange)
                colours(row, column) = {255, 0, 0};
        }
    }
}

void SuperResolutionBadPixelHandling::getMinMaxVal(const cv::Mat_<float>& image, float& minimum,
                                                   float& maximum, cv::Point_<int>* minimumPlace,
                                                   cv::Point_<int>* maximumPlace) const
{
    minimum = maxValue_;
    maximum = minValue_;
    for (int row = 0; row < image.rows; ++row) {
        const float* pixels = image[row];
        const Extremes extremes = rowExtremes(pixels, image.cols, minValue_, maxValue_);
        // Reading the value back at its first place settles which zero it is, and the place.
        if (extremes.minimum < minimum) {
            const auto column = std::find(pixels, pixels + image.cols, extremes.minimum) - pixels;
            minimum = pixels[column];
            if (minimumPlace != nullptr)
                *minimumPlace = {static_cast<int>(column), row};
        }
        if (extremes.maximum > maximum) {
            const auto column = std::find(pixels, pixels + image.cols, extremes.maximum) - pixels;
            maximum = pixels[column];
            if (maximumPlace != nullptr)
                *maximumPlace = {static_cast<int>(column), row};
        }
    }
}

bool SuperResolutionBadPixelHandling::isValid(float value) const
{
    return !isDefect(value, minValue_, maxValue_);
}

unsigned char SuperResolutionBadPixelHandling::defectCode(float value) const
{
    if (value > maxValue_)
        return aboveLimit;
    if (value < minValue_)
        return belowLimit;
    if (isValid(value))
        return good;
    switch (std::bit_cast<std::uint32_t>(value)) {
        case PixelMarker::overRange:
            return overRangeMarked;
        case PixelMarker::underRange:
            return underRangeMarked;
        default:
            return invalid;
    }
}

bool SuperResolutionBadPixelHandling::getReplacementValue_(const cv::Mat_<float>& image, int x, int y,
                                                           float& value) const
{
    float sum = 0.0F;
    int count = 0;
    for (const PointI& neighbour : neighbours_) {
        const int column = x + neighbour.x;
        const int row = y + neighbour.y;
        if (!contains(image, column, row) || !isValid(image(row, column)))
            continue;
        sum += image(row, column);
        ++count;
    }
    if (count > 0)
        value = sum / static_cast<float>(count);
    const bool atEdge = x == 0 || y == 0 || x == image.cols - 1 || y == image.rows - 1;
    return count == 4 || (count == 3 && atEdge);
}

bool SuperResolutionBadPixelHandling::hasDefects(const cv::Mat_<float>& frame) const
{
    for (int row = 0; row < frame.rows; ++row)
        if (rowHasDefect(frame[row], frame.cols, minValue_, maxValue_))
            return true;
    return false;
}

// The scan repairs in place: pixels further on see repaired neighbours, but the frame's extremes stay those
// from before.
SuperResolutionBadPixelHandling::Repair SuperResolutionBadPixelHandling::repair(
    cv::Mat_<float>& frame, cv::Mat_<unsigned char>& map) const
{
    Repair outcome;
    float smallest = 0.0F;
    float largest = 0.0F;
    getMinMaxVal(frame, smallest, largest, nullptr, nullptr);
    for (int row = 0; row < frame.rows; ++row) {
        if (!rowHasDefect(frame[row], frame.cols, minValue_, maxValue_))
            continue;
        for (int column = 0; column < frame.cols; ++column) {
            const unsigned char code = defectCode(frame(row, column));
            if (code == good)
                continue;
            map(row, column) = code;
            float replacement = 0.0F;
            if (!getReplacementValue_(frame, column, row, replacement))
                replacement = fallbackFor(code, smallest, largest, outcome);
            frame(row, column) = replacement;
        }
    }
    return outcome;
}

float SuperResolutionBadPixelHandling::fallbackFor(unsigned char code, float smallest, float largest,
                                                   Repair& outcome)
{
    // Marked pixels are known to be beyond the sensor's range: their fallback is no loss worth telling.
    outcome.usedFallback |= code != overRangeMarked && code != underRangeMarked;
    switch (code) {
        case overRangeMarked:
        case aboveLimit:
            return largest;
        case underRangeMarked:
        case belowLimit:
            return smallest;
        default:
            ++outcome.unrepairable;
            return 0.0F;
    }
}

// A cleared map of the frame's size: the oldest one, taken out of the window, once the window is full.
cv::Mat_<unsigned char> SuperResolutionBadPixelHandling::nextMap(const cv::Size& size)
{
    cv::Mat_<unsigned char> map;
    if (!defectMaps_.empty() && defectMaps_.size() >= maxFrames_) {
        map = std::move(defectMaps_.front());
        defectMaps_.erase(defectMaps_.begin());
    }
    map.create(size);
    map.setTo(0);
    return map;
}

void SuperResolutionBadPixelHandling::refill(float& pixel, int x, int y, const std::vector<PointF>& shifts,
                                             const std::vector<cv::Mat_<float>>& frames) const
{
    const std::size_t usable = std::min({frames.size(), shifts.size(), defectMaps_.size()});
    const cv::Size size = defectMaps_.front().size();
    float sum = 0.0F;
    int count = 0;
    for (std::size_t i = 0; i < usable; ++i) {
        const float frameX = static_cast<float>(x) / enlargement + shifts[i].x;
        const float frameY = static_cast<float>(y) / enlargement + shifts[i].y;
        if (!truncatesInside(frameX, size.width) || !truncatesInside(frameY, size.height))
            continue;
        const int column = static_cast<int>(frameX);
        const int row = static_cast<int>(frameY);
        if (!contains(defectMaps_[i], column, row) || !contains(frames[i], column, row))
            continue;
        if (defectMaps_[i](row, column) != good)
            continue;
        sum += frames[i](row, column);
        ++count;
    }
    if (count > 0)
        pixel = sum / static_cast<float>(count);
}

}  // namespace halvor::vx
