// SPDX-License-Identifier: Apache-2.0
// The earlier form of the operator, with a division for each edge, and the development aids beside it. The solver
// does not call them.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "core/base/Exception.h"
#include "core/base/WrapArithmetic.h"
#include "core/diagnostics/DebugLevels.h"
#include "core/fixpoint/RoundingShift.h"
#include "enhancement/superresolution/SrIntMinimization.h"

namespace halvor::vx {

namespace {

constexpr int stepLevel = DebugLevel::step;
constexpr int weightLimit = 30000;

std::int8_t asShift(int count)
{
    return static_cast<std::int8_t>(std::clamp(count, -128, 127));
}

short halved(short weight)
{
    return shiftRound16(weight, -1);
}

// -1 or 1 times 2^bits; the power leaves 32 bits from 32 on.
std::int32_t powerOfTwo(std::int32_t sign, unsigned char bits)
{
    return bits < 32 ? static_cast<std::int32_t>(static_cast<std::uint32_t>(sign) << bits) : 0;
}

}  // namespace

void SrIntMinimization::computeL(const cv::Mat_<short>& X, const Fixpoint& epsilon,
                                 const Fixpoint& invEpsilon, const Fixpoint& lambda, signed char e)
{
    if (X.rows != fullHeight_ || X.cols != fullWidth_)
        throw Exception("invalid input frame size", VX_WHERE("halvor::vx::SrIntMinimization::computeL"));
    const auto bound = [&](const Fixpoint& value) {
        return static_cast<short>(
            std::clamp(shiftRound32(value.getMantissa(), asShift(value.getExponent() - e)), 1, 0x7FFF));
    };
    const short lo = bound(epsilon);
    const short hi = bound(invEpsilon);
    const int bottom = fullHeight_ - 1;
    const int right = fullWidth_ - 1;
    const auto weight = [&](int y, int x, int y1, int x1, bool diagonal) {
        if (y1 > bottom || x1 < 0 || x1 > right)
            return short{0};
        return computeLpixel(X[y1][x1], X[y][x], diagonal, epsilon, invEpsilon, lo, hi, lambda, e);
    };
#pragma omp parallel for schedule(static)
    for (int y = 0; y < fullHeight_; ++y)
        for (int x = 0; x < fullWidth_; ++x) {
            Lr_[y][x] = weight(y, x, y, x + 1, false);
            Ld_[y][x] = weight(y, x, y + 1, x, false);
            Ldr_[y][x] = weight(y, x, y + 1, x + 1, true);
            Ldl_[y][x] = weight(y, x, y + 1, x - 1, true);
        }
    const auto at = [&](const cv::Mat_<short>& plane, int y, int x) {
        return y < 0 || x < 0 || x > right ? short{0} : plane[y][x];
    };
#pragma omp parallel for schedule(static)
    for (int y = 0; y < fullHeight_; ++y)
        for (int x = 0; x < fullWidth_; ++x) {
            const std::int32_t sum = halved(at(Ldr_, y - 1, x - 1)) + at(Ld_, y - 1, x) +
                                     halved(at(Ldl_, y - 1, x + 1)) + at(Lr_, y, x - 1) + Lr_[y][x] +
                                     halved(Ldl_[y][x]) + Ld_[y][x] + halved(Ldr_[y][x]);
            Lc_[y][x] = static_cast<short>(shiftRound32(-sum, -3));
        }
}

short SrIntMinimization::computeLpixel(short a, short b, bool diagonal, Fixpoint epsilon, Fixpoint invEpsilon,
                                       short lo, short hi, Fixpoint lambda, signed char e)
{
    constexpr std::int32_t rootOfOneHalf = 0x5A82;  // 15 fractional bits
    std::int32_t difference = std::abs(a - b);
    if (diagonal)
        difference = shiftRound32(difference * rootOfOneHalf, -15);
    Fixpoint n(difference);
    if (difference <= lo)
        n = epsilon;
    else if (difference < hi)
        n.incrExponent(e);
    else
        n = invEpsilon;
    // Without a divisor the weight is out of range as well.
    std::int32_t weight = weightLimit + 1;
    if (n.getMantissa() != 0) {
        const std::int64_t quotient =
            static_cast<std::int64_t>(lambda.getMantissa()) * 65536 / n.getMantissa();
        weight = shiftRound32(static_cast<std::int32_t>(quotient),
                              asShift(lambda.getExponent() - n.getExponent() + 4));
    }
    if (weight >= -weightLimit && weight <= weightLimit)
        return static_cast<short>(weight);
    debugChannel_.send("computeLpixel out of allowed range", stepLevel);
    return 0;
}

void SrIntMinimization::applyL(const cv::Mat_<short>& in, cv::Mat_<short>& out)
{
    constexpr const char* function = "halvor::vx::SrIntMinimization::applyL";
    if (in.rows != fullHeight_ || in.cols != fullWidth_ || !in.isContinuous())
        throw Exception("invalid input frame size", VX_WHERE(function));
    if (out.rows != fullHeight_ || out.cols != fullWidth_)
        throw Exception("invalid result frame size", VX_WHERE(function));
    const int bottom = fullHeight_ - 1;
    const int right = fullWidth_ - 1;
#pragma omp parallel for schedule(static)
    for (int y = 0; y < fullHeight_; ++y)
        for (int x = 0; x < fullWidth_; ++x)
            out[y][x] = applyLpixel(Ldr_[0], Ld_[0], Ldl_[0], Lr_[0], Lc_[0], in[0], y * fullWidth_ + x,
                                    y == 0, x == 0, y == bottom, x == 0, x == right);
}

short SrIntMinimization::applyLpixel(const short* Ldr, const short* Ld, const short* Ldl, const short* Lr,
                                     const short* Lc, const short* in, int index, bool top, bool left,
                                     bool bottom, bool leftEdge, bool right)
{
    const int width = fullWidth_;
    const int size = fullWidth_ * fullHeight_;
    std::uint32_t sum = 0;
    // The edge of weight plane[edge], to a neighbour. In the last column the eastern neighbours are pixels of the
    // next row, whose weight is 0; behind the last row there is none.
    const auto add = [&](bool isDropped, const short* plane, int edge, int neighbour, int shift) {
        if (!isDropped && edge >= 0 && neighbour >= 0 && neighbour < size)
            sum += static_cast<std::uint32_t>((plane[edge] * in[neighbour]) >> shift);
    };
    constexpr int axial = 3;
    constexpr int diagonal = 4;
    add(false, Lc, index, index, 0);
    add(top || leftEdge, Ldr, index - width - 1, index - width - 1, diagonal);
    add(top, Ld, index - width, index - width, axial);
    add(top, Ldl, index - width + 1, index - width + 1, diagonal);
    add(left, Lr, index - 1, index - 1, axial);
    add(bottom && right, Lr, index, index + 1, axial);
    add(bottom || left, Ldl, index, index + width - 1, diagonal);
    add(bottom, Ld, index, index + width, axial);
    add(bottom, Ldr, index, index + width + 1, diagonal);
    return static_cast<short>(static_cast<std::int32_t>(sum) >> 17);
}

void SrIntMinimization::checkLCoeffs(const cv::Mat_<short>& a, const cv::Mat_<short>& b, unsigned short shift,
                                     const std::string& name)
{
    if (!debugChannel_.isDebugActive(stepLevel) || a.empty())
        return;
    if (a.size() != b.size()) {
        debugChannel_.send(name + " have different sizes", stepLevel);
        return;
    }
    short largest = 0;
    std::int32_t sum = 0;
    for (int y = 0; y < a.rows; ++y)
        for (int x = 0; x < a.cols; ++x) {
            const std::int32_t scaled =
                shift < 32 ? static_cast<std::int32_t>(static_cast<std::uint32_t>(b[y][x]) << shift) : 0;
            const std::int32_t difference = wrapSub(a[y][x], scaled);
            largest = std::max(largest, static_cast<short>(wrapAbs(difference)));
            sum = wrapAdd(sum, difference);
        }
    debugChannel_.send(name + " Max diff: ", largest, stepLevel);
    debugChannel_.send(name + " Mean diff: ", sum / (a.rows * a.cols), stepLevel);
}

Fixpoint SrIntMinimization::convToXBitMantissa(const Fixpoint& value, unsigned char bits)
{
    constexpr const char* function = "halvor::vx::SrIntMinimization::convToXBitMantissa";
    const int width = std::clamp<int>(value.getExponentWidth(), 1, 8);
    const auto greatestExponent = static_cast<std::int8_t>((1 << (width - 1)) - 1);
    const auto leastExponent = static_cast<std::int8_t>(-(1 << (width - 1)));
    const auto halfPositive = static_cast<short>(powerOfTwo(1, bits) / 2 - 1);
    const auto full = static_cast<short>(wrapSub(powerOfTwo(1, bits), 1));
    const auto negativeQuarter = static_cast<short>(powerOfTwo(-1, bits) / 4);
    const auto negativeHalf = static_cast<short>(powerOfTwo(-1, bits) / 2);
    short mantissa = value.getMantissa();
    std::int8_t exponent = value.getExponent();
    const auto halveWhile = [&](auto isLarge) {
        for (; isLarge() && exponent < greatestExponent; ++exponent)
            mantissa = static_cast<short>(mantissa >> 1);
        if (isLarge())
            throw Exception("int32 above possible range of fixpoint", VX_WHERE(function));
    };
    const auto doubleWhile = [&](auto isSmall) {
        for (; isSmall() && exponent > leastExponent; --exponent)
            mantissa = static_cast<short>(mantissa * 2);
    };
    // The bounds of negative mantissas are positive: those below -64 always end in the failure, the others stay as
    // they are. Targets have it so.
    if (mantissa > halfPositive && mantissa >= 0) {
        halveWhile([&] { return mantissa > full; });
    } else if (mantissa >= 0) {
        doubleWhile([&] { return mantissa < halfPositive + 1; });
    } else if (mantissa < -64) {
        halveWhile([&] { return mantissa < -negativeHalf; });
    } else {
        doubleWhile([&] { return mantissa >= -negativeQuarter; });
        if (mantissa >= -negativeQuarter && mantissa != 0)
            throw Exception("int32 below possible range of fixpoint", VX_WHERE(function));
    }
    Fixpoint result;
    result.setMantissa(mantissa);
    result.setExponent(exponent);
    return result;
}

}  // namespace halvor::vx
