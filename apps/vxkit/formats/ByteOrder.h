// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>

namespace vxapp {

/// What a frame tells about the order of the bytes in its samples.
enum class OrderGuess
{
    unknown,  ///< a single byte tells nothing, and neither does a frame without contrast or without smoothness
    asRead,
    swapped
};

/// Compares how much neighbours in a row differ, as the samples were read and with their bytes swapped: noise stands
/// in the low byte, and read the wrong way it stands in the high one. Floats with their bytes swapped are absurdly
/// large, small or no numbers.
///
/// @param frame  of any storage of samples (see SampleFacts)
OrderGuess guessByteOrder(const cv::Mat& frame);

/// Whether 16-bit counts look like parts of samples of 32 or 64 bits: every second or every fourth is far smoother along
/// a row than the row itself is from one to the next, and than the others are.
bool looksLikeWiderSamples(const cv::Mat_<std::uint16_t>& frame);

/// Whether a frame looks as if its width was taken for its height: each pixel is far more like the one that would lie
/// above it if it were.
bool looksTurned(const cv::Mat_<std::uint16_t>& frame);

}  // namespace vxapp
