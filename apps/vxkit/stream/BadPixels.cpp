// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/BadPixels.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <optional>

#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/formats/PngChunks.h"
#include "apps/vxkit/input/FrameFile.h"
#include "apps/vxkit/input/RegularFile.h"
#include "apps/vxkit/output/Output.h"
#include "apps/vxkit/stream/SampleQuantiles.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/QuietStream.h"

namespace vxapp {

namespace {

constexpr double lastingShare = 0.9;     // of the frames
constexpr double neighbourShare = 0.25;  // of a peak, that a point of the scene lends its neighbours
constexpr double leastDeviation = 1.0;   // counts, of frames without noise
constexpr int border = 2;
constexpr int widestRepair = 4;

// What peaks are, in one frame.
constexpr std::uint8_t nothing = 0;
constexpr std::uint8_t lone = 1;    // no neighbour is high
constexpr std::uint8_t paired = 2;  // one neighbour is

/// How a pixel lies to its surroundings.
struct Peak
{
    int height;         // above the median of the 16 pixels at a distance of two
    int second;         // of the eight neighbours, above the same; the highest but one
    int first;          // the highest
    cv::Point highest;  // where that lies from the pixel
};

Peak peakAt(const cv::Mat_<int>& padded, int y, int x)
{
    std::array<int, 16> ring{};
    std::size_t count = 0;
    Peak peak{0, std::numeric_limits<int>::min(), std::numeric_limits<int>::min(), {}};
    for (int dy = -border; dy <= border; ++dy)
        for (int dx = -border; dx <= border; ++dx) {
            const int value = padded(y + border + dy, x + border + dx);
            if (std::max(std::abs(dx), std::abs(dy)) == border) {
                ring[count++] = value;
            } else if ((dx != 0 || dy != 0) && value > peak.first) {
                peak.second = peak.first;
                peak.first = value;
                peak.highest = {dx, dy};
            } else if (dx != 0 || dy != 0) {
                peak.second = std::max(peak.second, value);
            }
        }
    std::nth_element(ring.begin(), ring.begin() + 8, ring.end());
    peak.height = padded(y + border, x + border) - ring[8];
    peak.first -= ring[8];
    peak.second -= ring[8];
    return peak;
}

// Of what neighbours differ by, so that fine texture counts too.
double roughness(const cv::Mat_<int>& image)
{
    if (image.cols < 2)
        return leastDeviation;
    cv::Mat_<int> steps;
    cv::subtract(image.colRange(1, image.cols), image.colRange(0, image.cols - 1), steps);
    return std::max(leastDeviation, SampleQuantiles(steps).deviation() / std::sqrt(2.0));
}

}  // namespace

int BadPixelMap::count(std::uint8_t mark) const
{
    return static_cast<int>(std::count(marks.begin(), marks.end(), mark));
}

int BadPixelMap::bad() const
{
    return static_cast<int>(marks.total()) - count(good);
}

void BadPixelLearner::add(const cv::Mat_<short>& frame)
{
    if (frames_++ == 0) {
        hot_ = cv::Mat_<std::uint16_t>::zeros(frame.size());
        cold_ = hot_.clone();
    }
    frame.convertTo(image_, CV_32S);
    const double threshold = factor_ * roughness(image_);
    cv::copyMakeBorder(image_, padded_, border, border, border, border, cv::BORDER_REFLECT_101);
    findPeaks(padded_, threshold);
    countPeaks(hot_);
    padded_ = -padded_;
    findPeaks(padded_, threshold);
    countPeaks(cold_);
}

void BadPixelLearner::findPeaks(const cv::Mat_<int>& padded, double threshold)
{
    peaks_.create(image_.size());
    peaks_.setTo(nothing);
    for (int y = 0; y < peaks_.rows; ++y)
        for (int x = 0; x < peaks_.cols; ++x) {
            // The way out for nearly all pixels.
            const int* row = padded[y + border] + x + border;
            if (row[0] - std::min(row[-1], row[1]) < threshold / 2)
                continue;
            const Peak peak = peakAt(padded, y, x);
            const double share = neighbourShare * peak.height;
            if (peak.height >= threshold && peak.second < share)
                peaks_(y, x) = peak.first < share ? lone : paired;
        }
}

// A pair counts when each is the other's only high neighbour; a line's end has a neighbour that isn't.
void BadPixelLearner::countPeaks(cv::Mat_<std::uint16_t>& hits) const
{
    const cv::Rect inside({}, peaks_.size());
    for (int y = 0; y < peaks_.rows; ++y)
        for (int x = 0; x < peaks_.cols; ++x) {
            if (peaks_(y, x) == nothing)
                continue;
            bool counts = peaks_(y, x) == lone;
            if (!counts) {
                const cv::Point partner = cv::Point(x, y) + peakAt(padded_, y, x).highest;
                counts = inside.contains(partner) && peaks_(partner) == paired;
            }
            hits(y, x) = static_cast<std::uint16_t>(hits(y, x) + (counts ? 1 : 0));
        }
}

BadPixelMap BadPixelLearner::map() const
{
    BadPixelMap map;
    map.marks = cv::Mat_<std::uint8_t>::zeros(hot_.size());
    const double least = lastingShare * frames_;
    map.marks.setTo(BadPixelMap::hot, hot_ >= least);
    map.marks.setTo(BadPixelMap::cold, cold_ >= least);
    return map;
}

BadPixelMender::BadPixelMender(const BadPixelMap& map)
{
    const cv::Rect inside({}, map.marks.size());
    for (int y = 0; y < map.marks.rows; ++y)
        for (int x = 0; x < map.marks.cols; ++x) {
            if (map.marks(y, x) == BadPixelMap::good)
                continue;
            Repair repair{{x, y}, {}};
            for (int reach = 1; reach <= widestRepair && repair.from.empty(); ++reach) {
                const cv::Rect around = cv::Rect(x - reach, y - reach, 2 * reach + 1, 2 * reach + 1) & inside;
                for (int v = around.y; v < around.y + around.height; ++v)
                    for (int u = around.x; u < around.x + around.width; ++u)
                        if (map.marks(v, u) == BadPixelMap::good)
                            repair.from.emplace_back(u, v);
            }
            if (!repair.from.empty())
                repairs_.push_back(std::move(repair));
        }
}

void BadPixelMender::mend(cv::Mat_<short>& frame) const
{
    std::vector<short> values;
    for (const Repair& repair : repairs_) {
        values.clear();
        for (const cv::Point& from : repair.from)
            values.push_back(frame(from));
        const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
        std::nth_element(values.begin(), middle, values.end());
        frame(repair.pixel) = *middle;
    }
}

namespace {

// Of an image that the library may decode: it knows many more formats than are meant, and takes any memory that a header
// asks for.
std::optional<cv::Size> mapSize(const std::string& path)
{
    std::array<char, 24> start{};
    std::ifstream(path, std::ios::binary).read(start.data(), start.size());
    const FileFormat* format = formatStartingWith({start.data(), start.size()});
    if (format == formatNamed("pgm"))
        return openImageFile(path)->shapeOfAll()->size;
    if (format != formatNamed("png"))
        return std::nullopt;
    std::ifstream file(path, std::ios::binary);
    if (!hasWholeChunks(file))
        throw UsageError(path + ": can't be decoded; expected an undamaged, complete image");
    const auto side = [&start](std::size_t place) {
        std::uint32_t pixels = 0;
        for (std::size_t i = 0; i < 4; ++i)
            pixels = pixels << 8U | static_cast<unsigned char>(start.at(place + i));
        return static_cast<int>(
            std::min(pixels, static_cast<std::uint32_t>(std::numeric_limits<int>::max())));
    };
    return cv::Size{side(16), side(20)};
}

// Marks of 8 bits stay as they are. In any other image pixels are bad that are not 0, or not black.
cv::Mat marksOf(const cv::Mat& image)
{
    if (image.type() == CV_8UC1 || image.empty())
        return image;
    std::vector<cv::Mat> colours;
    cv::split(image, colours);
    if (colours.size() > 3)
        colours.pop_back();                // how opaque a pixel is
    cv::Mat marks = colours.front() != 0;  // 255, as hot ones have
    for (const cv::Mat& colour : colours)
        marks |= colour != 0;
    return marks;
}

}  // namespace

BadPixelMap readBadPixels(const std::string& path, cv::Size size)
{
    requireRegularFile(path, "a map of bad pixels, a PNG or PGM image");
    const std::optional<cv::Size> told = mapSize(path);
    if (!told)
        throw UsageError(path + ": can't be read; expected a map of bad pixels, a PNG or PGM image");
    if (*told != size)
        throw UsageError(path + ": has " + std::to_string(told->width) + "x" + std::to_string(told->height) +
                         " pixels, while the frames have " + std::to_string(size.width) + "x" +
                         std::to_string(size.height));
    cv::Mat read;
    try {
        const QuietStandardError quiet;
        read = marksOf(cv::imread(path, cv::IMREAD_UNCHANGED));
    } catch (const cv::Exception&) {  // told below
    }
    if (read.size() != size)
        throw UsageError(path + ": can't be decoded; expected an undamaged, complete image");
    return {read};
}

void writeBadPixels(const std::string& path, const BadPixelMap& map, bool force)
{
    savePicture(path, map.marks, force);
}

}  // namespace vxapp
