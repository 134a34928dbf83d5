// SPDX-License-Identifier: Apache-2.0
#include "core/imaging/LineFft.h"

#include <opencv2/core/hal/hal.hpp>
#include <string>

#include "core/base/Exception.h"

namespace halvor::vx {

namespace {

int requireTransformable(int rowLength, int columnLength)
{
    if (rowLength >= 2 && rowLength % 2 == 0 && columnLength >= 1)
        return rowLength;
    throw Exception("Frames of " + std::to_string(rowLength) + " x " + std::to_string(columnLength) +
                        " pixels can't be transformed: the width must be even, and neither side empty",
                    VX_WHERE("halvor::vx::LineFft::LineFft"));
}

cv::Ptr<cv::hal::DFT1D> createContext(int length, int flags)
{
    return cv::hal::DFT1D::create(length, 1, CV_32F, flags);
}

template <typename In, typename Out>
void apply(const cv::Ptr<cv::hal::DFT1D>& context, const In* in, Out* out)
{
    context->apply(reinterpret_cast<const uchar*>(in), reinterpret_cast<uchar*>(out));
}

}  // namespace

// The real-output flag asks for the packed form on the forward side, too. Rows of odd length would need one
// float of room behind their output.
LineFft::LineFft(int rowLength, int columnLength)
    : rowForward_(createContext(requireTransformable(rowLength, columnLength), CV_HAL_DFT_REAL_OUTPUT)),
      rowBackward_(createContext(rowLength, CV_HAL_DFT_REAL_OUTPUT | CV_HAL_DFT_INVERSE)),
      columnForward_(createContext(columnLength, 0)),
      columnBackward_(createContext(columnLength, CV_HAL_DFT_INVERSE))
{}

void LineFft::rowForward(const float* in, float* out) const
{
    apply(rowForward_, in, out);
}

void LineFft::rowBackward(const float* in, float* out) const
{
    apply(rowBackward_, in, out);
}

void LineFft::columnForward(const float (*in)[2], float (*out)[2]) const
{
    apply(columnForward_, in, out);
}

void LineFft::columnBackward(const float (*in)[2], float (*out)[2]) const
{
    apply(columnBackward_, in, out);
}

}  // namespace halvor::vx
