// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/BadPixels.h"
#include "apps/vxkit/terminal/Failure.h"
#include "fuzz/FuzzInput.h"

// Reads an input as a map of bad pixels and mends a frame by it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const vxfuzz::MemoryFile file(vxfuzz::textOf(data, size));
    try {
        const cv::Size frameSize(16, 12);
        const vxapp::BadPixelMap map = vxapp::readBadPixels(file.path(), frameSize);
        vxfuzz::require(map.marks.size() == frameSize, "a map has the size of the frames");
        vxfuzz::require(map.count(vxapp::BadPixelMap::good) + map.bad() == frameSize.area(),
                        "a pixel is good or bad");
        cv::Mat_<short> frame(frameSize, short{100});
        vxapp::BadPixelMender(map).mend(frame);
    } catch (const vxapp::UsageError& error) {
        vxfuzz::require(*error.what() != '\0', "an error tells what is wrong");
    }
    return 0;
}
