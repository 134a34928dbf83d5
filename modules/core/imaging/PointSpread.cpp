// SPDX-License-Identifier: Apache-2.0
#include "core/imaging/PointSpread.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace halvor::vx {

namespace {

constexpr float erfA = 0.14001229F;
constexpr float erfB = 1.2732395F;  // 4 / pi
static_assert(std::bit_cast<std::uint32_t>(erfA) == 0x3E0F5F62);
static_assert(std::bit_cast<std::uint32_t>(erfB) == 0x3FA2F983);

}  // namespace

float approxErf(float x)
{
    if (x == 0.0F)
        return 0.0F;
    const float q = x * x;
    const float t = -q * (erfA * q + erfB) / (erfA * q + 1.0F);
    const float magnitude = std::sqrt(1.0F - std::exp(t));
    return x > 0.0F ? magnitude : -magnitude;
}

float psfIntegral(float x, float sigma)
{
    const float c = 1.0F / (std::sqrt(2.0F) * sigma);
    return (approxErf((x + 0.5F) * c) - approxErf((x - 0.5F) * c)) / 2.0F;
}

void fillBasePsf(float sigma, float factor, std::span<float> taps)
{
    std::fill(taps.begin(), taps.end(), 0.0F);
    const std::size_t middle = taps.size() / 2;
    float total = 0.0F;
    for (std::size_t i = 0; i < middle && static_cast<float>(i) < factor; ++i) {
        const float value = psfIntegral(static_cast<float>(i) + 0.5F, sigma);
        taps[middle - 1 - i] = value;
        taps[middle + i] = value;
        total += 2.0F * value;
    }
    for (float& tap : taps)
        tap /= total;
}

void shiftPsf(std::span<const float> base, float shift, std::span<float> taps)
{
    const std::size_t last = taps.size() - 1;
    if (shift >= 0.0F) {
        for (std::size_t i = 0; i < last; ++i)
            taps[i] = (1.0F - shift) * base[i] + shift * base[i + 1];
        taps[last] = 0.0F;
    } else {
        taps[0] = 0.0F;
        for (std::size_t i = 1; i <= last; ++i)
            taps[i] = -shift * base[i - 1] + (shift + 1.0F) * base[i];
    }
}

}  // namespace halvor::vx
