#include "PlainSpatial.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include "core/base/WrapArithmetic.h"

using namespace halvor::vx;

namespace plain {
namespace {

int div9(int v)
{
    const int s = v + 5;
    const int t = s - (s >> 3);
    return ((t >> 6) + t + (t >> 12)) >> 3;
}

}  // namespace

Spatial::Spatial(int cols, int rows, const int& gain, int bypass)
    : cols_(cols), rows_(rows), gain_(gain), bypass_(bypass)
{}

void Spatial::process(const int* in, int* out) const
{
    for (int y = 0; y < rows_; ++y)
        for (int x = 0; x < cols_; ++x)
            out[y * cols_ + x] = bypass_ == 1 ? in[y * cols_ + x] : processPixel(in, x, y);
}

void Spatial::process(const short* in, short* out) const
{
    for (int y = 0; y < rows_; ++y)
        for (int x = 0; x < cols_; ++x)
            out[y * cols_ + x] = processPixel(in, x, y);
}

template <typename Pixel>
Pixel Spatial::processPixel(const Pixel* in, int x, int y) const
{
    const Pixel pixel = in[y * cols_ + x];
    if (bypass_ != 0 && pixel < 0)
        return pixel;
    int window[9];
    window3x3(in, x, y, window);
    int sum = 0;
    for (const int element : window)
        sum += element;
    const int mean = div9(sum);
    int variance = 0;
    for (const int element : window)
        variance += std::abs(element - mean);
    const int e = wrapAdd(wrapMul(window[4] - mean, detailGain(variance)), 16) >> 5;
    const int r = e + mean;
    return static_cast<Pixel>(bypass_ == 0 ? r - 32768 : (r & 0xFFFF) ^ 0x8000);
}

template <typename Pixel>
void Spatial::window3x3(const Pixel* in, int x, int y, int window[9]) const
{
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
            const int row = std::clamp(y + dy, 0, rows_ - 1);
            const int col = std::clamp(x + dx, 0, cols_ - 1);
            *window++ = (in[row * cols_ + col] & 0xFFFF) ^ 0x8000;
        }
}

int Spatial::detailGain(int variance) const
{
    return gain_ == 0 ? 32 : std::min(variance / gain_ + 13, 32);
}

}  // namespace plain
