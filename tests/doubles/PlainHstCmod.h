// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>

#include "doubles/PlainArithmetic.h"

namespace plain {

/// The histogram measuring block pixel by pixel, as the double for the fast form.
class HstCmod
{
public:
    struct Settings
    {
        int speedUp, speedDown, holdFrames, minRange, offsetDisable, rangeDisable;
    };

    HstCmod(int cols, int rows, const Settings& settings) : cols_(cols), rows_(rows), settings_(settings) {}

    void MeasureFrame(const int* in)
    {
        std::fill(bins_, bins_ + 256, 0);
        int low = 65536;
        int high = -1;
        for (int i = 0; i < cols_ * rows_; ++i) {
            const int v = (in[i] ^ 0x8000) & 0xFFFF;
            if (v == 0 || v > 65534)
                continue;
            low = std::min(low, v);
            high = std::max(high, v);
            const std::int64_t d = std::max<std::int64_t>(wide(v) - lo_, 0);
            const std::int64_t p = std::min<std::int64_t>(((d * gain_) >> 8) + offset_, 65535);
            const int b = static_cast<int>((p >> 8) & 255);
            const int share = b < 255 ? static_cast<int>(p & 255) >> 4 : 0;
            bins_[b] += 16 - share;
            bins_[std::min(b + 1, 255)] += share;
        }
        min_ = high < 0 ? 65535 : low;
        max_ = std::max(high, 0);

        track(lo_, holdLow_, min_, lo_ <= min_);
        track(hi_, holdHigh_, max_, hi_ > max_);
        firstFrame_ = false;
        const int range = wrap(wide(hi_) - lo_ + 1);
        gain_ = settings_.rangeDisable != 0 ? 256
                                            : std::min(0xFEFF00 / std::max(range, settings_.minRange), 65535);
        offset_ = wrap(65279 - wide(wrap(wide(range) * gain_) >> 8)) >> 1;
        if (settings_.rangeDisable != 0 || settings_.offsetDisable != 0)
            offset_ = 0;
    }

    void GetBinData(int* out)
    {
        for (int i = 0; i < 256; ++i) {
            *out++ = firstRead_ ? 1 : bins_[i] & 0xFFFF;
            *out++ = firstRead_ ? 0 : bins_[i] >> 16;
        }
        for (const int value : {min_, max_, lo_, hi_, gain_, offset_})
            *out++ = value;
        std::fill_n(out, (cols_ + 517) / cols_ * cols_ - 518, 0);
        firstRead_ = false;
    }

private:
    void track(int& end, int& hold, int seen, bool shrinks) const
    {
        const int s = shrinks ? settings_.speedDown : settings_.speedUp;
        if (firstFrame_) {
            end = seen;
            return;
        }
        if (!shrinks || hold == 0)
            end = wrap((wide(end) << s) - end + seen) >> s;
        hold = shrinks ? std::max(hold - 1, 0) : settings_.holdFrames;
    }

    int cols_, rows_;
    Settings settings_;
    int bins_[256] = {};
    int min_ = 0, max_ = 0, lo_ = 0, hi_ = 0, gain_ = 0, offset_ = 0;
    int holdLow_ = 0, holdHigh_ = 0;
    bool firstFrame_ = true, firstRead_ = true;
};

}  // namespace plain
