#include "PlainHstCmod.h"

#include <algorithm>
#include <cstdint>

#include "PlainArithmetic.h"

namespace plain {

HstCmod::HstCmod(int cols, int rows, int speedUp, int speedDown, int holdFrames, int minRange,
                 int offsetDisable, int rangeDisable)
    : cols_(cols),
      rows_(rows),
      speedUp_(speedUp),
      speedDown_(speedDown),
      holdFrames_(holdFrames),
      minRange_(minRange),
      offsetDisable_(offsetDisable),
      rangeDisable_(rangeDisable),
      binSize_((cols + 517) / cols * cols)
{}

void HstCmod::MeasureFrame(const int* in)
{
    std::fill(bins_, bins_ + 256, 0);
    min_ = 65535;
    max_ = 0;
    bool firstValid = true;
    for (int i = 0; i < cols_ * rows_; ++i) {
        const int v = (in[i] ^ 0x8000) & 0xFFFF;
        const bool invalid = v == 0 || v > 65534;
        if (!invalid) {
            if (firstValid) {
                min_ = v;
                max_ = v;
                firstValid = false;
            } else {
                if (v > max_)
                    max_ = v;
                if (v < min_)
                    min_ = v;
            }
        }
        std::int64_t d = wide(v) - lo_;
        if (d < 0)
            d = 0;
        std::int64_t p = ((d * gain_) >> 8) + offset_;
        if (p >= 65536)
            p = 65535;
        const int b = static_cast<int>((p >> 8) & 255);
        const int f = static_cast<int>(p & 255);
        if (invalid)
            continue;
        if (b < 255) {
            bins_[b] += 16 - (f >> 4);
            bins_[b + 1] += f >> 4;
        } else {
            bins_[b] += 16;
        }
    }

    if (firstFrame_) {
        lo_ = min_;
        hi_ = max_;
    } else {
        const bool shrinkLow = lo_ <= min_;
        int s = shrinkLow ? speedDown_ : speedUp_;
        if (!shrinkLow || holdLow_ == 0)
            lo_ = wrap((wide(lo_) << s) - lo_ + min_) >> s;
        if (holdLow_ != 0)
            holdLow_--;
        if (!shrinkLow)
            holdLow_ = holdFrames_;
        const bool shrinkHigh = hi_ > max_;
        s = shrinkHigh ? speedDown_ : speedUp_;
        if (!shrinkHigh || holdHigh_ == 0)
            hi_ = wrap((wide(hi_) << s) - hi_ + max_) >> s;
        if (holdHigh_ != 0)
            holdHigh_--;
        if (!shrinkHigh)
            holdHigh_ = holdFrames_;
    }

    if (rangeDisable_ != 0) {
        gain_ = 256;
        offset_ = 0;
    } else {
        const int r = wrap(wide(hi_) - lo_ + 1);
        const int r2 = r > minRange_ ? r : minRange_;
        gain_ = 0xFEFF00 / r2;
        if (gain_ > 65535)
            gain_ = 65535;
        offset_ = wrap(65279 - wide(wrap(wide(r) * gain_) >> 8)) >> 1;
        if (offsetDisable_ != 0)
            offset_ = 0;
    }
    firstFrame_ = false;
}

void HstCmod::GetBinData(int* out)
{
    for (int i = 0; i < 256; ++i) {
        out[2 * i] = firstRead_ ? 1 : bins_[i] & 0xFFFF;
        out[2 * i + 1] = firstRead_ ? 0 : bins_[i] >> 16;
    }
    out[512] = min_;
    out[513] = max_;
    out[514] = lo_;
    out[515] = hi_;
    out[516] = gain_;
    out[517] = offset_;
    for (int i = 518; i < binSize_; ++i)
        out[i] = 0;
    firstRead_ = false;
}

}  // namespace plain
