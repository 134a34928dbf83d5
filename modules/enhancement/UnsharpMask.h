// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include "core/base/Export.h"

namespace halvor::vx {

/// Unsharp masking: adds the difference between an image and its Gaussian blur to the image.
///
/// Floating-point results have the image library's rounding, which depends on the processor in the last bits.
class VXKIT_API UnsharpMask
{
public:
    UnsharpMask() = default;
    ~UnsharpMask() = default;

    /// @param src        8-bit (signed or unsigned), 32-bit or 64-bit floating-point image
    /// @param dst        created at the size and type of src
    /// @param amount     weight of the difference; 0 leaves the image as it is
    /// @param sigma      of the blur, in pixels
    /// @param threshold  one channel only: a pixel is sharpened where the difference exceeds this share
    ///                   of full scale (255, 127, or 1.0 for floating point). Only brighter detail counts, a
    ///                   negative difference never passes.
    /// @return 0, or -1 for another depth, which leaves dst alone
    /// @throws cv::Exception what the image library refuses: one channel of floating-point depth, whose mask
    ///                       is not an 8-bit image, and in OpenCV 4 signed 8-bit images, which it can't blur
    static int unsharp(cv::Mat& src, cv::Mat& dst, double amount, double sigma, double threshold);
};

}  // namespace halvor::vx
