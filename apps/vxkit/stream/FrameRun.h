// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <opencv2/core/mat.hpp>
#include <string>

namespace vxapp {

class Recording;
class SampleScale;

/// How the 16-bit words of a recording are the two's complement samples of the chain and its filters.
enum class SampleForm
{
    unsignedCounts,  ///< counts 0 to 65535 are the samples -32768 to 32767, so that their order stays
    signedSamples,   ///< the words are samples, bit by bit
};

/// @param samples  created at the size of the counts
void toSamples(const cv::Mat_<std::uint16_t>& counts, SampleForm form, cv::Mat_<short>& samples);

/// The way back.
/// @param counts  created at the size of the samples
void toCounts(const cv::Mat_<short>& samples, SampleForm form, cv::Mat_<std::uint16_t>& counts);

/// How long the frames of a recording took.
struct RunTimes
{
    int frames = 0;
    double total = 0.0;    ///< seconds with reading and writing
    double process = 0.0;  ///< seconds of the processing alone
};

/// Runs through all frames of a recording in their order and shows the progress.
///
/// @param process  takes the samples of a frame; its time is measured
/// @param deliver  takes the frame's index once it is processed
/// @throws UsageError if a frame can't be read or has no samples by the scale
RunTimes forEachFrame(Recording& recording, SampleScale& scale,
                      const std::function<void(const cv::Mat_<short>& samples)>& process,
                      const std::function<void(int index)>& deliver);

/// "300 frames in 0.25 s, 1200 frames per second; the chain alone 3100 frames per second, 16.8 ns per pixel"
/// @param name  what was measured alone, "the chain"
std::string speedText(const RunTimes& times, cv::Size size, const std::string& name);

}  // namespace vxapp
