// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/ContactSheet.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <span>
#include <sstream>
#include <utility>

#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/output/Output.h"
#include "apps/vxkit/stream/CurvePlot.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

using halvor::vx::MARLOImageEnhancer;
using vxsupport::Panel;

constexpr std::size_t mostFrames = 100;
constexpr int wantedWidth = 320;
constexpr int wantedHeight = 240;
constexpr int mostWidth = 640;

std::string rangeText(const ValueRange& range)
{
    std::ostringstream text;
    text << range.low << " to " << range.high;
    return text.str();
}

bool isEqualised(const MARLOImageEnhancer& chain)
{
    return chain.getHistogramObject()->param.mode != 0;
}

std::vector<int> usualFrames(int first, int count)
{
    std::vector<int> frames = {first, first + count / 2, first + count - 1};
    frames.erase(std::unique(frames.begin(), frames.end()), frames.end());
    return frames;
}

// Bars of one level or more, so that none falls between two levels.
std::vector<double> histogramOf(const cv::Mat_<int>& samples, const ValueRange& range)
{
    constexpr double mostBars = 256.0;
    const double levels = std::max(1.0, 1.0 + range.high - range.low);
    std::vector<double> bars(static_cast<std::size_t>(std::min(levels, mostBars)));
    const double barsPerLevel = static_cast<double>(bars.size()) / levels;
    for (const int sample : samples) {
        const double bar = std::floor((sample - static_cast<double>(range.low)) * barsPerLevel);
        if (bar >= 0.0 && bar < static_cast<double>(bars.size()))
            bars[static_cast<std::size_t>(bar)] += 1.0;
    }
    return bars;
}

}  // namespace

ContactSheet::ContactSheet(ContactSheetOptions options, const Recording& input, SampleForm form)
    : options_(std::move(options)),
      firstNumber_(input.firstNumber()),
      times_(std::max(
          1, std::min(wantedWidth / input.frameSize().width, wantedHeight / input.frameSize().height))),
      reduction_((input.frameSize().width + mostWidth - 1) / mostWidth),
      countOfZero_(form == SampleForm::unsignedCounts ? 32768.0F : 0.0F)
{
    if (!isPngName(options_.path))
        throw UsageError(options_.path + ": expected a contact sheet's name that ends in .png");
    input.files()->writes(options_.path, options_.force);
    if (options_.frames.empty())
        options_.frames = usualFrames(firstNumber_, input.frameCount());
    if (options_.frames.size() > mostFrames)
        throw UsageError("--sheet-frames: expected at most " + std::to_string(mostFrames) + " frames");
    const int last = firstNumber_ + input.frameCount() - 1;
    for (const int frame : options_.frames)
        if (frame < firstNumber_ || frame > last)
            throw UsageError("--sheet-frames " + std::to_string(frame) + ": expected frames from " +
                             std::to_string(firstNumber_) + " to " + std::to_string(last));
}

void ContactSheet::add(int index, const MARLOImageEnhancer& chain)
{
    const int number = firstNumber_ + index;
    if (std::find(options_.frames.begin(), options_.frames.end(), number) == options_.frames.end())
        return;
    const cv::Mat_<float> input = counts(*chain.getInputArray());
    const cv::Mat_<float> clean = counts(*chain.getSNRArray());
    const ValueRange range = vxsupport::visibleRange(input);
    rows_.push_back(vxsupport::sideBySide(
        {panel("frame " + std::to_string(number) + ": " + rangeText(range), input, range),
         panel("temporal noise reduced", counts(*chain.getTNRArray()), range),
         panel("static pattern removed", counts(*chain.getSPRArray()), range),
         panel("spatial noise reduced", clean, range)}));
    rows_.push_back(vxsupport::sideBySide({takenAway(input, clean), curve(chain),
                                           display("equalised", chain, *chain.getHistoArray(), range),
                                           display("peaked", chain, *chain.getPeakArray(), range)}));
}

std::string ContactSheet::write() const
{
    constexpr int fastCompression = 1;
    const cv::Mat sheet = vxsupport::stacked(rows_);
    savePicture(options_.path, sheet, options_.force, {cv::IMWRITE_PNG_COMPRESSION, fastCompression});
    return options_.path + " (the stages of " + std::to_string(rows_.size() / 2) +
           (rows_.size() == 2 ? " frame, " : " frames, ") + std::to_string(sheet.cols) + "x" +
           std::to_string(sheet.rows) +
           (reduction_ > 1
                ? ", a pixel shows " + std::to_string(reduction_) + "x" + std::to_string(reduction_)
                : "") +
           ")";
}

Panel ContactSheet::panel(const std::string& caption, const cv::Mat_<float>& values, const ValueRange& range,
                          const std::string& colourMap) const
{
    cv::Mat_<float> shown = values;
    if (reduction_ > 1)
        cv::resize(values, shown, panelSize(values.size()), 0.0, 0.0, cv::INTER_AREA);
    const cv::Mat_<std::uint8_t> levels = vxsupport::greyLevels(shown, range);
    return {vxsupport::magnified(vxsupport::falseColours(levels, colourMap), times_), caption};
}

Panel ContactSheet::panel(const std::string& caption, const cv::Mat_<float>& values,
                          const ValueRange& range) const
{
    return panel(caption, values, range, options_.colourMap);
}

// Before the enlargement.
cv::Size ContactSheet::panelSize(cv::Size frame) const
{
    return {std::max(1, frame.width / reduction_), std::max(1, frame.height / reduction_)};
}

// Noise and pattern; where it shows the scene's shapes, detail was lost.
Panel ContactSheet::takenAway(const cv::Mat_<float>& input, const cv::Mat_<float>& clean) const
{
    cv::Mat_<float> difference;
    cv::subtract(input, clean, difference);
    const ValueRange range = vxsupport::visibleRange(difference);
    const float most = std::max({1.0F, std::abs(range.low), std::abs(range.high)});
    return panel("taken away: " + rangeText({-most, most}), difference, {-most, most},
                 vxsupport::divergingColourMap);
}

// The curve that the next frame meets, over the histogram of this one.
Panel ContactSheet::curve(const MARLOImageEnhancer& chain) const
{
    Histogram& histogram = *chain.getHistogramObject();
    const ValueRange measured{static_cast<float>(histogram.getMin()), static_cast<float>(histogram.getMax())};
    const ValueRange display = isEqualised(chain) ? equalisedRange : measured;
    const std::span<const int> curve(histogram.getTransferCurve(), std::size_t{1} << chain.histGetWidth());
    std::vector<double> levels;
    for (const int level : curve)
        levels.push_back((static_cast<double>(level) - display.low) /
                         std::max(1.0F, display.high - display.low));
    const cv::Mat_<int> image = chain.getSNRArray()->image();
    const ValueRange shown{measured.low + countOfZero_, measured.high + countOfZero_};
    return {plotCurve(levels, histogramOf(image, measured), panelSize(image.size()) * times_),
            "transfer curve, " + rangeText(shown)};
}

// Equalised pixels have a range of their own; without equalisation they are counts still.
Panel ContactSheet::display(const std::string& caption, const MARLOImageEnhancer& chain,
                            const halvor::vx::ChainMatrix& image, const ValueRange& range) const
{
    if (!isEqualised(chain))
        return panel(caption, counts(image), range);
    cv::Mat_<float> levels;
    image.image().convertTo(levels, CV_32F);
    return panel(caption, levels, equalisedRange);
}

cv::Mat_<float> ContactSheet::counts(const halvor::vx::ChainMatrix& samples) const
{
    cv::Mat_<float> values;
    samples.image().convertTo(values, CV_32F, 1.0, countOfZero_);
    return values;
}

}  // namespace vxapp
