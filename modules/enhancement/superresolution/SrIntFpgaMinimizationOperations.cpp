// SPDX-License-Identifier: Apache-2.0
// The operations of the FPGA form. An operation from one bank to another copies the bank and then runs in place,
// which gives the same values; the streamed convolutions stand in a file of their own.
#include <algorithm>
#include <cstddef>

#include "core/base/Exception.h"
#include "core/base/Kernel.h"
#include "core/base/WrapArithmetic.h"
#include "core/fixpoint/RoundingShift.h"
#include "enhancement/superresolution/SrIntFpgaMinimization.h"
#include "enhancement/superresolution/fixedpoint/FpgaStream.h"

namespace halvor::vx {

namespace {

unsigned char magnitude(signed char negativeShift)
{
    return static_cast<unsigned char>(-negativeShift);
}

bool hasLargeSize(const cv::Mat& image)
{
    return image.rows == fpga::largeHeight && image.cols == fpga::largeWidth;
}

bool isLarge(const cv::Mat& image)
{
    return hasLargeSize(image) && image.isContinuous();
}

// A view of a large image; OpenCV has none for constant pixels.
cv::Mat_<short> viewOf(const short* image)
{
    return {fpga::largeHeight, fpga::largeWidth, const_cast<short*>(image)};
}

void copyBank(const short* in, short* out)
{
    if (in != out)
        std::copy_n(in, static_cast<std::ptrdiff_t>(fpga::largeWidth) * fpga::largeHeight, out);
}

void require(bool condition, const char* message, const char* function)
{
    if (!condition)
        throw Exception(message, VX_WHERE(function));
}

}  // namespace

std::int64_t SrIntFpgaMinimization::computeRandS(cv::Mat_<short>& R, const cv::Mat_<short>& B,
                                                 cv::Mat_<short>& S, signed char shift)
{
    require(!R.empty() && R.size() == B.size() && R.size() == S.size(), "invalid R, B or S frame size",
            "halvor::vx::SrIntFpgaMinimization::computeRandS");
    return SrIntMinimization::computeRandS(R, B, S, shift);
}

void SrIntFpgaMinimization::computeU(short* in, short* out, const short* S, short mantissa, signed char shift)
{
    if (shift >= 0)
        computeUleftShift(in, out, S, mantissa, static_cast<unsigned char>(shift));
    else
        computeUrightShift(in, out, S, mantissa, magnitude(shift));
}

void SrIntFpgaMinimization::computeUleftShift(short* in, short* out, const short* S, short mantissa,
                                              unsigned char shift)
{
    copyBank(in, out);
    cv::Mat_<short> estimate = viewOf(out);
    SrIntMinimization::computeUleftShift(estimate, viewOf(S), mantissa, shift);
}

void SrIntFpgaMinimization::computeUrightShift(short* in, short* out, const short* S, short mantissa,
                                               unsigned char shift)
{
    copyBank(in, out);
    cv::Mat_<short> estimate = viewOf(out);
    SrIntMinimization::computeUrightShift(estimate, viewOf(S), mantissa, shift);
}

void SrIntFpgaMinimization::computeS(const short* Sin, cv::Mat_<short>& Sout, const cv::Mat_<short>& R,
                                     short mantissa, signed char shift)
{
    if (shift >= 0)
        computeSleftShift(Sin, Sout, R, mantissa, static_cast<unsigned char>(shift));
    else
        computeSrightShift(Sin, Sout, R, mantissa, magnitude(shift));
}

void SrIntFpgaMinimization::computeSrightShift(const short* Sin, cv::Mat_<short>& Sout,
                                               const cv::Mat_<short>& R, short mantissa, unsigned char shift)
{
    require(isLarge(Sout) && isLarge(R), "invalid S or R frame size",
            "halvor::vx::SrIntFpgaMinimization::computeSrightShift");
    copyBank(Sin, Sout[0]);
    SrIntMinimization::computeSrightShift(Sout, R, mantissa, shift);
}

void SrIntFpgaMinimization::computeSleftShift(const short* Sin, cv::Mat_<short>& Sout,
                                              const cv::Mat_<short>& R, short mantissa, unsigned char shift)
{
    require(isLarge(Sout) && isLarge(R), "invalid S or R frame size",
            "halvor::vx::SrIntFpgaMinimization::computeSleftShift");
    if (Sin == Sout[0]) {
        SrIntMinimization::computeSleftShift(Sout, R, mantissa, shift);
        return;
    }
    // From bank to bank the bound is written where nobody reads it, so that the report is all that is left of it.
    reportBounds(Sin, R, mantissa, shift);
    copyBank(R[0], Sout[0]);
    SrIntMinimization::computeUleftShift(Sout, viewOf(Sin), mantissa, shift);
}

void SrIntFpgaMinimization::reportBounds(const short* Sin, const cv::Mat_<short>& R, short mantissa,
                                         unsigned char shift) const
{
    constexpr int reportLevel = 2;
    if (!debugChannel_.isDebugActive(reportLevel))
        return;
    for (int i = 0; i < R.rows * R.cols; ++i) {
        const auto product = static_cast<std::uint32_t>(mantissa * Sin[i]);
        const auto t = static_cast<std::int32_t>(shift < 32 ? product << shift : 0U);
        const std::int32_t sum = wrapAdd(R[0][i], t);
        if (sum > 32767 || sum < -32768)
            debugChannel_.send("clamped S value", reportLevel);
    }
}

void SrIntFpgaMinimization::computeLSimplified(const short* X, const Fixpoint& epsilon,
                                               const Fixpoint& invEpsilon, const Fixpoint& lambda,
                                               signed char e)
{
    SrIntMinimization::computeLSimplified(viewOf(X), epsilon, invEpsilon, lambda, e);
}

void SrIntFpgaMinimization::applyLSimplified(const short* in, cv::Mat_<short>& out)
{
    SrIntMinimization::applyLSimplified(viewOf(in), out);
}

void SrIntFpgaMinimization::validCorrToSparse(const short* image, const cv::Mat_<short>& rowMask,
                                              const cv::Mat_<short>& colMask, cv::Mat_<short>& result,
                                              signed char shift)
{
    SrIntMinimization::validCorrToSparse(viewOf(image), rowMask, colMask, result, shift);
}

void SrIntFpgaMinimization::fullConvFromSparseLinewise(const short* VX_RESTRICT src, const short* rowTaps,
                                                       const short* colTaps,
                                                       const signed char* VX_RESTRICT mask,
                                                       short* VX_RESTRICT result)
{
    fpga::scatterFrame(src, mask, rowTaps, colTaps, result);
}

void SrIntFpgaMinimization::validCorrToSparseLinewise(const short* VX_RESTRICT src, const short* rowTaps,
                                                      const short* colTaps, short* VX_RESTRICT result,
                                                      signed char shift)
{
    fpga::gatherFrame(src, rowTaps, colTaps, static_cast<signed char>(shift * 2), result);
}

short SrIntFpgaMinimization::Mac_16_32(short a, int b)
{
    return static_cast<short>(roundShiftRight64(std::int64_t{a} * b, 32));
}

std::int64_t SrIntFpgaMinimization::computeAlpha(const short* S, const cv::Mat_<short>& Q, signed char shift)
{
    require(hasLargeSize(Q), "invalid S or Q frame size", "halvor::vx::SrIntFpgaMinimization::computeAlpha");
    return SrIntMinimization::computeAlpha(viewOf(S), Q, shift);
}

std::int64_t SrIntFpgaMinimization::computeR(short* Rin, short* Rout, const cv::Mat_<short>& Q,
                                             short mantissa, signed char shift, signed char sumShift)
{
    return shift >= 0 ? computeRleftShift(Rin, Rout, Q, mantissa, static_cast<unsigned char>(shift), sumShift)
                      : computeRrightShift(Rin, Rout, Q, mantissa, magnitude(shift), sumShift);
}

std::int64_t SrIntFpgaMinimization::computeRleftShift(short* Rin, short* Rout, const cv::Mat_<short>& Q,
                                                      short mantissa, unsigned char shift,
                                                      signed char sumShift)
{
    require(hasLargeSize(Q), "invalid R or Q frame size",
            "halvor::vx::SrIntFpgaMinimization::computeRleftShift");
    copyBank(Rin, Rout);
    cv::Mat_<short> residual = viewOf(Rout);
    return SrIntMinimization::computeRleftShift(residual, Q, mantissa, shift, sumShift);
}

std::int64_t SrIntFpgaMinimization::computeRrightShift(short* Rin, short* Rout, const cv::Mat_<short>& Q,
                                                       short mantissa, unsigned char shift,
                                                       signed char sumShift)
{
    require(hasLargeSize(Q), "invalid R or Q frame size",
            "halvor::vx::SrIntFpgaMinimization::computeRrightShift");
    copyBank(Rin, Rout);
    cv::Mat_<short> residual = viewOf(Rout);
    return SrIntMinimization::computeRrightShift(residual, Q, mantissa, shift, sumShift);
}

}  // namespace halvor::vx
