// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/base/WrapArithmetic.h"
#include "enhancement/tnr_cmod.h"

namespace plain {

/// The temporal noise reduction pixel by pixel, as a test double of the fast block and of the fast filter.
class Temporal
{
public:
    struct Settings
    {
        int controlGain = 10;
        int globalThreshold = 15;
        int feedbackFactor = 60;
        bool hwUnits = false;
    };

    /// @param bypass  as that of TnrCmod
    Temporal(int cols, int rows, const Settings& settings, int bypass)
        : cols_(cols),
          rows_(rows),
          settings_(settings),
          bypass_(bypass),
          history_(static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows))
    {}

    template <typename Pixel>
    void process(const Pixel* in, Pixel* out)
    {
        using halvor::vx::wrapMul;
        if (bypass_ == 1) {
            std::copy_n(in, history_.size(), out);
            return;
        }
        const Settings& s = settings_;
        const int gain = s.hwUnits ? s.controlGain : wrapMul(s.controlGain, 16) / 10;
        const int setting = s.hwUnits ? s.feedbackFactor : wrapMul(s.feedbackFactor, 2048) / 100;
        if (firstFrame_) {
            for (std::size_t i = 0; i < history_.size(); ++i)
                history_[i] = ((in[i] & 0xFFFF) ^ 0x8000) * 4;
            alpha_ = setting;
            firstFrame_ = false;
        }
        std::int64_t sum = 0;
        for (std::size_t i = 0; i < history_.size(); ++i)
            out[i] = filterPixel(in[i], history_[i], gain, sum);
        adapt(sum, wrapMul(wrapMul(s.globalThreshold, cols_), rows_) >> 12, setting);
    }

private:
    template <typename Pixel>
    Pixel filterPixel(Pixel pixel, int& history, int controlGain, std::int64_t& sum) const
    {
        using namespace halvor::vx;
        const int u = (pixel & 0xFFFF) ^ 0x8000;
        const int d = wrapSub(history, u * 4);
        const int m = wrapAbs(d);
        const int index = wrapMul(m, controlGain) >> 6;
        const int w = index >= 0 && index < 1024 ? TnrCmod::mAlphaTab[index] : 0;
        if (index > 50)
            sum += index;
        const int k = wrapMul(w, alpha_) >> 11;
        const int f = wrapAdd(wrapMul(k, d) >> 15, u * 4);
        const bool mark = bypass_ != 0 && pixel < 0;
        if (mark || (m >> 17) != 0) {
            history = (mark ? u & 0xFFC0 : u) * 4;
            return pixel;
        }
        history = f;
        const int rounded = wrapAdd(f, 2) >> 2;
        return static_cast<Pixel>(bypass_ == 0 ? wrapSub(rounded, 32768) : (rounded & 0xFFFF) ^ 0x8000);
    }

    void adapt(std::int64_t sum, int threshold, int setting)
    {
        using namespace halvor::vx;
        globalError_ = static_cast<int>(((sum >> 2) + wrapMul(3, globalError_)) >> 2);
        const int beyond = globalError_ < threshold ? 1 : -20;
        if (settings_.globalThreshold == 100)
            alpha_ = setting;
        else if ((globalError_ >> 4) >= threshold)
            alpha_ = wrapSub(alpha_, 102);
        else
            alpha_ = wrapAdd(alpha_, alpha_ < setting ? 4 : beyond);
        alpha_ = std::max(alpha_, std::max(wrapSub(setting, 205), 0));
        alpha_ = std::min(alpha_, std::min(wrapAdd(setting, 205), 2047));
    }

    int cols_;
    int rows_;
    const Settings& settings_;
    int bypass_;
    std::vector<int> history_;
    int alpha_ = 0;
    int globalError_ = 0;
    bool firstFrame_ = true;
};

}  // namespace plain
