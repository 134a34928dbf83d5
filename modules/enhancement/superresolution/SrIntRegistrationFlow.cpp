// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrIntRegistration.h"

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <string>

#include "core/base/Exception.h"
#include "core/base/WrapArithmetic.h"
#include "core/registration/FrameOverlap.h"

// The sub-pixel step of the registration: one solution of two linear equations whose coefficients are 16-bit
// mantissas, and the grading of the pixels that follows from it.
namespace halvor::vx {

namespace {

constexpr std::int8_t exponentWidth = 7;
constexpr int fractionBits = 15;
constexpr int quotientBits = 16;
constexpr int inverseBits = 30;

std::string flowWhere()
{
    return VX_WHERE("halvor::vx::SrIntRegistration::opticalFlow");
}

Fixpoint scaled(std::int64_t value, int exponent)
{
    Fixpoint result;
    result.setExponentWidth(exponentWidth);
    result.fromInt64(value);
    result.incrExponent(static_cast<std::int8_t>(std::clamp(exponent, -128, 127)));
    return result;
}

// A mantissa reduced from a large sum has an exponent above 0, which is the normal case; the fault is one that
// needs more bits than the exponent has.
void requireRepresentable(std::initializer_list<std::int64_t> sums)
{
    std::int64_t largest = std::numeric_limits<std::int64_t>::min();
    for (const std::int64_t sum : sums)
        largest = std::max({largest, sum, wrapSub64(0, sum)});
    Fixpoint probe;
    probe.setExponentWidth(exponentWidth);
    constexpr int largestExponent = (1 << (exponentWidth - 1)) - 1;
    if (probe.fromInt64(largest) > largestExponent)
        throw Exception("unexpected Exp", flowWhere());
}

int shiftedRight(int value, int count)
{
    return value >> std::min(count, 31);
}

// What a number looks like as a mantissa of a common exponent.
struct Term
{
    int mantissa;
    int exponent;
};

// Brings the term with the lesser exponent to that of the other, which it returns.
int align(Term& a, Term& b)
{
    const int gap = a.exponent - b.exponent;
    if (gap < 0)
        a.mantissa = shiftedRight(a.mantissa, -gap);
    else
        b.mantissa = shiftedRight(b.mantissa, gap);
    return std::max(a.exponent, b.exponent);
}

Term productTerm(const Fixpoint& a, const Fixpoint& b)
{
    return {a.getMantissa() * b.getMantissa(), a.getExponent() + b.getExponent()};
}

// a * b - c * d, of mantissas in 32 bits.
Fixpoint product(const Fixpoint& a, const Fixpoint& b, const Fixpoint& c, const Fixpoint& d)
{
    Term first = productTerm(a, b);
    Term second = productTerm(c, d);
    const int exponent = align(first, second);
    return scaled(wrapSub(first.mantissa, second.mantissa), exponent);
}

Fixpoint sum(const Fixpoint& a, const Fixpoint& b)
{
    Term first{a.getMantissa(), a.getExponent()};
    Term second{b.getMantissa(), b.getExponent()};
    const int exponent = align(first, second);
    return scaled(first.mantissa + second.mantissa, exponent);
}

void requireGradients(const Fixpoint& divisor)
{
    if (divisor.getMantissa() == 0)
        throw Exception("no gradients in the common area of the frames", flowWhere());
}

struct FlowStep
{
    Fixpoint u;
    Fixpoint v;
};

Term quotient(const Fixpoint& numerator, const Fixpoint& denominator)
{
    // The one quotient that 32 bits don't hold wraps.
    const std::int64_t ratio =
        (std::int64_t{numerator.getMantissa()} * (1 << quotientBits)) / denominator.getMantissa();
    return {static_cast<int>(ratio), numerator.getExponent() - quotientBits - denominator.getExponent()};
}

// u = (xy * yt - yy * xt) / det, v = (xy * xt - xx * yt) / det.
FlowStep solve(const Fixpoint& xx, const Fixpoint& xy, const Fixpoint& yy, const Fixpoint& xt,
               const Fixpoint& yt)
{
    const Fixpoint det = product(xx, yy, xy, xy);
    requireGradients(det);
    const Term u = quotient(product(xy, yt, yy, xt), det);
    const Term v = quotient(product(xy, xt, xx, yt), det);
    if (u.exponent > 0 || v.exponent > 0)
        throw Exception("invalid result for shift, shifting away integer pixel shift", flowWhere());
    return {scaled(u.mantissa, u.exponent), scaled(v.mantissa, v.exponent)};
}

// The inverse of the trace: the mean energy of the gradients turns squared grey values into squared pixels.
Fixpoint errorWeight(const Fixpoint& xx, const Fixpoint& yy, int scaleLog)
{
    const Fixpoint trace = sum(xx, yy);
    requireGradients(trace);
    const std::int64_t inverse = (std::int64_t{1} << inverseBits) / trace.getMantissa();
    return scaled(static_cast<std::int32_t>(inverse), 2 * scaleLog - inverseBits - trace.getExponent());
}

int floorLog2(std::int64_t value)
{
    int log = 0;
    for (; value >= 2; value /= 2)
        ++log;
    return log;
}

// A part of the flow, as a 16-bit mantissa, with 15 bits behind the point. A flow of a pixel or more wraps.
short fractionOf(short mantissa, int exponent)
{
    const int right = -exponent - fractionBits;
    if (right >= 0)
        return static_cast<short>(shiftedRight(mantissa, right));
    return right > -16 ? lowSigned16(mantissa * (1 << -right)) : short{0};
}

struct WholeAndFraction
{
    short whole;
    short fraction;  // Q15
};

// Nearest whole pixel; the fraction wraps to its other side.
WholeAndFraction nearestWhole(short whole, short fraction)
{
    constexpr int half = 1 << (fractionBits - 1);
    constexpr int one = 1 << fractionBits;
    if (fraction >= half)
        return {lowSigned16(whole + 1), lowSigned16(fraction - one)};
    if (fraction < -half)
        return {lowSigned16(whole - 1), lowSigned16(fraction - one)};
    return {whole, fraction};
}

Fixpoint fromQ15(short mantissa)
{
    Fixpoint result;
    result.setMantissa(mantissa);
    result.setExponent(-fractionBits);
    return result;
}

}  // namespace

cv::Point_<short> SrIntRegistration::opticalFlow(unsigned int refIndex, unsigned int frameIndex,
                                                 cv::Point_<short> intShift, cv::Point_<Fixpoint>& fraction,
                                                 cv::Point_<Fixpoint>& total, cv::Mat_<signed char>& mask)
{
    const FrameOverlap overlap = overlapOf(error_.size(), {intShift.x, intShift.y});
    const int scaleLog = floorLog2(static_cast<std::int64_t>(errorScale_));

    // The tensor of the whole reference is corrected by what lies outside of the overlap.
    std::int64_t xx = 0;
    std::int64_t xy = 0;
    std::int64_t yy = 0;
    computeRepair(diffX_(overlap.band), diffY_(overlap.band), diffX_(overlap.strip), diffY_(overlap.strip),
                  xx, xy, yy);
    xx = wrapSub64(tensorXX_, xx);
    xy = wrapSub64(tensorXY_, xy);
    yy = wrapSub64(tensorYY_, yy);

    const cv::Mat_<unsigned char> ref = baseOf(refIndex)(overlap.reference);
    const cv::Mat_<unsigned char> frame = baseOf(frameIndex)(overlap.frame);
    const cv::Mat_<short> dx = diffX_(overlap.reference);
    const cv::Mat_<short> dy = diffY_(overlap.reference);
    std::int64_t xt = 0;
    std::int64_t yt = 0;
    computeOpticalFlowSumDiffXtYt(ref, frame, dx, dy, xt, yt);
    requireRepresentable({xx, xy, yy});
    requireRepresentable({xt, yt});

    const Fixpoint a = scaled(xx, 0);
    const Fixpoint c = scaled(yy, 0);
    const FlowStep step = solve(a, scaled(xy, 0), c, scaled(xt, 0), scaled(yt, 0));
    const Fixpoint weight = errorWeight(a, c, scaleLog);

    const std::int8_t exponent = std::max(step.u.getExponent(), step.v.getExponent());
    const auto u = static_cast<short>(shiftedRight(step.u.getMantissa(), exponent - step.u.getExponent()));
    const auto v = static_cast<short>(shiftedRight(step.v.getMantissa(), exponent - step.v.getExponent()));
    const auto threshold = static_cast<unsigned short>(regErrorFix_.getMantissa());
    cv::Mat_<short> errBand = error_(overlap.band);
    cv::Mat_<short> errStrip = error_(overlap.strip);
    cv::Mat_<short> err = error_(overlap.reference);
    computeOpticalFlowError(ref, frame, dx, dy, errBand, errStrip, threshold, err, {u, v}, exponent,
                            weight.getMantissa(),
                            weight.getExponent() - 2 * scaleLog - regErrorFix_.getExponent());
    boxingFilterForSmoothing(error_, smoothedError_);
    computeImageMask(smoothedError_, mask, threshold);

    const WholeAndFraction x = nearestWhole(intShift.x, fractionOf(u, exponent));
    const WholeAndFraction y = nearestWhole(intShift.y, fractionOf(v, exponent));
    total = {Fixpoint::add(step.u, Fixpoint(intShift.x)), Fixpoint::add(step.v, Fixpoint(intShift.y))};
    fraction = {fromQ15(x.fraction), fromQ15(y.fraction)};
    return {x.whole, y.whole};
}

}  // namespace halvor::vx
