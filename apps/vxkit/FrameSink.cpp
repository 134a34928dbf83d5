#include "apps/vxkit/FrameSink.h"

#include <CLI/CLI.hpp>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <utility>
#include <vector>

#include "apps/vxkit/Failure.h"
#include "apps/vxkit/FrameSinkParts.h"
#include "apps/vxkit/NumberChecks.h"
#include "apps/vxkit/Output.h"
#include "apps/vxkit/Recording.h"
#include "apps/vxkit/SafeWrite.h"

namespace vxapp {

namespace {

class RawSink : public FrameSink
{
public:
    RawSink(const std::string& path, bool force, const SequenceShape& shape)
        : shape_(shape), file_(path, force), stream_(file_.temporaryPath(), std::ios::binary)
    {}

    void add(const cv::Mat_<std::uint16_t>& frame) override
    {
        appendLittleEndian(stream_, frame);
        requireWritten();
    }

    std::string finish() override
    {
        stream_.close();
        requireWritten();
        file_.commit();
        return file_.path().string() + " (" + framesText(shape_) + ", 16-bit little-endian)";
    }

private:
    void requireWritten() const
    {
        if (!stream_.good())
            throw UsageError(file_.path().string() + " can't be written");
    }

    SequenceShape shape_;
    SafeFile file_;
    std::ofstream stream_;
};

class PngSink : public FrameSink
{
public:
    PngSink(const std::vector<std::string>& names, bool force, const SequenceShape& shape) : shape_(shape)
    {
        for (const std::string& name : names)
            files_.push_back(std::make_unique<SafeFile>(name, force));
    }

    void add(const cv::Mat_<std::uint16_t>& frame) override
    {
        const SafeFile& file = *files_.at(added_++);
        bool isWritten = false;
        try {
            isWritten = cv::imwrite(file.temporaryPath().string(), frame);
        } catch (const cv::Exception&) {  // told below
        }
        if (!isWritten)
            throw UsageError(file.path().string() + " can't be written");
    }

    std::string finish() override
    {
        for (const std::unique_ptr<SafeFile>& file : files_)
            file->commit();
        std::string names = files_.front()->path().string();
        if (files_.size() > 1)
            names += " to " + files_.back()->path().filename().string();
        return names + " (" + framesText(shape_) + ", 16 bits)";
    }

private:
    SequenceShape shape_;
    std::vector<std::unique_ptr<SafeFile>> files_;
    std::size_t added_ = 0;
};

std::vector<std::string> fileNames(const SequenceOptions& options, const Recording& input)
{
    const int count = input.frameCount();
    if (!isPngFile(options.path) || count == 1)
        return {options.path};
    std::vector<std::string> names;
    const int last = input.firstNumber() + count - 1;
    for (int number = input.firstNumber(); number <= last; ++number)
        names.push_back(withNumber(options.path, number, last));
    return names;
}

std::optional<vxsupport::ValueRange> rangeOf(const SequenceOptions& options,
                                             const vxsupport::ValueRange& usual)
{
    if (options.range.empty())
        return usual.low < usual.high ? std::optional(usual) : std::nullopt;
    const auto range = parsePair(options.range, ':');
    if (!range || range->first >= range->second)
        throw UsageError("--range " + options.range +
                         ": expected LOW:HIGH, two counts of which LOW is below HIGH");
    return vxsupport::ValueRange{static_cast<float>(range->first), static_cast<float>(range->second)};
}

}  // namespace

void addSequenceOptions(CLI::App& command, SequenceOptions& options)
{
    command
        .add_option("-o,--output", options.path,
                    "Result. .raw: headerless 16-bit little-endian frames; .tif, .tiff: 16-bit pages;\n"
                    ".png: numbered 16-bit images; .avi: 8-bit video in colours for looking at")
        ->type_name("OUT");
    command
        .add_option("--range", options.range, "Counts from the darkest to the brightest colour of a video")
        ->type_name("LOW:HIGH");
    command.add_option("--fps", options.framesPerSecond, "Frames per second of a video")
        ->check(numberWithin(0.1, 1000.0))
        ->capture_default_str();
    command.add_option("--colour-map,--color-map", options.colourMap, "Colours for looking at")
        ->check(CLI::IsMember(vxsupport::colourMapNames()))
        ->capture_default_str();
    command.add_flag("--force", options.force, "Replace existing files");
}

std::string framesText(const SequenceShape& shape)
{
    return std::to_string(shape.frames) + (shape.frames == 1 ? " frame of " : " frames of ") +
           std::to_string(shape.size.width) + "x" + std::to_string(shape.size.height);
}

std::unique_ptr<FrameSink> openFrameSink(const SequenceOptions& options, const Recording& input,
                                         vxsupport::ValueRange videoRange)
{
    const std::optional<vxsupport::ValueRange> range = rangeOf(options, videoRange);
    const std::string ending = lowerEnding(options.path);
    const std::vector<std::string> names = fileNames(options, input);
    for (const std::string& name : names) {
        if (input.readsFrom(name))
            throw UsageError(name + ": is an input; expected another output name");
        requireWritable(name, options.force);
    }
    const SequenceShape shape{input.frameSize(), input.frameCount()};
    if (ending == ".raw")
        return std::make_unique<RawSink>(options.path, options.force, shape);
    if (ending == ".tif" || ending == ".tiff")
        return openTiffSink(options.path, options.force, shape);
    if (ending == ".png")
        return std::make_unique<PngSink>(names, options.force, shape);
    if (ending == ".avi")
        return openVideoSink(options, shape, range);
    throw UsageError(options.path + ": expected an output name that ends in .raw, .tif, .tiff, .png or .avi");
}

}  // namespace vxapp
