// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <stdexcept>

namespace vxsupport {

/// Raises std::invalid_argument with the text unless a setting is as it must be.
inline void requireSetting(bool fulfilled, const char* text)
{
    if (!fulfilled)
        throw std::invalid_argument(text);
}

/// Whether a value can be a standard deviation.
inline bool isDeviation(double value)
{
    return value >= 0.0 && std::isfinite(value);
}

}  // namespace vxsupport
