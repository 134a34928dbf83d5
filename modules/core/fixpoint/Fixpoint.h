// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/base/Export.h"

namespace halvor::vx {

/// Number of the fixed-point engine: a mantissa of 16 bits times two to the power of an exponent of 8 bits.
///
/// Operations that form a value (the loaders, add(), mul(), div(), neg()) compute it exactly and round once,
/// to the nearest value, ties towards plus infinity, as the rounding shifts do. The exponent then lies within
/// the exponent width: w bits give -2^(w-1) to 2^(w-1) - 1. A value too large for it becomes the largest
/// magnitude of its sign, a value too small loses low bits down to 0. Nothing signals this; a value of 0 has
/// the exponent 0. A width outside 1 to 8 counts as the nearer bound.
///
/// The plain accessors store what they are given, so that a mantissa and an exponent set by hand may denote
/// any value; two different pairs may denote the same.
class VXKIT_API Fixpoint
{
public:
    /// Holds 0, with an exponent width of 8 bits.
    Fixpoint() = default;
    /// As fromInt32(): every value that fits the mantissa is held with the exponent 0.
    explicit Fixpoint(int value);
    /// As fromFloat().
    explicit Fixpoint(float value);
    Fixpoint(const Fixpoint&) = default;
    Fixpoint& operator=(const Fixpoint&) = default;

    // The order of the virtual operations is part of the binary interface.
    virtual ~Fixpoint();

    /// Takes the smallest exponent whose mantissa fits 16 bits, that is a full mantissa for every value but
    /// 0. Infinities become the largest magnitude of their sign, not-a-number becomes 0.
    virtual void fromFloat(float value);
    /// Mantissa times 2^exponent; infinite or rounded where the range of a float ends.
    virtual float toFloat() const;

    /// As fromInt64() with one argument.
    virtual std::int8_t fromInt32(std::int32_t value);
    /// Keeps as many leading bits as the mantissa holds; a value that fits it is stored as it is, exponent 0.
    ///
    /// @return the exponent that the value needs: 0 exactly if it fits the mantissa, at most 49. It is the
    ///         stored one unless it lies beyond the exponent width, where the value saturates.
    virtual std::int8_t fromInt64(std::int64_t value);
    /// Stores value * 2^exponent, reduced as above; a value that fits the mantissa keeps the exponent given.
    virtual void fromInt64(std::int64_t value, std::int8_t exponent);

    /// The mantissa alone; the exponent stays.
    virtual void setMantissa(std::int16_t mantissa);
    virtual std::int16_t getMantissa() const;
    /// Takes effect on the values that are formed from then on.
    virtual void setExponentWidth(std::int8_t bits);
    virtual std::int8_t getExponentWidth() const;
    /// Any exponent, whatever its width.
    virtual void setExponent(std::int8_t exponent);
    virtual std::int8_t getExponent() const;
    /// Multiplies by 2^step and leaves the mantissa alone. The exponent stops at -128 and 127, whatever its
    /// width.
    virtual void incrExponent(std::int8_t step);

    /// 2^exponent: from integers in this scale to real values.
    virtual float getFloatFactor() const;
    /// 2^-exponent: from real values to integers in this scale.
    virtual float getIntFactor() const;
    /// The real value of -32768 in this scale.
    virtual float getMinValue() const;
    /// The real value of 32767 in this scale.
    virtual float getMaxValue() const;

    // Results have a full mantissa, as those of fromFloat(), and the wider of the two exponent widths.
    /// a + b
    static Fixpoint add(const Fixpoint& a, const Fixpoint& b);
    /// a * b
    static Fixpoint mul(const Fixpoint& a, const Fixpoint& b);
    /// By a divisor of 0: the largest magnitude of a's sign, or 0 for a of 0.
    static Fixpoint div(const Fixpoint& a, const Fixpoint& b);
    /// Keeps the exponent and the width, unless -32768 needs another exponent.
    static Fixpoint neg(const Fixpoint& a);
    /// Compares true values, exactly, whatever the exponents.
    static bool lt(const Fixpoint& a, const Fixpoint& b);

private:
    enum class Form
    {
        asGiven,
        fullMantissa
    };

    // Stores value * 2^exponent; returns the exponent wanted before the width confines it.
    int assign(std::int64_t value, int exponent, Form form);
    static Fixpoint withWidthOf(const Fixpoint& a, const Fixpoint& b);

    std::int16_t mantissa_ = 0;
    std::int8_t exponent_ = 0;
    std::int8_t exponentWidth_ = 8;
};

}  // namespace halvor::vx
