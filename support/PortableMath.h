// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vxsupport {

// Elementary functions built from additions, multiplications, divisions and square roots alone, so that a
// simulated scene has the same bits whatever mathematics library a machine brings. Relative error about
// 1e-14.

/// e to the x; 0 below -700, and x must not exceed 700.
double portableExp(double x);

/// Natural logarithm of a positive, normal number.
double portableLog(double x);

/// Sine and cosine of an angle in turns (1 is the full circle).
double sineOfTurns(double turns);
double cosineOfTurns(double turns);

/// Share of a normal distribution of deviation `sigma` around 0 that lies between `low` and `high`.
double gaussianShare(double low, double high, double sigma);

}  // namespace vxsupport
