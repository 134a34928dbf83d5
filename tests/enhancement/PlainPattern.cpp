#include "PlainPattern.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include "core/base/WrapArithmetic.h"

using namespace halvor::vx;

namespace plain {
namespace {

int div9LessAccurate(int v)
{
    return (v - ((v - 25) >> 3)) >> 3;
}

int rounded(int v, int bits)
{
    return (v >> bits) + (v < 0 ? 1 : 0);
}

int sum8(const int (&w)[9])
{
    return w[0] + w[1] + w[2] + w[3] + w[5] + w[6] + w[7] + w[8];
}

int deviation(const int (&w)[9])
{
    const int mean = sum8(w) >> 3;
    const int high = *std::max_element(w, w + 9);
    const int low = *std::min_element(w, w + 9);
    return std::max(std::abs(high - mean), std::abs(low - mean));
}

int clip(int value, int limit, int bits, int rest)
{
    const int t = value >> bits;
    if (t >= limit)
        return limit << bits;
    if (t <= ~limit)
        return (~limit << bits) | rest;
    return value;
}

}  // namespace

Pattern::Pattern(int cols, int rows, const Settings& settings, int delay, int bypass)
    : cols_(cols),
      rows_(rows),
      settings_(settings),
      delay_(delay),
      bypass_(bypass),
      isFilter_(false),
      line_(static_cast<std::size_t>(cols)),
      frame_(static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows))
{}

Pattern::Pattern(int cols, int rows, const Settings& settings) : Pattern(cols, rows, settings, 0, 0)
{
    isFilter_ = true;
}

void Pattern::process(const int* in, int* out)
{
    run(in, out);
}

void Pattern::process(const short* in, short* out)
{
    run(in, out);
}

template <typename Pixel>
void Pattern::run(const Pixel* in, Pixel* out)
{
    const int count = cols_ * rows_;
    if (bypass_ == 1) {
        std::copy_n(in, count, out);
        return;
    }
    th07_ = isFilter_ ? static_cast<int>(static_cast<float>(settings_.threshold) * 0.7F)
                      : static_cast<int>(static_cast<double>(settings_.threshold) * 0.7);
    for (int y = 0; y < rows_; ++y) {
        for (int x = 0; x < cols_; ++x) {
            const std::size_t i = static_cast<std::size_t>(y * cols_ + x);
            out[i] = correctPixel(in[i], lineAt(x), frame_[i]);
            learn(in, x, y);
        }
        flush();
        firstFrame_ = false;
    }
}

template <typename Pixel>
Pixel Pattern::correctPixel(Pixel pixel, int line, int frame) const
{
    if ((isFilter_ && pixel == 32767) || (bypass_ != 0 && pixel < 0))
        return pixel;
    const int u = (pixel & 0xFFFF) ^ 0x8000;
    const int c = u - div9LessAccurate(rounded(line, 10)) - div9LessAccurate(rounded(frame, 5));
    return static_cast<Pixel>(bypass_ == 0 ? c - 32768 : (c & 0xFFFF) ^ 0x8000);
}

template <typename Pixel>
void Pattern::learn(const Pixel* in, int x, int y)
{
    const auto sample = [&](int col, int row) {
        const int index = std::clamp(row, 0, rows_ - 1) * cols_ + std::clamp(col, 0, cols_ - 1);
        return (in[index] & 0xFFFF) ^ 0x8000;
    };
    int w3[9];
    int w9[9];
    int wl[9];
    for (int j = 0; j < 9; ++j) {
        w3[j] = sample(x + j % 3 - 1, y + j / 3 - 1);
        w9[j] = sample(x + j - 4, y);
        wl[j] = firstFrame_ && !isFilter_ ? 0 : rounded(lineAt(std::clamp(x + j - 4, 0, cols_ - 1)), 10);
    }
    const int line = learnedLine(lineAt(x), w3[4], w3, w9);
    learnFrame(frame_[static_cast<std::size_t>(y * cols_ + x)], w3[4], w3, w9, wl);
    storeLine(x, line);
}

void Pattern::learnFrame(int& value, int centre, const int (&w3)[9], const int (&w9)[9],
                         const int (&wl)[9]) const
{
    const int dev3 = deviation(w3);
    const int dev9 = deviation(w9);
    const int threshold = settings_.threshold;
    if (dev3 < threshold || dev9 < threshold) {
        const int lv = div9LessAccurate(3 * wl[3] - 6 * wl[4] + 3 * wl[5]);
        const int lh =
            div9LessAccurate(wl[0] + wl[1] + wl[2] + wl[3] - 8 * wl[4] + wl[5] + wl[6] + wl[7] + wl[8]);
        const int a = sum8(w3) - lv;
        const int b = sum8(w9) - lh;
        const int flatter = dev3 <= dev9 ? a : b;
        const int m = std::abs(dev9 - dev3) < (threshold >> 2) ? (a + b) >> 1 : flatter;
        value = wrapAdd(wrapSub(value, rounded(value, 5)), centre * 8 - m);
    }
    value = clip(value, settings_.frameLimit, 8, 0xFF);
    if (value > 0)
        value -= 1;
    else if (value < 0)
        value += 1;
}

int Pattern::learnedLine(int value, int centre, const int (&w3)[9], const int (&w9)[9]) const
{
    const int dev3 = deviation(w3);
    const int dev9 = deviation(w9);
    if (dev3 < th07_ || dev9 < settings_.threshold) {
        const int q = dev9 - (dev9 >> 2) - (dev9 >> 4);
        const int m = dev3 < q ? sum8(w3) : sum8(w9);
        value = wrapAdd(wrapSub(value, rounded(value, 10)), centre * 8 - m);
    }
    value = clip(value, settings_.lineLimit, 13, 0x1FFF);
    if (value > 3)
        return value - 4;
    return value < 0 ? value + 4 : value;
}

void Pattern::storeLine(int x, int value)
{
    if (isFilter_) {
        lineAt(x) = value;
    } else if (delay_ == 1) {
        if (x > 0)
            lineAt(x - 1) = held_[0];
        held_[0] = value;
    } else {
        if (x > 1)
            lineAt(x - 2) = held_[0];
        held_[0] = held_[1];
        held_[1] = value;
    }
}

void Pattern::flush()
{
    if (isFilter_)
        return;
    if (delay_ == 1) {
        lineAt(cols_ - 1) = held_[0];
    } else {
        lineAt(cols_ - 1) = held_[1];
        if (cols_ > 1)  // the block is meant for two columns or more
            lineAt(cols_ - 2) = held_[0];
    }
}

int& Pattern::lineAt(int x)
{
    return line_[static_cast<std::size_t>(x)];
}

}  // namespace plain
