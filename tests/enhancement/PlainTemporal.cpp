#include "PlainTemporal.h"

#include <algorithm>

#include "core/base/WrapArithmetic.h"
#include "enhancement/tnr_cmod.h"

using namespace halvor::vx;

namespace plain {

Temporal::Temporal(int cols, int rows, const Settings& settings, int bypass)
    : cols_(cols),
      rows_(rows),
      settings_(settings),
      bypass_(bypass),
      history_(static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows))
{}

void Temporal::process(const int* in, int* out)
{
    run(in, out);
}

void Temporal::process(const short* in, short* out)
{
    run(in, out);
}

template <typename Pixel>
void Temporal::run(const Pixel* in, Pixel* out)
{
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

template <typename Pixel>
Pixel Temporal::filterPixel(Pixel pixel, int& history, int controlGain, std::int64_t& sum) const
{
    const int u = (pixel & 0xFFFF) ^ 0x8000;
    const int d = wrapSub(history, u * 4);
    const int m = wrapAbs(d);
    const int index = wrapMul(m, controlGain) >> 6;
    const int w = index >= 0 && index < 1024 ? TnrCmod::mAlphaTab[index] : 0;
    if (index > 50)
        sum += index;
    const int k = wrapMul(w, alpha_) >> 11;
    const int f = wrapAdd(wrapMul(k, d) >> 15, u * 4);
    const bool reset = (m >> 17) != 0;
    const bool mark = bypass_ != 0 && pixel < 0;
    if (mark || reset) {
        history = (mark ? u & 0xFFC0 : u) * 4;
        return pixel;
    }
    history = f;
    const int rounded = wrapAdd(f, 2) >> 2;
    return static_cast<Pixel>(bypass_ == 0 ? wrapSub(rounded, 32768) : (rounded & 0xFFFF) ^ 0x8000);
}

void Temporal::adapt(std::int64_t sum, int threshold, int setting)
{
    globalError_ = static_cast<int>(((sum >> 2) + wrapMul(3, globalError_)) >> 2);
    const bool low = (globalError_ >> 4) < threshold;
    const bool below = globalError_ < threshold;
    if (settings_.globalThreshold == 100)
        alpha_ = setting;
    else if (!low)
        alpha_ = wrapSub(alpha_, 102);
    else if (below)
        alpha_ = wrapAdd(alpha_, alpha_ < setting ? 4 : 1);
    else
        alpha_ = wrapAdd(alpha_, alpha_ < setting ? 4 : -20);
    int lo = wrapSub(setting, 205);
    if (lo < 0)
        lo = 0;
    int hi = wrapAdd(setting, 205);
    if (hi > 2047)
        hi = 2047;
    if (alpha_ < lo)
        alpha_ = lo;
    if (alpha_ > hi)
        alpha_ = hi;
}

}  // namespace plain
