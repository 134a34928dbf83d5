// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdlib>

#include "doubles/PlainArithmetic.h"
#include "enhancement/arithmetic/PixelConversion.h"
#include "enhancement/peaking.h"

namespace plain {

/// The sharpener pixel by pixel, as the double for the fast form.
class Peaking
{
public:
    Peaking(int cols, int rows) : cols_(cols), rows_(rows) {}

    PeakingParam param;

    void ProcessFrame(const int* in, int* out, const double* localGain) const
    {
        static constexpr int kernel[2][2] = {{-256, 48}, {48, 16}};
        for (int y = 0; y < rows_; ++y) {
            for (int x = 0; x < cols_; ++x) {
                const int c = in[y * cols_ + x];
                const double lg = localGain != nullptr ? localGain[std::clamp(c >> 7, 0, 255)] : 1.0;
                const int core = halvor::vx::truncateToInt(param.coring * lg);
                int acc = 0;
                int lowest = 32767;
                int highest = -32767;
                for (int dy = -1; dy <= 1; ++dy) {
                    for (int dx = -1; dx <= 1; ++dx) {
                        const int row = std::clamp(y + dy, 0, rows_ - 1);
                        const int n = in[row * cols_ + std::clamp(x + dx, 0, cols_ - 1)];
                        int d = wrap(wide(n) - c);
                        if (d > 0)
                            d = std::max(wrap(wide(d) - core), 0);
                        if (d < 0)
                            d = std::min(wrap(wide(d) + core), 0);
                        const int v = wrap(wide(d) + c);
                        acc = wrap(wide(acc) - wrap(wide(v) * kernel[std::abs(dy)][std::abs(dx)]));
                        highest = std::max(highest, n);
                        lowest = std::min(lowest, n);
                    }
                }
                const int contrast =
                    wrap(wide(wrap(wide(highest) - lowest)) - wrap(wide(param.reductThres) * 512));
                const int r = std::min(wrap(wide(std::max(contrast, 0)) * param.reductGain) >> 12, 256);
                int a = std::min(acc < 0 ? wrap(-wide(acc)) : acc, wrap(wide(param.limit) << 12));
                a = wrap(wide(a) * param.gain) >> 12;
                a = wrap(wide(wrap(wide(a) * wrap(256 - wide(r)))) + 128) >> 8;
                const int o = wrap(wide(c) + (acc < 0 ? wrap(-wide(a)) : a));
                const int enhanced = std::clamp(o, localGain != nullptr ? 0 : -32767, 32766);
                out[y * cols_ + x] = param.enabled == 0 ? c : enhanced;
            }
        }
    }

private:
    int cols_;
    int rows_;
};

}  // namespace plain
