#include "PlainHistogram.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "PlainArithmetic.h"
#include "enhancement/PixelConversion.h"

namespace plain {

using halvor::vx::truncateToInt;  // for numbers that no int holds, where the camera's result is arbitrary

namespace {

int magnitude(int value)
{
    return value < 0 ? wrap(-wide(value)) : value;
}

int filter(int a, int b, int s)
{
    if (s == 0)
        return b;
    return wrap((wide(a) << s) - a + b + (wide(1) << (s - 1))) >> s;
}

}  // namespace

Histogram::Histogram(int cols, int rows)
    : bins(32770),
      gainTable(32770),
      transferCurve(32770),
      localGain(32770),
      histoEqu(32770),
      pgain(256 << (15 - 8)),
      cols_(cols),
      rows_(rows),
      hstCmod_(cols, rows, 1, 1, 1, 1 << 8, 0, 0)
{
    param.gainlow = static_cast<int>(std::floor(cols * rows * 1 / 1000.0 + 0.5));
    param.gainhigh = static_cast<int>(std::floor(cols * rows * 999 / 1000.0 + 0.5));
    for (std::size_t i = 0; i <= 256; ++i) {
        gainTable[i] = static_cast<int>(i) << 7;
        localGain[i] = 1.0;
    }
}

Histogram::Scaled Histogram::scale(int pixel) const
{
    const int product = wrap(wide(wrap(wide(pixel) - lo)) * pgain);
    int q = wrap(wide(wrap(wide(product) + 128) >> 8) + poffset + param.offset);
    q = clamp(q, 0, 32767);
    const int bin = clamp(q >> (15 - param.width), 0, (1 << param.width) - 1);
    return {bin, q & ((1 << (15 - param.width)) - 1)};
}

void Histogram::MeasureFrame(int frame, const int* in, int* binData)
{
    if (param.hw != 0) {
        hstCmod_.MeasureFrame(in);
        hstCmod_.GetBinData(binData);
        ReadBinData(binData, 32768);
    } else {
        measureSoftware(frame, in);
    }
    WriteBinData(binData);
}

void Histogram::measureSoftware(int frame, const int* in)
{
    std::fill_n(bins.begin(), 1 << param.width, 0);
    min = 32767;
    max = -32768;
    hasInvalidPixels = false;
    for (int i = 0; i < cols_ * rows_; ++i) {
        if (in[i] == 32767 || in[i] == -32768) {
            hasInvalidPixels = true;
        } else {
            if (in[i] > max)
                max = in[i];
            if (in[i] < min)
                min = in[i];
        }
        const auto [bin, frac] = scale(in[i]);
        const int t = frac >> std::max(0, 11 - param.width);
        if (param.tridis == 0 && bin != (1 << param.width) - 1) {
            bins[static_cast<std::size_t>(bin)] += 16 - t;
            bins[static_cast<std::size_t>(bin) + 1] += t;
        } else {
            bins[static_cast<std::size_t>(bin)] += 16;
        }
    }
    if (frame == lastFrame_) {
        hi = max;
        lo = min;
    } else {
        lastFrame_ = frame;
        if (min < lo) {
            holdLow_ = 16;
            lo = filter(lo, min, std::max(0, param.speed - 4));
        }
        if (max > hi) {
            holdHigh_ = 16;
            hi = filter(hi, max, std::max(0, param.speed - 4));
        }
        if (holdLow_ == 0)
            lo = filter(lo, min, param.speed);
        else
            holdLow_--;
        if (holdHigh_ == 0)
            hi = filter(hi, max, param.speed);
        else
            holdHigh_--;
    }
    const int range = wrap(wide(hi) - lo + 1);
    rangeUsed = std::max(1 << param.range, range);
    if (param.rangedis == 0)
        pgain = clamp(truncateToInt(std::floor(8388608.0 / rangeUsed + 0.5)), 256, 65536);
    else
        pgain = 1 << (23 - param.width);
    if (param.poffdis == 0) {
        const int s = wrap(wide(wrap(wide(range) * pgain)) + 128) >> 8;
        poffset = clamp(wrap(32769 - wide(s)) >> 1, 0, 16383);
    } else {
        poffset = 0;
    }
}

void Histogram::ProcessFrame(const int* in, int* out)
{
    for (int i = 0; i < cols_ * rows_; ++i)
        out[i] = ProcessPixel(in[i]);
}

int Histogram::ProcessPixel(int pixel)
{
    if (param.mode == 0 || bypass) {
        localGain[static_cast<std::size_t>(clamp(pixel >> 7, 0, (1 << param.width) - 1))] = 1.0;
        return pixel;
    }
    const auto [bin, frac] = scale(pixel);
    const int g0 = gainTable[static_cast<std::size_t>(bin)];
    const int g1 = gainTable[static_cast<std::size_t>(bin) + 1];
    int r = wrap(wide(wrap(((wide(1) << (15 - param.width)) - frac) * g0)) + wide(wrap(wide(frac) * g1)));
    if (param.width != 15)
        r = wrap((wide(1) << (14 - param.width)) + r) >> (15 - param.width);
    r = clamp(r, 0, 32766);
    const int below = gainTable[static_cast<std::size_t>(std::max(0, bin - 4))];
    const int above = gainTable[static_cast<std::size_t>(std::min(1 << param.width, bin + 4))];
    const int slope = std::max(8, wrap(wide(above) - below));
    localGain[static_cast<std::size_t>(r >> 7)] = wrap(wide(pgain) * slope) / 8.0 / (1 << (23 - param.width));
    return r;
}

void Histogram::Update(int frame)
{
    const double e =
        param.gamma >= 0 ? wrap(wide(param.gamma) + 10) / 10.0 : 10.0 / wrap(10 - wide(param.gamma));
    const std::size_t count = std::size_t{1} << param.width;
    double equ = 0;
    int cum = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const int h = bins[i];
        cum = wrap(wide(cum) + h);
        if (param.mode == 2)
            equ += cum >= wrap(wide(param.gainlow) * 16) && cum <= wrap(wide(param.gainhigh) * 16)
                       ? param.gain
                       : 1.0;
        else if (param.mode == 3)
            equ += std::max(std::min(h, param.limit), 1);
        else if (param.mode == 4)
            equ = cum;
        else
            equ = static_cast<double>(i) + 1;
        histoEqu[i] = equ;
    }
    gainTable[0] = 0;
    for (std::size_t i = 0; i < count && equ != 0; ++i) {
        const int v = truncateToInt(std::floor(std::pow(histoEqu[i] / equ, e) * 32768.0 + 0.5));
        gainTable[i + 1] = frame == lastFrame_ ? v : filter(gainTable[i + 1], v, param.speed);
    }
    const float step = static_cast<float>(magnitude(wrap(wide(max) - min))) / static_cast<float>(count);
    for (std::size_t i = 0; i < count; ++i)
        transferCurve[i] =
            ProcessPixel(truncateToInt(static_cast<float>(i) * step + static_cast<float>(min)));
}

void Histogram::Update(int frame, int low, int high)
{
    const int count = 1 << param.width;
    const float range = static_cast<float>(magnitude(wrap(wide(max) - min)));
    const float n = static_cast<float>(count);
    const float lowShare = static_cast<float>(wrap(wide(low) - min)) / range;
    const float highShare = static_cast<float>(wrap(wide(high) - min)) / range;
    const int a = clamp(truncateToInt(lowShare * n), 0, count - 1);
    const int b = clamp(truncateToInt(highShare * n), 0, count - 1);
    if (low < min)
        bins[static_cast<std::size_t>(a)] = 1;
    if (high > max)
        bins[static_cast<std::size_t>(b)] = 1;
    for (int i = 0; i < count; ++i)
        if (i < a || i > b)
            bins[static_cast<std::size_t>(i)] = 0;
    Update(frame);
}

void Histogram::WriteBinData(int* out) const
{
    if (out == nullptr)
        return;
    const int count = 1 << param.width;
    for (int i = 0; i < count; ++i) {
        out[2 * i] = bins[static_cast<std::size_t>(i)] & 0xFFFF;
        out[2 * i + 1] = bins[static_cast<std::size_t>(i)] >> 16;
    }
    const int values[8] = {
        min, max, lo, hi, pgain, poffset, param.mode != 0 ? 22136 : 0, param.mode != 0 ? 4660 : 0};
    std::copy(values, values + 8, out + 2 * count);
}

void Histogram::ReadBinData(const int* in, int bias)
{
    const int count = 1 << param.width;
    for (int i = 0; i < count; ++i)
        bins[static_cast<std::size_t>(i)] = wrap(in[2 * i] + (wide(in[2 * i + 1]) << 16));
    min = wrap(wide(in[2 * count]) - bias);
    max = wrap(wide(in[2 * count + 1]) - bias);
    lo = wrap(wide(in[2 * count + 2]) - bias);
    hi = wrap(wide(in[2 * count + 3]) - bias);
    pgain = in[2 * count + 4] >> 1;
    poffset = in[2 * count + 5] >> 1;
}

}  // namespace plain
