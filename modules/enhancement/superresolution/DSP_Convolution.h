// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "core/base/Export.h"
#include "core/diagnostics/DebugChannel.h"

namespace halvor::vx {

/// The pair of sparse convolutions as a signal processor runs it, in integers: a model to put firmware beside.
///
/// A frame has lowHeight rows of lowWidth samples, (int)(height / upscaling) and (int)(width / upscaling).
/// Filters are separable; their taps are Q15 in fullConvFromSparse(). Arrays are row-major without gaps. Calls
/// report on the channel "DSP_Convolution" at level 11, and what they computed on the way at level 12. An
/// object is for one thread at a time; a copy has buffers of its own.
///
/// @tparam T  of samples and taps: short or int. Sums that are stored as T wrap.
template <typename T>
class VXKIT_API DSP_Convolution
{
public:
    /// @param width, height  of the large image, without margin
    /// @param filterLengthX, filterLengthY  taps of the filters
    /// @param upscaling  columns and rows of the large image per column and row of a frame, 1 or more
    /// @throws Exception  if a size is below 1 or the factor below 1, or one of them beyond a million
    DSP_Convolution(int width, int height, int filterLengthX, int filterLengthY, float upscaling);
    DSP_Convolution(const DSP_Convolution&);
    DSP_Convolution& operator=(const DSP_Convolution&);
    DSP_Convolution(DSP_Convolution&&) noexcept;
    DSP_Convolution& operator=(DSP_Convolution&&) noexcept;
    ~DSP_Convolution();

    /// One number with two meanings: in fullConvFromSparse() the count of a right shift, in
    /// validCorrToSparse() a divisor. It starts as 0.
    void setFilterScale(int scale);

    /// Takes a frame to the large grid by four 3 by 3 kernels, one for each phase of the grid. Each value is
    /// the sum of its products, shifted right by the filter scale and saturated to 16 bits.
    ///
    /// @param src   frame
    /// @param filterX, filterY  taps; beyond a filter's length they count as 0
    /// @param mask  one signed byte per sample, by which it is multiplied
    /// @param dst   rows of 2 * lowWidth + 5 values; the first 2 * lowWidth + 4 of the first 2 * lowHeight + 4
    ///              rows are written
    /// @throws Exception  unless the upscaling is 2, the filters have at most six taps, the filter scale is a
    ///                    shift of 0 to 31, and (lowWidth + 4) * (lowHeight + 2) - 2, the count of samples that
    ///                    the processor's routine runs over, fits its 16 bits
    void fullConvFromSparse(const T* src, const T* filterX, const T* filterY, const char* mask, T* dst);

    /// Takes the large grid to a frame by correlation and sub-sampling. Each product is divided by the filter
    /// scale, towards zero, before it is added: every term loses its own fraction.
    ///
    /// @param src  rows of (int)upscaling * lowWidth + filterLengthX - 1 values, height + filterLengthY - 1 of
    ///             them
    /// @param dst  frame, overwritten
    /// @throws Exception  if the filter scale is 0
    void validCorrToSparse(const T* src, const T* filterX, const T* filterY, T* dst);

    /// The channel of this object.
    std::vector<DebugChannel*> getInternalDebugChannelObjects();

private:
    // Samples of a frame with a margin of two on each side: the arrays of fullConvFromSparse().
    int paddedWidth() const { return lowWidth() + 4; }
    int paddedHeight() const { return lowHeight() + 4; }
    int lowWidth() const { return static_cast<int>(static_cast<float>(width_) / upscaling_); }
    int lowHeight() const { return static_cast<int>(static_cast<float>(height_) / upscaling_); }

    // Values that the routine computes for a plane: up to the last one with a full neighbourhood.
    std::int64_t run() const { return std::int64_t{paddedWidth()} * (lowHeight() + 2) - 2; }
    short checkedRun() const;

    void padFrame(const T* src, const char* mask);
    void makePhaseKernel(int phase, const T* filterX, const T* filterY, T* kernel) const;
    void interleave(T* dst) const;
    void tellPlane(int phase) const;

    /// The processor's routine: a 3 by 3 correlation over a flat run of samples, across the ends of lines.
    ///
    /// @param count  values to compute; `in` holds 2 * pitch + 2 samples more
    /// @param pitch  samples from a line to the next
    /// @param mask   nine taps
    /// @param shift  of each sum to the right, 0 to 31
    void ImgConv3x3I16sC16s(const T* in, T* out, short count, short pitch, const T* mask, T shift) const;

    std::int32_t width_;
    std::int32_t height_;
    std::int32_t filterLengthX_;
    std::int32_t filterLengthY_;
    std::int32_t fullWidth_;
    std::int32_t fullHeight_;
    float upscaling_;
    std::vector<T> buffer_;
    std::int32_t filterScale_ = 0;
    DebugChannel channel_;
    std::vector<T> padded_;  // empty if the frame is too large for the routine
    std::vector<T> planes_;  // four of the size of padded_, one after the other
};

}  // namespace halvor::vx
