// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/base/Export.h"

namespace halvor::vx {

class LineFft;

/// Serial twin of SrFloatFft2d: the same transforms and the same smoothing, one line after the other.
///
/// Sizes, layouts, scaling and errors are those of SrFloatFft2d.
class VXKIT_API SuperResolutionFft2d
{
public:
    /// As SrFloatFft2d: the width even and 2 or more, the height 1 or more.
    ///
    /// @throws Exception  for any other size
    SuperResolutionFft2d(int width, int height);
    SuperResolutionFft2d(const SuperResolutionFft2d&) = delete;
    SuperResolutionFft2d(SuperResolutionFft2d&&) = delete;
    SuperResolutionFft2d& operator=(const SuperResolutionFft2d&) = delete;
    SuperResolutionFft2d& operator=(SuperResolutionFft2d&&) = delete;
    ~SuperResolutionFft2d();

    /// The transforms of SrFloatFft2d, on the calling thread.
    void forward(const float* image, float (*spectrum)[2]);
    void backward(const float (*spectrum)[2], float* image);
    /// Also writes each tap of the kernel to the standard output, one a line.
    void gaussFft(int radius, float sigma, float (*spectrum)[2], float* kernel);
    /// As SrFloatFft2d::repairGaussBlur(), on the calling thread.
    void repairGaussBlur(const float* source, float* blurred, int radius, const float* kernel);

private:
    void gatherColumn(const float (*spectrum)[2], int column);
    void blurRow(const float* source, int row, int radius, const float* kernel);
    void blurColumn(const float* source, int column, int radius, const float* kernel);
    void subtractFromRow(float* blurred, int row, float factor) const;
    void subtractFromColumn(float* blurred, int column, float factor) const;
    void scaleRow(float* blurred, int row, float factor) const;
    void scaleColumn(float* blurred, int column, float factor) const;

    std::int32_t width_;
    std::int32_t height_;
    std::int32_t half_;
    std::unique_ptr<LineFft> lines_;
    // A column or a row before and after its transform, and a column with its wrapped ends.
    std::vector<float> lineIn_;
    std::vector<float> lineOut_;
    std::vector<float> extended_;
};

}  // namespace halvor::vx
