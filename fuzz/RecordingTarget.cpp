// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <sstream>
#include <string>

#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/terminal/Failure.h"
#include "fuzz/FuzzInput.h"
#ifdef FUZZ_HDF5
#include <hdf5.h>
#endif

// Reads an input as a recording in one of the formats FUZZ_FORMATS. Options come from its last bytes, so that every
// file as it stands is an input.
namespace {

constexpr int largestArea = 1 << 20;
constexpr int mostFrames = 6;
constexpr std::size_t optionBytes = 8;

bool isWanted(std::string_view bytes)
{
    const std::string formats = std::string(" ") + FUZZ_FORMATS + " ";
    const vxapp::FileFormat* format = vxapp::formatStartingWith(bytes);
    const std::string name = format != nullptr ? std::string(format->name) : "raw";
    return formats.find(" " + name + " ") != std::string::npos;
}

vxapp::RecordingOptions optionsFrom(vxfuzz::Numbers& numbers, const std::string& path)
{
    vxapp::RecordingOptions options;
    options.inputs = {path};
    options.takesBytes = numbers.upTo(3) != 0;
    if (numbers.upTo(3) == 0)
        options.hints.order = numbers.upTo(1) == 0 ? std::endian::little : std::endian::big;
    if (numbers.upTo(3) == 0)
        options.hints.samples = vxapp::sampleTypes().at(static_cast<std::size_t>(numbers.upTo(6))).type;
    if (numbers.upTo(3) == 0)
        options.frames = std::to_string(numbers.upTo(3)) + ":" + std::to_string(numbers.upTo(3));
    return options;
}

void read(const vxapp::RecordingOptions& options)
{
    try {
        vxapp::Recording recording(options);
        if (recording.frameSize().area() > largestArea)
            return;
        for (int i = 0; i < std::min(recording.frameCount(), mostFrames); ++i) {
            const cv::Mat frame = recording.frame(i);
            vxfuzz::require(frame.size() == recording.frameSize(), "a frame has the recording's size");
            vxfuzz::require(frame.type() == vxapp::factsOf(recording.sampleType()).storage,
                            "a frame has the storage of its samples");
            vxfuzz::require(!recording.values(i).empty() && !recording.nameOf(i).empty(),
                            "a frame has values and a name");
            recording.counts(i);
        }
    } catch (const vxapp::UsageError& error) {
        vxfuzz::require(*error.what() != '\0', "an error tells what is wrong");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view bytes = vxfuzz::textOf(data, size);
    if (bytes.empty() || !isWanted(bytes))
        return 0;
    const vxfuzz::MemoryFile file(bytes);
    vxfuzz::Numbers numbers(bytes.substr(bytes.size() - std::min(bytes.size(), optionBytes)));
    vxapp::RecordingOptions options = optionsFrom(numbers, file.path());
    read(options);
#ifdef FUZZ_HDF5
    vxfuzz::require(H5Fget_obj_count(H5F_OBJ_ALL, H5F_OBJ_ALL) <= 0, "every object of the library is closed");
#endif
    if (std::string_view(FUZZ_FORMATS).find("raw") == std::string_view::npos)
        return 0;
    options.size = std::to_string(numbers.upTo(20)) + "x" + std::to_string(numbers.upTo(20));
    options.header = numbers.byte();
    options.frameHeader = numbers.upTo(7);
    read(options);
    return 0;
}
