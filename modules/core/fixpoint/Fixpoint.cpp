// SPDX-License-Identifier: Apache-2.0
#include "core/fixpoint/Fixpoint.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "core/fixpoint/RoundingShift.h"

namespace halvor::vx {

namespace {

using Mantissa = std::numeric_limits<std::int16_t>;

constexpr bool fitsMantissa(std::int64_t value)
{
    return value >= Mantissa::min() && value <= Mantissa::max();
}

// Bits of a value without its sign: the mantissa holds 15 of them.
int significantBits(std::int64_t value)
{
    return static_cast<int>(std::bit_width(static_cast<std::uint64_t>(value < 0 ? ~value : value)));
}

// Right shift that takes the value into the mantissa with the fewest bits lost.
int bitsToDrop(std::int64_t value)
{
    if (fitsMantissa(value))
        return 0;
    // Rounding carries a positive value past the bound or a negative one back onto it.
    int n = std::max(1, significantBits(value) - 16);
    while (!fitsMantissa(roundShiftRight64(value, static_cast<std::uint8_t>(n))))
        ++n;
    return n;
}

std::int16_t largestOfSign(std::int64_t value)
{
    return value < 0 ? Mantissa::min() : Mantissa::max();
}

// The value shifted right with rounding, or left for a negative count; saturates.
std::int16_t shiftedMantissa(std::int64_t value, int right)
{
    if (right <= 0 && -right > 15 - significantBits(value))
        return largestOfSign(value);
    const std::int64_t shifted =
        right > 0 ? roundShiftRight64(value, static_cast<std::uint8_t>(std::min(right, 255)))
                  : value << -right;
    return fitsMantissa(shifted) ? static_cast<std::int16_t>(shifted) : largestOfSign(value);
}

std::int8_t saturated8(int value)
{
    return static_cast<std::int8_t>(std::clamp(value, -128, 127));
}

// How far a mantissa is shifted left to meet a lesser exponent. A number that lies further below only tips
// the rounding.
constexpr int maxAlignment = 46;

}  // namespace

Fixpoint::Fixpoint(int value)
{
    assign(value, 0, Form::asGiven);
}

Fixpoint::Fixpoint(float value)
{
    Fixpoint::fromFloat(value);
}

Fixpoint::~Fixpoint() = default;

int Fixpoint::assign(std::int64_t value, int exponent, Form form)
{
    mantissa_ = 0;
    exponent_ = 0;
    if (value == 0)
        return 0;
    int right = bitsToDrop(value);
    if (right == 0 && form == Form::fullMantissa)
        right = significantBits(value) - 15;

    const int width = std::clamp<int>(exponentWidth_, 1, 8);
    const int wanted = exponent + right;
    const int confined = std::clamp(wanted, -(1 << (width - 1)), (1 << (width - 1)) - 1);
    right += confined - wanted;
    mantissa_ = shiftedMantissa(value, right);
    if (mantissa_ != 0)
        exponent_ = static_cast<std::int8_t>(confined);
    return wanted;
}

void Fixpoint::fromFloat(float value)
{
    if (std::isinf(value)) {
        assign(value < 0.0F ? Mantissa::min() : Mantissa::max(), std::numeric_limits<std::int8_t>::max(),
               Form::fullMantissa);
        return;
    }
    constexpr int digits = std::numeric_limits<float>::digits;
    int exponent = 0;
    const float fraction = std::isnan(value) ? 0.0F : std::frexp(value, &exponent);
    assign(static_cast<std::int64_t>(std::ldexp(fraction, digits)), exponent - digits, Form::fullMantissa);
}

float Fixpoint::toFloat() const
{
    return std::ldexp(static_cast<float>(mantissa_), exponent_);
}

std::int8_t Fixpoint::fromInt32(std::int32_t value)
{
    return Fixpoint::fromInt64(value);
}

std::int8_t Fixpoint::fromInt64(std::int64_t value)
{
    return static_cast<std::int8_t>(assign(value, 0, Form::asGiven));
}

void Fixpoint::fromInt64(std::int64_t value, std::int8_t exponent)
{
    assign(value, exponent, Form::asGiven);
}

void Fixpoint::setMantissa(std::int16_t mantissa)
{
    mantissa_ = mantissa;
}

std::int16_t Fixpoint::getMantissa() const
{
    return mantissa_;
}

void Fixpoint::setExponentWidth(std::int8_t bits)
{
    exponentWidth_ = bits;
}

std::int8_t Fixpoint::getExponentWidth() const
{
    return exponentWidth_;
}

void Fixpoint::setExponent(std::int8_t exponent)
{
    exponent_ = exponent;
}

std::int8_t Fixpoint::getExponent() const
{
    return exponent_;
}

void Fixpoint::incrExponent(std::int8_t step)
{
    exponent_ = saturated8(exponent_ + step);
}

float Fixpoint::getFloatFactor() const
{
    return std::ldexp(1.0F, exponent_);
}

float Fixpoint::getIntFactor() const
{
    return std::ldexp(1.0F, -exponent_);
}

float Fixpoint::getMinValue() const
{
    return std::ldexp(static_cast<float>(Mantissa::min()), exponent_);
}

float Fixpoint::getMaxValue() const
{
    return std::ldexp(static_cast<float>(Mantissa::max()), exponent_);
}

Fixpoint Fixpoint::withWidthOf(const Fixpoint& a, const Fixpoint& b)
{
    Fixpoint result;
    result.exponentWidth_ = std::max(a.exponentWidth_, b.exponentWidth_);
    return result;
}

Fixpoint Fixpoint::add(const Fixpoint& a, const Fixpoint& b)
{
    const bool isALarger = a.exponent_ >= b.exponent_;
    const Fixpoint& high = isALarger ? a : b;
    const Fixpoint& low = isALarger ? b : a;
    Fixpoint result = withWidthOf(a, b);
    const int gap = high.mantissa_ == 0 ? 0 : high.exponent_ - low.exponent_;
    if (gap <= maxAlignment) {
        result.assign((std::int64_t{high.mantissa_} << gap) + low.mantissa_, low.exponent_,
                      Form::fullMantissa);
    } else {
        const int trace = (low.mantissa_ > 0) - (low.mantissa_ < 0);
        result.assign((std::int64_t{high.mantissa_} << maxAlignment) + trace, high.exponent_ - maxAlignment,
                      Form::fullMantissa);
    }
    return result;
}

Fixpoint Fixpoint::mul(const Fixpoint& a, const Fixpoint& b)
{
    Fixpoint result = withWidthOf(a, b);
    result.assign(std::int64_t{a.mantissa_} * b.mantissa_, a.exponent_ + b.exponent_, Form::fullMantissa);
    return result;
}

Fixpoint Fixpoint::div(const Fixpoint& a, const Fixpoint& b)
{
    Fixpoint result = withWidthOf(a, b);
    if (b.mantissa_ == 0) {
        result.assign(a.mantissa_, 2 * std::numeric_limits<std::int8_t>::max(), Form::fullMantissa);
        return result;
    }
    constexpr int extraBits = 40;
    const std::int64_t numerator = std::int64_t{a.mantissa_} << extraBits;
    std::int64_t quotient = numerator / b.mantissa_;
    const std::int64_t rest = numerator % b.mantissa_;
    if (rest != 0 && (rest < 0) != (b.mantissa_ < 0))
        --quotient;
    // One more bit tells whether something follows, so that only a true tie counts as one.
    result.assign(2 * quotient + (rest != 0), a.exponent_ - b.exponent_ - extraBits - 1, Form::fullMantissa);
    return result;
}

Fixpoint Fixpoint::neg(const Fixpoint& a)
{
    Fixpoint result = a;
    if (a.mantissa_ == Mantissa::min())
        result.assign(-std::int64_t{a.mantissa_}, a.exponent_, Form::asGiven);
    else
        result.mantissa_ = static_cast<std::int16_t>(-a.mantissa_);
    return result;
}

bool Fixpoint::lt(const Fixpoint& a, const Fixpoint& b)
{
    const int gap = a.exponent_ - b.exponent_;
    const std::int64_t left = std::int64_t{a.mantissa_} << std::clamp(gap, 0, maxAlignment);
    const std::int64_t right = std::int64_t{b.mantissa_} << std::clamp(-gap, 0, maxAlignment);
    return left < right;
}

}  // namespace halvor::vx
