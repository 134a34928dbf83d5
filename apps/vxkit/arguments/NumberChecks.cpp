// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/arguments/NumberChecks.h"

#include <cmath>
#include <sstream>
#include <string>

namespace vxapp {

namespace {

template <typename Accepts>
CLI::Validator numberCheck(const std::string& expected, Accepts accepts)
{
    return CLI::Validator(
        [expected, accepts](std::string& text) {
            double value = 0.0;
            if (CLI::detail::lexical_cast(text, value) && std::isfinite(value) && accepts(value))
                return std::string();
            return text + ": expected " + expected;
        },
        "");
}

}  // namespace

CLI::Validator numberWithin(double low, double high)
{
    std::ostringstream expected;
    if (high == std::numeric_limits<double>::max())
        expected << "a number of " << low << " or more";
    else
        expected << "a number from " << low << " to " << high;
    return numberCheck(expected.str(), [low, high](double value) { return value >= low && value <= high; });
}

CLI::Validator finiteNumber()
{
    return numberCheck("a finite number", [](double) { return true; });
}

CLI::Validator aboveZero()
{
    return numberCheck("a number above 0", [](double value) { return value > 0.0; });
}

}  // namespace vxapp
