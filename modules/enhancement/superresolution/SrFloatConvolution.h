// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>

#include "core/base/Export.h"
#include "core/diagnostics/DebugChannel.h"

namespace halvor::vx {

/// Imaging model of the float engine: the pair of linear operators between a frame and the large image, each
/// with a separable kernel per frame, and the box filter that the registrations use.
///
/// A frame is a grid of which every second row and every `factor`-th column of the large image carries a
/// sample; it is never expanded into that grid. The large image is the full grid: larger than the result by
/// the kernel's size minus one in each direction, so that every tap has a place. Arrays are row-major
/// without gaps.
///
/// An object is for one thread at a time; copies share the intermediate buffer and count as the same object.
class VXKIT_API SrFloatConvolution : public DebugChannel
{
public:
    /// @param resultWidth, resultHeight  size of the large image without its margin
    /// @param tapsX, tapsY  horizontal and vertical taps of a kernel
    /// @param resolutionFactor  columns of the large image per column of a frame
    SrFloatConvolution(int resultWidth, int resultHeight, int tapsX, int tapsY, float resolutionFactor);
    SrFloatConvolution(const SrFloatConvolution&) = default;
    SrFloatConvolution(SrFloatConvolution&&) = default;
    SrFloatConvolution& operator=(const SrFloatConvolution&) = default;
    SrFloatConvolution& operator=(SrFloatConvolution&&) = default;
    ~SrFloatConvolution() override;

    /// Takes a frame to the full grid: each sample scatters the kernel towards larger indices, tap 0 at the
    /// sample's own position.
    ///
    /// @param sparse  frame
    /// @param mask    one signed byte per sample, by which it is multiplied: 1 keeps, 0 removes
    /// @param full    written
    /// @throws Exception  if the factor is below 2, where the vertical stride of 2 leaves the grid
    void fullConvFromSparse(const float* sparse, const float* kernelX, const float* kernelY, const char* mask,
                            float* full);

    /// Takes the full grid to a frame: the transpose of fullConvFromSparse() with a mask of ones.
    ///
    /// @param sparse  written
    /// @throws Exception  as fullConvFromSparse()
    void validCorrToSparse(const float* full, const float* kernelX, const float* kernelY, float* sparse);

    /// Box filter whose window is cut off at the image's edges, so that a flat image stays flat.
    ///
    /// @param src     at least 2 * radius rows and columns
    /// @param radius  pixels on each side of the centre
    /// @param dst     may be src; created at its size
    static void blurImageMeanFilter(const cv::Mat_<float>& src, int radius, cv::Mat_<float>& dst);

private:
    // Size of a frame, and columns of the large image per column of a frame.
    struct FrameGrid
    {
        int lowWidth;
        int lowHeight;
        int stride;
    };
    FrameGrid frameGrid() const;

    std::int32_t width_;
    std::int32_t height_;
    std::int32_t kernelWidth_;
    std::int32_t kernelHeight_;
    std::int32_t fullWidth_;
    std::int32_t fullHeight_;
    float factor_;
    cv::Mat_<float> tmpMat_;
    float* tmp_;
};

}  // namespace halvor::vx
