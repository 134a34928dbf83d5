// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "core/base/Export.h"
#include "core/diagnostics/DebugChannel.h"

namespace halvor::vx {

/// Serial twin of SrFloatConvolution: the operators that relate a low-resolution frame to the large image,
/// and a box filter.
///
/// A frame has `lowHeight` rows of `lowWidth` samples, (int)(height / factor) and (int)(width / factor). The
/// full grid has height + kernelHeight - 1 rows of width + kernelWidth - 1 values. All arrays are row-major
/// without gaps. Unlike in the twin, the vertical stride follows the factor. Calls report on the channel "SR"
/// at level 12.
class VXKIT_API SuperResolutionConvolution
{
public:
    /// @param width, height  of the large image, without margin
    /// @param kernelWidth, kernelHeight  taps of a kernel in each direction, 1 or more
    /// @param factor         resolution factor between the grids, 1 or more
    SuperResolutionConvolution(int width, int height, int kernelWidth, int kernelHeight, float factor);

    /// Scatters each sample of a frame, weighted by the separable kernel, onto the full grid. Tap 0 lands on
    /// the sample's own place, the others towards larger indices.
    ///
    /// @param mask  one value per sample: 1 keeps it, 0 removes it
    /// @param full  overwritten
    void fullConvFromSparse(const float* sparse, const float* kernelX, const float* kernelY, const char* mask,
                            float* full);

    /// The transpose of fullConvFromSparse() with a mask of ones: each sample is the kernel's weighted sum
    /// over the full grid.
    ///
    /// @param sparse  overwritten
    void validCorrToSparse(const float* full, const float* kernelX, const float* kernelY, float* sparse);

    /// Box filter whose window is cut off at the image's edges, so that a flat image stays flat.
    ///
    /// @param in, out  `height` rows of `width` values each, not the same array; at least 2 * radius rows and
    ///                 columns
    /// @param radius   pixels on each side of the centre
    void sameConvOnes(const float* in, int radius, float* out);

    /// The channel of this object.
    std::vector<DebugChannel*> getInternalDebugChannelObjects();

private:
    // The samples of a frame and their distances: columns on the full grid, and elements of `tmp` that lie
    // between the rows of one tap.
    struct Sampling
    {
        int lowWidth;
        int lowHeight;
        int stride;
        int rowJump;
    };

    Sampling sampling() const;

    std::int32_t width_;
    std::int32_t height_;
    std::int32_t kernelWidth_;
    std::int32_t kernelHeight_;
    std::int32_t fullWidth_;
    std::int32_t fullHeight_;
    float factor_;
    std::vector<float> tmp_;
    DebugChannel channel_;
};

}  // namespace halvor::vx
