// SPDX-License-Identifier: Apache-2.0
#pragma once

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

}  // namespace vxapp
