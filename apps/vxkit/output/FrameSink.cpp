// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/FrameSink.h"

#include <string_view>
#include <vector>

#include "apps/files/OutputNames.h"
#include "apps/files/SequenceList.h"
#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/FrameSinkParts.h"
#include "apps/vxkit/output/Output.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

constexpr std::string_view follow = "follow";

std::vector<std::string> fileNames(const SequenceOptions& options, const FileFormat& format,
                                   const Recording& input, int count)
{
    if (!format.oneFilePerFrame || count == 1 || vxfiles::isWrittenThrough(options.path))
        return {options.path};
    std::vector<std::string> names;
    const int last = input.firstNumber() + count - 1;
    for (int number = input.firstNumber(); number <= last; ++number)
        names.push_back(withNumber(options.path, number, last));
    return names;
}

const FileFormat& sinkFormat(const SequenceOptions& options)
{
    const auto isSink = [](const FileFormat& format) { return format.openSink != nullptr; };
    const FileFormat* format = options.format.empty() ? formatOf(options.path) : formatNamed(options.format);
    if (format == nullptr || !isSink(*format))
        throw UsageError(options.path + ": expected an output name that ends in " + endingsText(isSink));
    return *format;
}

std::optional<vxsupport::ValueRange> rangeOf(const SequenceOptions& options,
                                             const vxsupport::ValueRange& usual)
{
    if (options.range == "recording" || options.range == follow)
        return std::nullopt;
    if (options.range.empty())
        return usual.low < usual.high ? std::optional(usual) : std::nullopt;
    const auto range = parsePair(options.range, ':');
    if (!range || range->first >= range->second)
        throw UsageError("--range " + options.range +
                         ": expected recording, follow or LOW:HIGH, two counts of which LOW is below HIGH");
    return vxsupport::ValueRange{static_cast<float>(range->first), static_cast<float>(range->second)};
}

}  // namespace

std::string framesText(const SequenceShape& shape)
{
    return std::to_string(shape.frames) + (shape.frames == 1 ? " frame of " : " frames of ") +
           std::to_string(shape.size.width) + "x" + std::to_string(shape.size.height);
}

std::unique_ptr<FrameSink> openFrameSink(const SequenceOptions& options, const Recording& input,
                                         vxsupport::ValueRange videoRange)
{
    return openFrameSink(options, input, {input.frameSize(), input.frameCount()}, videoRange);
}

std::unique_ptr<FrameSink> openFrameSink(const SequenceOptions& options, const Recording& input,
                                         const SequenceShape& shape, vxsupport::ValueRange videoRange)
{
    const std::optional<vxsupport::ValueRange> range = rangeOf(options, videoRange);
    const FileFormat& format = sinkFormat(options);
    if (!format.takes(shape.samples))
        throw UsageError(options.path + ": " + std::string(format.name) + " files don't hold " +
                         std::string(factsOf(shape.samples).text) +
                         "; expected an output name that ends in " +
                         endingsText([&](const FileFormat& other) {
                             return other.openSink != nullptr && other.takes(shape.samples);
                         }));
    const std::vector<std::string> names = fileNames(options, format, input, shape.frames);
    if (!options.isChecked)
        for (const std::string& name : names)
            input.files()->writes(name, options.force);
    if (names.size() > 1)
        input.files()->writes(vxfiles::SequenceList::nameOf(options.path), options.force);
    return format.openSink({options, names, shape, range, options.range == follow});
}

}  // namespace vxapp
