// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/ResultFiles.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "apps/vxkit/burst/QualityMap.h"
#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

bool isImageResult(const FileFormat& format)
{
    return format.saveFloats != nullptr || format.saveCounts != nullptr;
}

bool isStack(const ResultOptions& options)
{
    const FileFormat* format = formatOf(options.path);
    return format != nullptr && ResultStack::isKind(*format) && (options.stack || !isImageResult(*format));
}

void requireImageResult(const std::string& path, const std::string& meaning)
{
    const FileFormat* format = formatOf(path);
    if (format == nullptr || !isImageResult(*format))
        throw UsageError(path + ": expected " + meaning + " name that ends in " + endingsText(isImageResult));
}

}  // namespace

void ResultFiles::checkNames(const ResultOptions& options)
{
    if (options.path.empty() && options.preview.empty())
        throw UsageError("nowhere to write to; expected -o OUT or --preview FILE.png");
    if (options.stack && !isStack(options))
        throw UsageError("--stack: expected an output name that ends in " + endingsText(ResultStack::isKind));
    if (!options.path.empty() && !isStack(options))
        requireImageResult(options.path, "an output");
    if (!options.preview.empty() && !isPngName(options.preview))
        throw UsageError(options.preview + ": expected a preview name that ends in .png");
    if (!options.qualityMap.empty())
        requireImageResult(options.qualityMap, "a quality map");
    if (!options.confidence.empty())
        requireImageResult(options.confidence, "a confidence map");
}

ResultFiles::ResultFiles(ResultOptions options, int firstNumber, int count, Unit unit, const Recording& input)
    : options_(std::move(options)),
      firstNumber_(firstNumber),
      lastNumber_(firstNumber + count - 1),
      numbered_(count > 1),
      unit_(unit)
{
    checkNames(options_);
    if (isStack(options_))
        stack_.emplace(options_.path, options_.colourMap, options_.force, unit_);
    for (const std::string& name : names())
        input.files()->writes(name, options_.force);
}

std::vector<std::string> ResultFiles::sequences() const
{
    std::vector<std::string> paths{options_.preview, options_.qualityMap, options_.confidence};
    if (!stack_)
        paths.push_back(options_.path);
    paths.erase(std::remove(paths.begin(), paths.end(), ""), paths.end());
    return paths;
}

std::vector<std::string> ResultFiles::names() const
{
    std::vector<std::string> all;
    if (stack_)
        all.push_back(options_.path);
    for (const std::string& path : sequences()) {
        for (int number = firstNumber_; number <= lastNumber_; ++number)
            all.push_back(nameFor(path, number));
        if (numbered_)
            all.push_back(vxfiles::SequenceList::nameOf(path));
    }
    return all;
}

// Ahead of the first file, which may replace one of an earlier sequence.
void ResultFiles::begin()
{
    if (!numbered_ || !lists_.empty())
        return;
    for (const std::string& path : sequences())
        lists_.try_emplace(path, path, options_.force).first->second.withdraw();
}

void ResultFiles::note(const std::string& path, const std::string& name)
{
    if (const auto list = lists_.find(path); list != lists_.end())
        list->second.add(name, name);
}

std::string ResultFiles::nameFor(const std::string& path, int number) const
{
    return numbered_ ? withNumber(path, number, lastNumber_) : path;
}

std::string ResultFiles::write(int number, const cv::Mat_<float>& image)
{
    begin();
    std::string written;
    if (stack_) {
        stack_->add(image);
        written = options_.path;
    } else if (!options_.path.empty()) {
        written = writeValues(number, image);
    }
    if (!options_.preview.empty())
        written += (written.empty() ? "" : ", ") + writePreview(number, image);
    return written;
}

std::string ResultFiles::finish(const Recording& input)
{
    const std::string stacked = stack_ ? stack_->finish(lastNumber_ - firstNumber_ + 1, input) : "";
    for (auto& [path, list] : lists_)
        if (!list.isEmpty())
            list.file().commit();
    return stacked;
}

std::string ResultFiles::writeQuality(int number, const cv::Mat_<float>& map)
{
    if (map.empty() || options_.qualityMap.empty())
        return "";
    const std::string name = nameFor(options_.qualityMap, number);
    saveQualityMap(name, map, options_.force);
    note(options_.qualityMap, name);
    return ", " + name;
}

std::string ResultFiles::writeConfidence(int number, const cv::Mat_<float>& frames)
{
    if (frames.empty() || options_.confidence.empty())
        return "";
    const std::string name = nameFor(options_.confidence, number);
    saveConfidence(name, frames, options_.force);
    note(options_.confidence, name);
    return ", " + name;
}

std::string ResultFiles::writeValues(int number, const cv::Mat_<float>& image)
{
    std::string name = nameFor(options_.path, number);
    if (isFloatFile(name)) {
        saveFloats(name, image, options_.force);
        note(options_.path, name);
        return name;
    }
    const CountScale scale = scaleFor(image, unit_);
    saveCounts(name, image, scale, options_.force);
    note(options_.path, name);
    return name + " (" + scaleText(scale) + ")";
}

std::string ResultFiles::writePreview(int number, const cv::Mat_<float>& image)
{
    if (!previewRange_)
        previewRange_ = vxsupport::visibleRange(image);
    const std::string name = nameFor(options_.preview, number);
    savePreview(name, image, *previewRange_, options_.colourMap, options_.force);
    note(options_.preview, name);
    std::ostringstream text;
    text << name << " (" << previewRange_->low << " to " << previewRange_->high << ")";
    return text.str();
}

}  // namespace vxapp
