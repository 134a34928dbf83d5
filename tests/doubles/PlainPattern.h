// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <vector>

#include "core/base/WrapArithmetic.h"

namespace plain {

/// The static pattern removal pixel by pixel, as a test double of the fast block and of the fast filter.
class Pattern
{
public:
    struct Settings
    {
        int threshold = 22;
        int lineLimit = 12;
        int frameLimit = 16;
    };

    /// The form of the block.
    /// @param delay, bypass  as those of SprCmod
    Pattern(int cols, int rows, const Settings& settings, int delay, int bypass)
        : cols_(cols),
          rows_(rows),
          settings_(settings),
          delay_(delay),
          bypass_(bypass),
          line_(static_cast<std::size_t>(cols)),
          frame_(static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows))
    {}

    /// The form of the filter: line values are stored at once, samples of 32767 pass, and 0.7 of the
    /// threshold is taken in single precision.
    Pattern(int cols, int rows, const Settings& settings) : Pattern(cols, rows, settings, 0, 0)
    {
        isFilter_ = true;
    }

    template <typename Pixel>
    void process(const Pixel* in, Pixel* out)
    {
        if (bypass_ == 1) {
            std::copy_n(in, cols_ * rows_, out);
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

private:
    template <typename Pixel>
    Pixel correctPixel(Pixel pixel, int line, int frame) const
    {
        if ((isFilter_ && pixel == 32767) || (bypass_ != 0 && pixel < 0))
            return pixel;
        const int u = (pixel & 0xFFFF) ^ 0x8000;
        const int c = u - div9LessAccurate(rounded(line, 10)) - div9LessAccurate(rounded(frame, 5));
        return static_cast<Pixel>(bypass_ == 0 ? c - 32768 : (c & 0xFFFF) ^ 0x8000);
    }

    template <typename Pixel>
    void learn(const Pixel* in, int x, int y)
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
        const int line = learnedLine(lineAt(x), w3, w9);
        learnFrame(frame_[static_cast<std::size_t>(y * cols_ + x)], w3, w9, wl);
        storeLine(x, line);
    }

    void learnFrame(int& value, const int (&w3)[9], const int (&w9)[9], const int (&wl)[9]) const
    {
        const int dev3 = deviation(w3);
        const int dev9 = deviation(w9);
        const int threshold = settings_.threshold;
        if (dev3 < threshold || dev9 < threshold) {
            const int a = sum8(w3) - div9LessAccurate(3 * wl[3] - 6 * wl[4] + 3 * wl[5]);
            const int b = sum8(w9) - div9LessAccurate(sum8(wl) - 8 * wl[4]);
            const int flatter = dev3 <= dev9 ? a : b;
            const int m = std::abs(dev9 - dev3) < (threshold >> 2) ? (a + b) >> 1 : flatter;
            value = moved(value, 5, w3[4] * 8 - m);
        }
        value = clip(value, settings_.frameLimit, 8, 0xFF);
        value -= value > 0 ? 1 : (value < 0 ? -1 : 0);
    }

    int learnedLine(int value, const int (&w3)[9], const int (&w9)[9]) const
    {
        const int dev3 = deviation(w3);
        const int dev9 = deviation(w9);
        if (dev3 < th07_ || dev9 < settings_.threshold) {
            const int q = dev9 - (dev9 >> 2) - (dev9 >> 4);
            value = moved(value, 10, w3[4] * 8 - (dev3 < q ? sum8(w3) : sum8(w9)));
        }
        value = clip(value, settings_.lineLimit, 13, 0x1FFF);
        if (value > 3)
            return value - 4;
        return value < 0 ? value + 4 : value;
    }

    // The block shows a line value one or two columns late, and those that are held at the end of the row.
    void storeLine(int x, int value)
    {
        if (isFilter_) {
            lineAt(x) = value;
            return;
        }
        const int late = delay_ == 1 ? 1 : 2;
        if (x >= late)
            lineAt(x - late) = held_[2 - late];
        held_[0] = held_[1];
        held_[1] = value;
    }

    void flush()
    {
        if (isFilter_)
            return;
        lineAt(cols_ - 1) = held_[1];
        if (delay_ != 1 && cols_ > 1)  // the block is meant for two columns or more
            lineAt(cols_ - 2) = held_[0];
    }

    int& lineAt(int x) { return line_[static_cast<std::size_t>(x)]; }

    static int div9LessAccurate(int v) { return (v - ((v - 25) >> 3)) >> 3; }
    static int rounded(int v, int bits) { return (v >> bits) + (v < 0 ? 1 : 0); }
    static int sum8(const int (&w)[9]) { return w[0] + w[1] + w[2] + w[3] + w[5] + w[6] + w[7] + w[8]; }

    static int deviation(const int (&w)[9])
    {
        const int mean = sum8(w) >> 3;
        const auto [low, high] = std::minmax_element(w, w + 9);
        return std::max(std::abs(*high - mean), std::abs(*low - mean));
    }

    static int moved(int value, int bits, int difference)
    {
        return halvor::vx::wrapAdd(halvor::vx::wrapSub(value, rounded(value, bits)), difference);
    }

    static int clip(int value, int limit, int bits, int rest)
    {
        const int t = value >> bits;
        if (t >= limit)
            return limit << bits;
        return t <= ~limit ? (~limit << bits) | rest : value;
    }

    int cols_;
    int rows_;
    const Settings& settings_;
    int delay_;
    int bypass_;
    bool isFilter_ = false;
    int th07_ = 0;
    bool firstFrame_ = true;
    std::vector<int> line_;
    std::vector<int> frame_;
    int held_[2] = {0, 0};
};

}  // namespace plain
