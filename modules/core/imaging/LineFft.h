// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/cvstd_wrapper.hpp>

namespace cv::hal {
struct DFT1D;
}

namespace halvor::vx {

/// One-dimensional single-precision Fourier transforms of a frame's rows and columns: the tables of one
/// thread.
///
/// Forward transforms use the kernel exp(-2 pi i j k / n). None scales, so that forward and backward together
/// multiply by the length. Every length works that has the required parity, prime factors too, but a prime
/// factor above 100 makes the transform slow and lets it take a temporary from the heap.
///
/// Input and output must not overlap. Not for two threads at once.
class LineFft
{
public:
    /// @param rowLength     values of a row, even and above 0
    /// @param columnLength  values of a column, above 0
    /// @throws Exception    for other lengths
    LineFft(int rowLength, int columnLength);

    /// Real row to its packed half spectrum: out[0] the sum; out[2k-1], out[2k] real and imaginary part of
    /// harmonic k; out[rowLength-1] the harmonic rowLength / 2.
    void rowForward(const float* in, float* out) const;
    /// Inverse of rowForward(), times rowLength.
    void rowBackward(const float* in, float* out) const;

    /// Column of columnLength complex values, real part first.
    void columnForward(const float (*in)[2], float (*out)[2]) const;
    /// Inverse of columnForward(), times columnLength.
    void columnBackward(const float (*in)[2], float (*out)[2]) const;

private:
    cv::Ptr<cv::hal::DFT1D> rowForward_;
    cv::Ptr<cv::hal::DFT1D> rowBackward_;
    cv::Ptr<cv::hal::DFT1D> columnForward_;
    cv::Ptr<cv::hal::DFT1D> columnBackward_;
};

}  // namespace halvor::vx
