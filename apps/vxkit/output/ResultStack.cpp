// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/ResultStack.h"

#include <algorithm>
#include <utility>

#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/FrameSink.h"

namespace vxapp {

// What tells its own size and is one file.
bool ResultStack::isKind(const FileFormat& format)
{
    return format.openSink != nullptr && !format.oneFilePerFrame && format.open != nullptr;
}

ResultStack::ResultStack(std::string path, std::string colourMap, bool force, Unit unit)
    : path_(std::move(path)), colourMap_(std::move(colourMap)), force_(force), unit_(unit)
{}

void ResultStack::add(const cv::Mat_<float>& image)
{
    if (!results_)
        results_.emplace(path_, image.size(), CV_32FC1);
    results_->add(image);
    const ValueRange own = vxsupport::visibleRange(image, 0.0);
    range_ = range_ ? ValueRange{std::min(range_->low, own.low), std::max(range_->high, own.high)} : own;
}

std::string ResultStack::finish(int wanted, const Recording& input)
{
    if (!results_)
        return "";
    const bool holdsFloats = formatOf(path_)->takes(SampleType::f32);
    const CountScale scale = scaleFor((cv::Mat_<float>(1, 2) << range_->low, range_->high), unit_);
    SequenceOptions options{.path = path_};
    options.colourMap = colourMap_;
    options.force = force_;
    options.isChecked = true;
    const auto sink =
        openFrameSink(options, input,
                      {results_->size(), results_->count(), holdsFloats ? SampleType::f32 : SampleType::u16});
    for (int i = 0; i < results_->count(); ++i) {
        const cv::Mat_<float> image = results_->read(i);
        sink->add(holdsFloats ? cv::Mat(image) : cv::Mat(vxsupport::toCounts(image, scale)));
    }
    std::string text = sink->finish();
    if (!holdsFloats)
        text += ", " + scaleText(scale);
    if (wanted > results_->count())
        text += "; without " + std::to_string(wanted - results_->count()) + " of the results, which failed";
    return text;
}

}  // namespace vxapp
