// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <limits>

namespace halvor::vx {

/// The working range of the conversion from pixel values to 8 bits: (value + grayOffset) * grayScale.
///
/// It is kept from frame to frame, so that the 8-bit images of neighbouring frames stay comparable, and is
/// replaced when a frame leaves it.
struct GrayRange
{
    float grayMax = std::numeric_limits<float>::lowest();
    float grayMin = std::numeric_limits<float>::max();
    float grayScale = 0.0F;
    float grayOffset = 0.0F;

    /// Makes sure that a frame fits; the range that it needs if it does not is its own, a tenth wider at each
    /// end.
    ///
    /// A flat frame gives an empty range and an infinite scale, which any frame with structure leaves again.
    /// One whose range is not finite changes nothing: no later frame would ever leave that.
    /// @param min, max  of the frame
    /// @return whether the range was replaced
    bool fit(double min, double max)
    {
        const auto leaves = min < static_cast<double>(grayMin) || max > static_cast<double>(grayMax);
        const double margin = (max - min) * 0.1;
        const auto low = static_cast<float>(min - margin);
        const auto high = static_cast<float>(max + margin);
        if (!leaves || !std::isfinite(high - low))
            return false;
        grayMin = low;
        grayMax = high;
        grayOffset = -grayMin;
        grayScale = static_cast<float>(255.0 / static_cast<double>(grayMax - grayMin));
        return true;
    }
};

}  // namespace halvor::vx
