// SPDX-License-Identifier: Apache-2.0
#include "support/PortableMath.h"

#include <cmath>
#include <numbers>

namespace vxsupport {

namespace {

// Both series for |x| of at most an eighth turn.
double sineSeries(double x)
{
    double term = x;
    double sum = x;
    for (int n = 2; n < 20; n += 2) {
        term *= -x * x / (n * (n + 1));
        sum += term;
    }
    return sum;
}

double cosineSeries(double x)
{
    double term = 1.0;
    double sum = 1.0;
    for (int n = 1; n < 19; n += 2) {
        term *= -x * x / (n * (n + 1));
        sum += term;
    }
    return sum;
}

// The error function by Kummer's series: every term is positive, so nothing cancels.
double erfOf(double x)
{
    const double size = std::fabs(x);
    if (size > 6.0)
        return x < 0.0 ? -1.0 : 1.0;
    double term = size;
    double sum = size;
    for (int n = 1; term > 1e-17 * sum; ++n) {
        term *= 2.0 * size * size / (2 * n + 1);
        sum += term;
    }
    const double value = 2.0 / std::sqrt(std::numbers::pi) * portableExp(-size * size) * sum;
    return x < 0.0 ? -value : value;
}

}  // namespace

double portableExp(double x)
{
    if (x < -700.0)
        return 0.0;
    const double whole = std::floor(x / std::numbers::ln2 + 0.5);
    const double rest = x - whole * std::numbers::ln2;
    double term = 1.0;
    double sum = 1.0;
    for (int n = 1; n < 18; ++n) {
        term *= rest / n;
        sum += term;
    }
    return std::ldexp(sum, static_cast<int>(whole));
}

double portableLog(double x)
{
    int exponent = 0;
    double mantissa = std::frexp(x, &exponent);
    if (mantissa < std::numbers::sqrt2 / 2.0) {
        mantissa *= 2.0;
        --exponent;
    }
    const double ratio = (mantissa - 1.0) / (mantissa + 1.0);
    double power = ratio;
    double sum = ratio;
    for (int n = 3; n < 25; n += 2) {
        power *= ratio * ratio;
        sum += power / n;
    }
    return 2.0 * sum + exponent * std::numbers::ln2;
}

double sineOfTurns(double turns)
{
    return cosineOfTurns(turns - 0.25);
}

double cosineOfTurns(double turns)
{
    const double part = turns - std::floor(turns);
    const int eighth = static_cast<int>(std::floor(part * 4.0 + 0.5));
    const double rest = (part - eighth * 0.25) * 2.0 * std::numbers::pi;
    switch (eighth) {
        case 1:
            return -sineSeries(rest);
        case 2:
            return -cosineSeries(rest);
        case 3:
            return sineSeries(rest);
        default:
            return cosineSeries(rest);
    }
}

double gaussianShare(double low, double high, double sigma)
{
    const double scale = 1.0 / (std::numbers::sqrt2 * sigma);
    return 0.5 * (erfOf(high * scale) - erfOf(low * scale));
}

}  // namespace vxsupport
