// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>
#include <limits>

namespace vxapp {

// Checks for options that take a real number. Other than those of the option parser they refuse what is no
// number and what is infinite.

/// From `low` to `high`, ends included.
CLI::Validator numberWithin(double low, double high);

/// Any finite number.
CLI::Validator finiteNumber();

/// Finite and 0 or more.
inline CLI::Validator zeroOrMore()
{
    return numberWithin(0.0, std::numeric_limits<double>::max());
}

/// Finite and above 0.
CLI::Validator aboveZero();

}  // namespace vxapp
