// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/base/Export.h"
#include "core/diagnostics/DebugChannel.h"
#include "enhancement/superresolution/SrIntMinimization.h"

namespace halvor::vx {

/// The solver of the fixed-point engine in the shape of an FPGA's dataflow: a model of that pipeline, for frames of
/// 160 by 120 pixels and a factor of 2.
///
/// The method, its numbers and its scalars are those of SrIntMinimization. What differs is the road of the data:
/// estimate and residual change between two banks, convolutions stream line by line through two lines of sums of 32
/// bits or three of 16 bits, each product is rounded by one multiply-accumulate of 16 by 32 bits, and the edge
/// weights are formed from the stream at the start of every step. As long as nothing leaves 16 bits and masks hold
/// 0 and 1 the result has the same bits as the plain solver's.
///
/// Quirks of the pipeline that are part of the contract: a mask byte counts as set if it is not 0, where the plain
/// kernels multiply by it; the streamed convolutions check no range; and a run whose first round needs no step gives
/// out the first bank of the estimate as it stands, that is the last run's or, at first, zeros.
///
/// Images of the large grid have 245 rows of 325 pixels. Pointers that are called in and out may be the same in the
/// element operations, and nowhere else.
class VXKIT_API SrIntFpgaMinimization : public SrIntMinimization
{
public:
    /// @param width, height, factor  160, 120 and 2
    /// @param numFrames  capacity: the most frames that minimize() may be given
    /// @throws Exception  for any other size or factor, or a capacity that is not positive
    SrIntFpgaMinimization(short width, short height, short numFrames, short factor);
    SrIntFpgaMinimization(const SrIntFpgaMinimization&) = delete;
    SrIntFpgaMinimization(SrIntFpgaMinimization&&) = delete;
    SrIntFpgaMinimization& operator=(const SrIntFpgaMinimization&) = delete;
    SrIntFpgaMinimization& operator=(SrIntFpgaMinimization&&) = delete;
    ~SrIntFpgaMinimization() override;

    using SrIntMinimization::computeAlpha;
    using SrIntMinimization::computeR;
    using SrIntMinimization::computeRleftShift;
    using SrIntMinimization::computeRrightShift;
    using SrIntMinimization::computeS;
    using SrIntMinimization::computeSleftShift;
    using SrIntMinimization::computeSrightShift;
    using SrIntMinimization::computeU;
    using SrIntMinimization::computeUleftShift;
    using SrIntMinimization::computeUrightShift;

    /// As the plain solver's; an empty R is refused as well.
    std::int64_t computeRandS(cv::Mat_<short>& R, const cv::Mat_<short>& B, cv::Mat_<short>& S,
                              signed char shift) override;

    // The order of the virtual operations is part of the binary interface.

    /// out = in + mantissa * S * 2^shift, over images of the large grid.
    virtual void computeU(short* in, short* out, const short* S, short mantissa, signed char shift);
    virtual void computeUleftShift(short* in, short* out, const short* S, short mantissa,
                                   unsigned char shift);
    virtual void computeUrightShift(short* in, short* out, const short* S, short mantissa,
                                    unsigned char shift);
    /// Sout = R + mantissa * Sin * 2^shift
    ///
    /// @throws Exception  "invalid S or R frame size"
    virtual void computeS(const short* Sin, cv::Mat_<short>& Sout, const cv::Mat_<short>& R, short mantissa,
                          signed char shift);
    /// Only reports what leaves 16 bits.
    virtual void computeSrightShift(const short* Sin, cv::Mat_<short>& Sout, const cv::Mat_<short>& R,
                                    short mantissa, unsigned char shift);
    /// Where R + t would leave 16 bits, Sout is set to the bound before t is formed anew from Sin: that is the bound
    /// where the two are one image, and without effect where they are not.
    virtual void computeSleftShift(const short* Sin, cv::Mat_<short>& Sout, const cv::Mat_<short>& R,
                                   short mantissa, unsigned char shift);

    /// As the plain solver's. Masks count as 1 where they are not 0, and have no gaps between their rows.
    short minimize(short numFrames, short refIndex, std::vector<cv::Mat_<float>>& frames,
                   const std::vector<cv::Mat_<signed char>>& masks, cv::Mat_<float>& result);

    /// As the plain solver's, with the large image as a pointer.
    void computeLSimplified(const short* X, const Fixpoint& epsilon, const Fixpoint& invEpsilon,
                            const Fixpoint& lambda, signed char e);
    /// As the plain solver's, with the large image as a pointer.
    ///
    /// @throws Exception  "invalid result frame size"
    void applyLSimplified(const short* in, cv::Mat_<short>& out);

    /// As the plain solver's, with the large image as a pointer.
    void validCorrToSparse(const short* image, const cv::Mat_<short>& rowMask, const cv::Mat_<short>& colMask,
                           cv::Mat_<short>& result, signed char shift);
    /// Adds the blurred frame to the large image, two rows of the large image per row of the frame and two more pairs
    /// that drain the pipeline. The last row and the last column stay as they are.
    ///
    /// @param src, mask  frame
    /// @param rowTaps, colTaps  six horizontal and six vertical taps with 16 fractional bits
    void fullConvFromSparseLinewise(const short* src, const short* rowTaps, const short* colTaps,
                                    const signed char* mask, short* result);
    /// Blurs and sub-samples the large image.
    ///
    /// @param result  frame, overwritten
    /// @param shift   exponent of the taps: -16
    void validCorrToSparseLinewise(const short* src, const short* rowTaps, const short* colTaps,
                                   short* result, signed char shift);
    /// The multiply-accumulate of the pipeline: a * b / 2^32, rounded.
    static short Mac_16_32(short a, int b);

    /// As the plain solver's, with S as a pointer.
    ///
    /// @throws Exception  "invalid S or Q frame size"
    std::int64_t computeAlpha(const short* S, const cv::Mat_<short>& Q, signed char shift);
    /// Rout = Rin - mantissa * Q * 2^shift
    ///
    /// @return the sum of squares of Rout, times 2^sumShift
    /// @throws Exception  "invalid R or Q frame size"
    std::int64_t computeR(short* Rin, short* Rout, const cv::Mat_<short>& Q, short mantissa,
                          signed char shift, signed char sumShift);
    std::int64_t computeRleftShift(short* Rin, short* Rout, const cv::Mat_<short>& Q, short mantissa,
                                   unsigned char shift, signed char sumShift);
    std::int64_t computeRrightShift(short* Rin, short* Rout, const cv::Mat_<short>& Q, short mantissa,
                                    unsigned char shift, signed char sumShift);

    /// The channel "SrIntFpga": steps of this class. What is inherited reports on the channel "SrInt".
    DebugChannel& getFpgaChannel() { return fpgaChannel_; }

protected:
    /// @param large  number of the round; its parity selects the banks
    short conjugateGradients(short large, short numFrames, const std::vector<cv::Mat_<signed char>>& masks,
                             short maxSteps);
    bool iteration(short large, short small, short parity, short numFrames,
                   const std::vector<cv::Mat_<signed char>>& masks);
    void gradient(const short* in, short numFrames, const std::vector<cv::Mat_<signed char>>& masks,
                  cv::Mat_<short>& out);

    DebugChannel fpgaChannel_{"SrIntFpga"};
    std::vector<cv::Mat_<short>> UBank_;
    cv::Mat_<short> U0_;
    cv::Mat_<short> U1_;
    std::vector<cv::Mat_<short>> RBank_;
    cv::Mat_<short> R0_;
    cv::Mat_<short> R1_;

private:
    void requireKernels(short numFrames) const;
    void reportBounds(const short* Sin, const cv::Mat_<short>& R, short mantissa, unsigned char shift) const;

    // The estimate that a round started from.
    cv::Mat_<short>& startOf(short large)
    {
        return large == 0 ? B_ : UBank_[static_cast<std::size_t>(large % 2)];
    }
};

}  // namespace halvor::vx
