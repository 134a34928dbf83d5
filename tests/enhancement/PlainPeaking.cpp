#include "PlainPeaking.h"

#include <algorithm>
#include <cstdlib>

#include "PlainArithmetic.h"
#include "enhancement/PixelConversion.h"

namespace plain {

void Peaking::ProcessFrame(const int* in, int* out, const double* localGain) const
{
    static constexpr int kernel[2][2] = {{-256, 48}, {48, 16}};
    if (param.enabled == 0) {
        std::copy(in, in + cols_ * rows_, out);
        return;
    }
    for (int y = 0; y < rows_; ++y) {
        for (int x = 0; x < cols_; ++x) {
            const int c = in[y * cols_ + x];
            const double lg = localGain != nullptr ? localGain[clamp(c >> 7, 0, 255)] : 1.0;
            const int core = halvor::vx::truncateToInt(param.coring * lg);
            int acc = 0;
            int lowest = 32767;
            int highest = -32767;
            for (int dy = -1; dy <= 1; ++dy) {
                for (int dx = -1; dx <= 1; ++dx) {
                    const int n = in[clamp(y + dy, 0, rows_ - 1) * cols_ + clamp(x + dx, 0, cols_ - 1)];
                    int d = wrap(wide(n) - c);
                    if (d > 0)
                        d = std::max(wrap(wide(d) - core), 0);
                    if (d < 0)
                        d = std::min(wrap(wide(d) + core), 0);
                    const int v = wrap(wide(d) + c);
                    acc = wrap(wide(acc) - wrap(wide(v) * kernel[std::abs(dy)][std::abs(dx)]));
                    if (n > highest)
                        highest = n;
                    if (n < lowest)
                        lowest = n;
                }
            }
            int r = wrap(wide(wrap(wide(highest) - lowest)) - wrap(wide(param.reductThres) * 512));
            if (r < 0)
                r = 0;
            r = wrap(wide(r) * param.reductGain) >> 12;
            if (r > 256)
                r = 256;
            int a = acc < 0 ? wrap(-wide(acc)) : acc;
            a = std::min(a, wrap(wide(param.limit) << 12));
            a = wrap(wide(a) * param.gain) >> 12;
            a = wrap(wide(a) * wrap(256 - wide(r)));
            a = wrap(wide(a) + 128) >> 8;
            if (acc < 0)
                a = wrap(-wide(a));
            const int o = wrap(wide(c) + a);
            out[y * cols_ + x] = localGain != nullptr ? clamp(o, 0, 32766) : clamp(o, -32767, 32766);
        }
    }
}

}  // namespace plain
