// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/input/Recording.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <stdexcept>

#include "apps/vxkit/formats/ByteOrder.h"
#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/Verbosity.h"

namespace vxapp {

namespace {

// Decoded frames are kept as long as they stay below this together; each counts as so much more than its pixels.
constexpr std::size_t keptBytesLimit = std::size_t{256} << 20;
constexpr std::size_t bytesPerKeptFrame = 512;
constexpr int largestSide = 1 << 15;

std::unique_ptr<FrameFile> openFile(const std::string& path, const RecordingOptions& options)
{
    if (options.size.empty()) {
        if (options.header > 0 || options.frameHeader > 0)
            throw UsageError(path +
                             ": --header and --frame-header are for headerless recordings; expected --size");
        return openImageFile(path, options.hints);
    }
    if (isImageName(path))
        throw UsageError(path +
                         ": an image file tells its own size; --size is for headerless recordings only");
    const FileHints& hints = options.hints;
    return openRawFile(path,
                       {parseSize(options.size), hints.samples.value_or(SampleType::u16),
                        hints.order.value_or(std::endian::little), options.header, options.frameHeader});
}

std::string shapeText(const FrameShape& shape)
{
    return std::to_string(shape.size.width) + "x" + std::to_string(shape.size.height) + " " +
           std::string(factsOf(shape.sample).text);
}

}  // namespace

std::optional<std::pair<int, int>> parsePair(std::string_view text, char separator)
{
    const std::size_t middle = text.find(separator);
    if (middle == std::string_view::npos)
        return std::nullopt;
    const auto parse = [](std::string_view word, int& value) {
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
        return error == std::errc() && end == word.data() + word.size();
    };
    std::pair<int, int> numbers;
    if (!parse(text.substr(0, middle), numbers.first) || !parse(text.substr(middle + 1), numbers.second))
        return std::nullopt;
    return numbers;
}

cv::Size parseSize(const std::string& text)
{
    const auto size = parsePair(text, 'x');
    const auto fits = [](int side) { return side > 0 && side <= largestSide; };
    if (!size || !fits(size->first) || !fits(size->second))
        throw UsageError("--size " + text + ": expected WIDTHxHEIGHT in pixels, for example 160x120");
    return {size->first, size->second};
}

RecordingOptions forFile(RecordingOptions options, const std::string& name)
{
    options.inputs = {name};
    if (isImageName(name)) {
        options.size.clear();
        options.header = 0;
        options.frameHeader = 0;
    }
    return options;
}

Recording::Recording(const RecordingOptions& options)
    : runFiles_(options.files ? options.files : std::make_shared<vxfiles::RunFiles>()), names_(options.inputs)
{
    for (const std::string& name : names_)
        runFiles_->reads(name);
    for (const std::string& name : names_)
        addFile(name, options);
    select(options.frames);
    checkFrames();
    if (!options.takesBytes)
        requireMoreThanBytes(nameOf(0), shape_.sample);
    warnOfLayout(!options.size.empty() && !isImageName(names_.front()));
}

Recording::Recording(std::unique_ptr<FrameFile> frames, const std::string& name)
    : runFiles_(std::make_shared<vxfiles::RunFiles>()), names_{name}
{
    files_.push_back(std::move(frames));
    frameCount_ = files_.front()->frameCount();
    ends_.push_back(frameCount_);
    checkFrames();
}

void Recording::addFile(const std::string& name, const RecordingOptions& options)
{
    files_.push_back(openFile(name, options));
    const int count = files_.back()->frameCount();
    if (count > std::numeric_limits<int>::max() - frameCount_)
        throw UsageError(name + ": " + std::to_string(count) + " frames behind " +
                         std::to_string(frameCount_) + " of other inputs; expected " +
                         std::to_string(std::numeric_limits<int>::max()) + " in all");
    frameCount_ += count;
    ends_.push_back(frameCount_);
}

Recording::Place Recording::placeOf(int index) const
{
    const int number = firstNumber_ + index;
    const auto end = std::upper_bound(ends_.begin(), ends_.end(), number);
    const int start = end == ends_.begin() ? 0 : *(end - 1);
    return {static_cast<std::size_t>(end - ends_.begin()), number - start};
}

void Recording::select(const std::string& frames)
{
    if (frames.empty())
        return;
    const auto range = parsePair(frames, ':');
    if (!range || range->first < 0 || range->second < 1)
        throw UsageError("--frames " + frames +
                         ": expected FIRST:COUNT, for example 0:5 for the first five frames");
    const auto [first, count] = *range;
    if (first >= frameCount() || count > frameCount() - first)
        throw UsageError("--frames " + frames + ": goes beyond the recording, which has " +
                         std::to_string(frameCount()) + " frames, counted from 0");
    firstNumber_ = first;
    frameCount_ = count;
}

void Recording::checkFrames()
{
    for (int first = 0; first < frameCount();) {
        const std::size_t file = placeOf(first).file;
        const int behind = std::min(ends_[file] - firstNumber_, frameCount());
        if (const std::optional<FrameShape> shape = files_[file]->shapeOfAll())
            requireShape(*shape, nameOf(first));
        else
            checkDecoded(first, behind);
        first = behind;
    }
}

// Frames of one file.
void Recording::checkDecoded(int first, int behind)
{
    FrameFile& file = *files_[placeOf(first).file];
    for (int i = first; i < behind; ++i) {
        const cv::Mat decoded = frame(i);
        requireShape({decoded.size(), decoded.type(), file.sampleOf(decoded)}, nameOf(i));
        keptBytes_ += decoded.total() * decoded.elemSize() + bytesPerKeptFrame;
        if (keptBytes_ <= keptBytesLimit)
            kept_.emplace(i, decoded);
    }
}

void Recording::warnOfLayout(bool isHeaderless)
{
    if (shape_.sample == SampleType::u16 && looksLikeWiderSamples(frame(0)))
        warn(nameOf(0) +
             ": the samples look like parts of wider ones; --dtype names the type of headerless recordings");
    else if (guessByteOrder(frame(0)) == OrderGuess::swapped)
        warn(nameOf(0) +
             ": the bytes of the samples look swapped (noise stands in the high byte's place); --endian "
             "little "
             "or big names the order of headerless recordings and of images inside JPEG files");
    else if (isHeaderless && shape_.sample == SampleType::u16 && looksTurned(frame(0)))
        warn(nameOf(0) + ": looks as if its rows were " + std::to_string(shape_.size.height) +
             " pixels long; --size names the width first");
}

void Recording::requireShape(const FrameShape& shape, const std::string& name)
{
    if (shape_.type < 0)
        shape_ = shape;
    else if (shape.size != shape_.size || shape.sample != shape_.sample)
        throw UsageError(name + ": has " + shapeText(shape) + ", while " + nameOf(0) + " has " +
                         shapeText(shape_) + "; expected frames of one size and kind");
}

std::string Recording::nameOf(int index) const
{
    const Place place = placeOf(index);
    const std::string name = names_[place.file] == "-" ? "standard input" : names_[place.file];
    return files_[place.file]->frameCount() == 1 ? name : name + ", frame " + std::to_string(place.frame);
}

cv::Mat Recording::frame(int index)
{
    if (index < 0 || index >= frameCount_)
        throw std::out_of_range("frame " + std::to_string(index) + " of " + std::to_string(frameCount_));
    if (const auto kept = kept_.find(index); kept != kept_.end())
        return kept->second;
    const Place place = placeOf(index);
    return files_[place.file]->read(place.frame);
}

cv::Mat_<float> Recording::values(int index)
{
    cv::Mat read = frame(index);
    if (read.type() == CV_32FC1)
        return read;
    cv::Mat_<float> values;
    read.convertTo(values, CV_32F);
    return values;
}

cv::Mat_<std::uint16_t> Recording::counts(int index)
{
    cv::Mat read = frame(index);
    if (read.type() == CV_16UC1)
        return read;
    ConversionLosses losses;
    cv::Mat_<std::uint16_t> counts = convertSamples(read, SampleType::u16, losses);
    if (losses.clipped > 0 || losses.undefined > 0)
        throw UsageError(nameOf(index) + ": holds values that are no counts; expected 0 to 65535");
    return counts;
}

}  // namespace vxapp
