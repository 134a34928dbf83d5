// SPDX-License-Identifier: Apache-2.0
#include "core/imaging/GaussianTaps.h"

#include <cmath>
#include <cstddef>
#include <string>

#include "core/base/Exception.h"
#include "core/imaging/PointSpread.h"

namespace halvor::vx {

void gaussianTaps(int radius, float sigma, float* taps)
{
    const float spread = std::sqrt(2.0F) * sigma;
    float sum = 0.0F;
    for (int i = 0; i <= radius; ++i) {
        const float centre = static_cast<float>(i);
        taps[i] = (approxErf((centre + 0.5F) / spread) - approxErf((centre - 0.5F) / spread)) / 2.0F;
        sum += taps[i];
    }
    const float total = 2.0F * sum - taps[0];
    for (int i = 0; i <= radius; ++i)
        taps[i] /= total;
}

void requireKernelFits(int radius, int width, int height)
{
    // Compared without doubling the radius, which might overflow.
    if (radius >= 0 && radius <= (width - 1) / 2 && radius <= (height - 1) / 2)
        return;
    throw Exception("A kernel of radius " + std::to_string(radius) + " does not fit into frames of " +
                        std::to_string(width) + " x " + std::to_string(height) + " pixels",
                    VX_WHERE("halvor::vx::requireKernelFits"));
}

void layCircularTaps(const float* taps, int radius, float scale, int length, float* line, int step)
{
    const auto element = [&](int i) -> float& { return line[static_cast<std::ptrdiff_t>(i) * step]; };
    for (int i = 0; i <= radius; ++i)
        element(i) = taps[i] * scale;
    for (int i = radius + 1; i < length - radius; ++i)
        element(i) = 0.0F;
    for (int i = radius; i > 0; --i)
        element(length - i) = taps[i] * scale;
}

}  // namespace halvor::vx
