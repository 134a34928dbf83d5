// SPDX-License-Identifier: Apache-2.0
#include <cstdint>
#include <string_view>
#include <vector>

#include "core/base/Exception.h"
#include "core/base/ParallelPixels.h"
#include "core/base/WrapArithmetic.h"
#include "core/fixpoint/RoundingShift.h"
#include "enhancement/superresolution/SrIntMinimization.h"
#include "enhancement/superresolution/fixedpoint/ElementRows.h"

namespace halvor::vx {

using fixedpoint::LeftScale;
using fixedpoint::RightScale;

namespace {

constexpr int reportLevel = 2;
// No image of 32767 rows and columns comes near it.
constexpr std::int64_t sumLimit = 0x7FFFFFFF80000000;

unsigned char magnitude(signed char negativeShift)
{
    return static_cast<unsigned char>(-negativeShift);
}

bool leaves16Bits(std::int32_t value)
{
    return value > 32767 || value < -32768;
}

std::int64_t leftShifted64(std::int64_t value, unsigned char count)
{
    return count < 64 ? static_cast<std::int64_t>(static_cast<std::uint64_t>(value) << count) : 0;
}

// Lines about pixels out of range, counted row by row so that any thread may meet them. Costs a comparison while
// nobody listens.
class RangeReport
{
public:
    RangeReport(const DebugChannel& channel, int rows) : channel_(channel)
    {
        if (channel.isDebugActive(reportLevel))
            counts_.resize(static_cast<std::size_t>(rows));
    }

    // isOutside(x) tells a pixel of row y.
    template <typename IsOutside>
    void count(int y, int columns, IsOutside isOutside)
    {
        if (counts_.empty())
            return;
        for (int x = 0; x < columns; ++x)
            counts_[static_cast<std::size_t>(y)] += isOutside(x) ? 1 : 0;
    }

    void send(std::string_view text) const
    {
        for (const int count : counts_)
            for (int i = 0; i < count; ++i)
                channel_.send(text, reportLevel);
    }

private:
    const DebugChannel& channel_;
    std::vector<int> counts_;
};

bool isWorthSharing(cv::Size size)
{
    return static_cast<std::size_t>(size.width) * size.height >= lightPassPixels;
}

template <typename Row>
void forEachRow(cv::Size size, Row row)
{
#pragma omp parallel for schedule(static) if (isWorthSharing(size))
    for (int y = 0; y < size.height; ++y)
        row(y);
}

// How a sum tells that it reached its limit, in a thread and in the total.
struct SumReport
{
    const DebugChannel& channel;
    std::string_view inThread;
    std::string_view inTotal;

    std::int64_t limited(std::int64_t sum, std::string_view text) const
    {
        if (sum <= sumLimit)
            return sum;
        channel.send(text, reportLevel);
        return sumLimit;
    }
};

// Sum of row(y). Integers have the same sum in any order.
template <typename Row>
std::int64_t sumOfRows(cv::Size size, const SumReport& report, Row row)
{
    std::int64_t total = 0;
#pragma omp parallel if (isWorthSharing(size))
    {
        std::int64_t own = 0;
#pragma omp for schedule(static) nowait
        for (int y = 0; y < size.height; ++y)
            own = wrapAdd64(report.limited(own, report.inThread), row(y));
#pragma omp critical
        total = wrapAdd64(report.limited(total, report.inTotal), own);
    }
    return total;
}

void requireSameSize(const cv::Mat& a, const cv::Mat& b, const char* message, const char* function)
{
    if (a.empty() || a.size() != b.size())
        throw Exception(message, VX_WHERE(function));
}

void requireDenormalisable(const cv::Mat& in, const cv::Mat& out, int offset, const char* function)
{
    if (in.empty() || offset < 0 || in.rows < out.rows + offset || in.cols < out.cols + offset)
        throw Exception("invalid input or output frame size", VX_WHERE(function));
}

}  // namespace

short SrIntMinimization::computeMean(cv::Mat_<short>& image)
{
    if (image.empty())
        return 0;
    const std::int64_t sum = sumOfRows(image.size(), {debugChannel_, "clamped s64Mean", "clamped s64Mean"},
                                       [&](int y) { return fixedpoint::sumRow(image[y], image.cols); });
    return static_cast<short>(sum / (static_cast<std::int64_t>(image.rows) * image.cols));
}

void SrIntMinimization::computeNormalisation(cv::Mat_<short>& image, const cv::Mat_<signed char>& mask,
                                             short mean, signed char shift)
{
    if (shift >= 0)
        computeNormalisationLeftShift(image, mask, mean, static_cast<unsigned char>(shift));
    else
        computeNormalisationRightShift(image, mask, mean, magnitude(shift));
}

void SrIntMinimization::computeDenormalisation(const cv::Mat_<short>& in, cv::Mat_<short>& out, short mean,
                                               signed char shift, int offset)
{
    if (shift >= 0)
        computeDenormalisationLeftShift(in, out, mean, static_cast<unsigned char>(shift), offset);
    else
        computeDenormalisationRightShift(in, out, mean, magnitude(shift), offset);
}

std::int64_t SrIntMinimization::computeSumSquaredValues(const cv::Mat_<short>& image, signed char shift)
{
    return shift >= 0 ? computeSumSquaredValuesLeftShift(image, static_cast<unsigned char>(shift))
                      : computeSumSquaredValuesRightShift(image, magnitude(shift));
}

std::int64_t SrIntMinimization::computeRandS(cv::Mat_<short>& R, const cv::Mat_<short>& B, cv::Mat_<short>& S,
                                             signed char shift)
{
    constexpr const char* message = "invalid R, B or S frame size";
    constexpr const char* function = "halvor::vx::SrIntMinimization::computeRandS";
    requireSameSize(R, B, message, function);
    requireSameSize(R, S, message, function);
    RangeReport report(debugChannel_, R.rows);
    const std::int64_t sum =
        sumOfRows(R.size(), {debugChannel_, "clamped s64NormBsum", "clamped s64Sum"}, [&](int y) {
            report.count(y, R.cols, [&, b = B[y], r = R[y]](int x) { return leaves16Bits(b[x] - r[x]); });
            return fixedpoint::residualRow(B[y], R[y], S[y], R.cols);
        });
    report.send("clamped R value");
    return shiftRound64(sum, shift);
}

std::int64_t SrIntMinimization::computeAlpha(const cv::Mat_<short>& S, const cv::Mat_<short>& Q,
                                             signed char shift)
{
    requireSameSize(S, Q, "invalid S or Q frame size", "halvor::vx::SrIntMinimization::computeAlpha");
    const std::int64_t sum = sumOfRows(S.size(), {debugChannel_, "clamped s64SumOmp", "clamped s64Sum"},
                                       [&](int y) { return fixedpoint::dotRow(S[y], Q[y], S.cols); });
    return shiftRound64(sum, shift);
}

void SrIntMinimization::computeU(cv::Mat_<short>& X, const cv::Mat_<short>& S, short mantissa,
                                 signed char shift)
{
    if (shift >= 0)
        computeUleftShift(X, S, mantissa, static_cast<unsigned char>(shift));
    else
        computeUrightShift(X, S, mantissa, magnitude(shift));
}

std::int64_t SrIntMinimization::computeR(cv::Mat_<short>& R, const cv::Mat_<short>& Q, short mantissa,
                                         signed char shift, signed char sumShift)
{
    return shift >= 0 ? computeRleftShift(R, Q, mantissa, static_cast<unsigned char>(shift), sumShift)
                      : computeRrightShift(R, Q, mantissa, magnitude(shift), sumShift);
}

void SrIntMinimization::computeS(cv::Mat_<short>& S, const cv::Mat_<short>& R, short mantissa,
                                 signed char shift)
{
    if (shift >= 0)
        computeSleftShift(S, R, mantissa, static_cast<unsigned char>(shift));
    else
        computeSrightShift(S, R, mantissa, magnitude(shift));
}

namespace {

void requireMask(const cv::Mat& image, const cv::Mat& mask, const char* function)
{
    if (image.size() != mask.size())
        throw Exception("invalid input mask size", VX_WHERE(function));
}

// Both forms of the normalisation; headroom is the magnitude from which a stored value counts as too large.
template <typename Scale>
void normaliseImage(cv::Mat_<short>& image, const cv::Mat_<signed char>& mask, short mean, Scale scale,
                    std::int32_t headroom, const DebugChannel& channel)
{
    RangeReport above(channel, image.rows);
    RangeReport below(channel, image.rows);
    RangeReport large(channel, image.rows);
    forEachRow(image.size(), [&](int y) {
        short* const row = image[y];
        const signed char* const usable = mask[y];
        const auto value = [=](int x) { return scale(row[x] - mean); };
        above.count(y, image.cols, [=](int x) { return usable[x] != 0 && value(x) > 32767; });
        below.count(y, image.cols, [=](int x) { return usable[x] != 0 && value(x) < -32768; });
        large.count(y, image.cols, [=](int x) {
            const auto stored = static_cast<short>(value(x));
            return stored < -headroom || stored >= headroom;
        });
        fixedpoint::normaliseRow(scale, mean, row, image.cols);
    });
    above.send("overflow occured for normalized value");
    below.send("underflow occured for normalized value");
    large.send("underflow occured for normalized value");
}

// isClamped(sample) tells what is reported of a pixel.
template <typename Scale, typename IsClamped>
void denormaliseImage(const cv::Mat_<short>& in, cv::Mat_<short>& out, short mean, Scale scale, int offset,
                      const DebugChannel& channel, IsClamped isClamped)
{
    RangeReport report(channel, out.rows);
    forEachRow(out.size(), [&](int y) {
        const short* const row = in[y + offset] + offset;
        report.count(y, out.cols, [&](int x) { return isClamped(row[x]); });
        fixedpoint::denormaliseRow(scale, mean, row, out[y], out.cols);
    });
    report.send("clamped denormalized value");
}

template <typename Scale>
void advanceImage(cv::Mat_<short>& X, const cv::Mat_<short>& S, short mantissa, Scale scale,
                  const char* function)
{
    if (X.size() != S.size())
        throw Exception("invalid X or S frame size", VX_WHERE(function));
    forEachRow(X.size(), [&](int y) { fixedpoint::advanceRow(scale, mantissa, S[y], X[y], X.cols); });
}

template <typename Scale>
void turnImage(cv::Mat_<short>& S, const cv::Mat_<short>& R, short mantissa, Scale scale,
               const DebugChannel& channel)
{
    RangeReport report(channel, S.rows);
    forEachRow(S.size(), [&](int y) {
        report.count(y, S.cols, [&, s = S[y], r = R[y]](int x) {
            return leaves16Bits(wrapAdd(r[x], scale(mantissa * s[x])));
        });
        fixedpoint::turnRow(scale, mantissa, R[y], S[y], S.cols);
    });
    report.send("clamped S value");
}

}  // namespace

void SrIntMinimization::computeNormalisationLeftShift(cv::Mat_<short>& image,
                                                      const cv::Mat_<signed char>& mask, short mean,
                                                      unsigned char shift)
{
    requireMask(image, mask, "halvor::vx::SrIntMinimization::computeNormalisationLeftShift");
    constexpr std::int32_t noLimit = 65536;
    normaliseImage(image, mask, mean, LeftScale{shift}, noLimit, debugChannel_);
}

void SrIntMinimization::computeNormalisationRightShift(cv::Mat_<short>& image,
                                                       const cv::Mat_<signed char>& mask, short mean,
                                                       unsigned char shift)
{
    requireMask(image, mask, "halvor::vx::SrIntMinimization::computeNormalisationRightShift");
    constexpr std::int32_t headroom = 16384;
    normaliseImage(image, mask, mean, RightScale{shift}, headroom, debugChannel_);
}

void SrIntMinimization::computeDenormalisationLeftShift(const cv::Mat_<short>& in, cv::Mat_<short>& out,
                                                        short mean, unsigned char shift, int offset)
{
    requireDenormalisable(in, out, offset, "halvor::vx::SrIntMinimization::computeDenormalisationLeftShift");
    const LeftScale scale{shift};
    denormaliseImage(in, out, mean, scale, offset, debugChannel_,
                     [&](short sample) { return leaves16Bits(wrapAdd(scale(sample), mean)); });
}

void SrIntMinimization::computeDenormalisationRightShift(const cv::Mat_<short>& in, cv::Mat_<short>& out,
                                                         short mean, unsigned char shift, int offset)
{
    requireDenormalisable(in, out, offset, "halvor::vx::SrIntMinimization::computeDenormalisationRightShift");
    // The report divides and truncates where the value is shifted and rounded.
    const int divisor = shiftToFactor(static_cast<signed char>(shift));
    denormaliseImage(in, out, mean, RightScale{shift}, offset, debugChannel_, [&](short sample) {
        return leaves16Bits((divisor == 0 ? 0 : sample / divisor) + mean);
    });
}

std::int64_t SrIntMinimization::computeSumSquaredValuesLeftShift(const cv::Mat_<short>& image,
                                                                 unsigned char shift)
{
    return leftShifted64(squaredValues(image), shift);
}

std::int64_t SrIntMinimization::computeSumSquaredValuesRightShift(const cv::Mat_<short>& image,
                                                                  unsigned char shift)
{
    return roundShiftRight64(squaredValues(image), shift);
}

std::int64_t SrIntMinimization::squaredValues(const cv::Mat_<short>& image)
{
    return sumOfRows(image.size(), {debugChannel_, "clamped s64NormBsum", "clamped s64NormBsum"},
                     [&](int y) { return fixedpoint::dotRow(image[y], image[y], image.cols); });
}

void SrIntMinimization::computeUleftShift(cv::Mat_<short>& X, const cv::Mat_<short>& S, short mantissa,
                                          unsigned char shift)
{
    advanceImage(X, S, mantissa, LeftScale{shift}, "halvor::vx::SrIntMinimization::computeUleftShift");
}

void SrIntMinimization::computeUrightShift(cv::Mat_<short>& X, const cv::Mat_<short>& S, short mantissa,
                                           unsigned char shift)
{
    advanceImage(X, S, mantissa, RightScale{shift}, "halvor::vx::SrIntMinimization::computeUrightShift");
}

template <typename Scale>
std::int64_t SrIntMinimization::stepImage(cv::Mat_<short>& R, const cv::Mat_<short>& Q, short mantissa,
                                          Scale scale)
{
    RangeReport report(debugChannel_, R.rows);
    const std::int64_t sum =
        sumOfRows(R.size(), {debugChannel_, "clamped s64NormBsum", "clamped s64Sum"}, [&](int y) {
            report.count(y, R.cols, [&, r = R[y], q = Q[y]](int x) {
                return leaves16Bits(wrapSub(r[x], scale(mantissa * q[x])));
            });
            return fixedpoint::stepRow(scale, mantissa, Q[y], R[y], R.cols);
        });
    report.send("clamped R value");
    return sum;
}

std::int64_t SrIntMinimization::computeRleftShift(cv::Mat_<short>& R, const cv::Mat_<short>& Q,
                                                  short mantissa, unsigned char shift, signed char sumShift)
{
    requireSameSize(R, Q, "invalid R or Q frame size", "halvor::vx::SrIntMinimization::computeRleftShift");
    return leftShifted64(stepImage(R, Q, mantissa, LeftScale{shift}), static_cast<unsigned char>(sumShift));
}

std::int64_t SrIntMinimization::computeRrightShift(cv::Mat_<short>& R, const cv::Mat_<short>& Q,
                                                   short mantissa, unsigned char shift, signed char sumShift)
{
    requireSameSize(R, Q, "invalid R or Q frame size", "halvor::vx::SrIntMinimization::computeRrightShift");
    return shiftRound64(stepImage(R, Q, mantissa, RightScale{shift}), sumShift);
}

void SrIntMinimization::computeSleftShift(cv::Mat_<short>& S, const cv::Mat_<short>& R, short mantissa,
                                          unsigned char shift)
{
    requireSameSize(S, R, "invalid S or R frame size", "halvor::vx::SrIntMinimization::computeSleftShift");
    turnImage(S, R, mantissa, LeftScale{shift}, debugChannel_);
}

void SrIntMinimization::computeSrightShift(cv::Mat_<short>& S, const cv::Mat_<short>& R, short mantissa,
                                           unsigned char shift)
{
    requireSameSize(S, R, "invalid S or R frame size", "halvor::vx::SrIntMinimization::computeSrightShift");
    turnImage(S, R, mantissa, RightScale{shift}, debugChannel_);
}

int SrIntMinimization::shiftToFactor(signed char shift)
{
    std::uint32_t factor = 1;
    for (unsigned char i = 0; i < static_cast<unsigned char>(shift); ++i)
        factor += factor;
    return static_cast<int>(factor);
}

}  // namespace halvor::vx
