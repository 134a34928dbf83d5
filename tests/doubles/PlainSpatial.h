// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdlib>

#include "core/base/WrapArithmetic.h"

namespace plain {

/// The spatial noise removal pixel by pixel, as a test double of the fast block and of the fast filter.
class Spatial
{
public:
    /// @param bypass  as that of SnrCmod
    Spatial(int cols, int rows, const int& gain, int bypass)
        : cols_(cols), rows_(rows), gain_(gain), bypass_(bypass)
    {}

    template <typename Pixel>
    void process(const Pixel* in, Pixel* out) const
    {
        for (int y = 0; y < rows_; ++y)
            for (int x = 0; x < cols_; ++x)
                out[y * cols_ + x] = bypass_ == 1 ? in[y * cols_ + x] : processPixel(in, x, y);
    }

private:
    template <typename Pixel>
    Pixel processPixel(const Pixel* in, int x, int y) const
    {
        const Pixel pixel = in[y * cols_ + x];
        if (bypass_ != 0 && pixel < 0)
            return pixel;
        int window[9];
        int sum = 0;
        for (int j = 0; j < 9; ++j) {
            const int row = std::clamp(y + j / 3 - 1, 0, rows_ - 1);
            const int col = std::clamp(x + j % 3 - 1, 0, cols_ - 1);
            window[j] = (in[row * cols_ + col] & 0xFFFF) ^ 0x8000;
            sum += window[j];
        }
        const int mean = div9(sum);
        int variance = 0;
        for (const int element : window)
            variance += std::abs(element - mean);
        const int gain = gain_ == 0 ? 32 : std::min(variance / gain_ + 13, 32);
        const int detail = halvor::vx::wrapMul(window[4] - mean, gain);
        const int r = (halvor::vx::wrapAdd(detail, 16) >> 5) + mean;
        return static_cast<Pixel>(bypass_ == 0 ? r - 32768 : (r & 0xFFFF) ^ 0x8000);
    }

    static int div9(int v)
    {
        const int s = v + 5;
        const int t = s - (s >> 3);
        return ((t >> 6) + t + (t >> 12)) >> 3;
    }

    int cols_;
    int rows_;
    const int& gain_;
    int bypass_;
};

}  // namespace plain
