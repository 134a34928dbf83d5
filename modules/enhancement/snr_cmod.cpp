#include "enhancement/snr_cmod.h"

#include <algorithm>
#include <cstddef>

#include "enhancement/ChainSample.h"
#include "enhancement/SpatialArithmetic.h"

using namespace halvor::vx;

SnrCmod::SnrCmod(int frameCols, int frameRows, int& gainSetting, int mode)
    : gain(gainSetting), cols(frameCols), rows(frameRows), bypass(mode)
{}

void SnrCmod::ProcessFrame(const int* in, int* out)
{
    const std::size_t stride = static_cast<std::size_t>(cols);
    const std::size_t count = stride * static_cast<std::size_t>(rows);
    if (bypass == copyAll) {
        std::copy_n(in, count, out);
        return;
    }
    const auto row = [=, last = rows - 1](int y) {
        return in + stride * static_cast<std::size_t>(std::clamp(y, 0, last));
    };
#pragma omp parallel for schedule(static) if (count >= parallelPixels)
    for (int y = 0; y < rows; ++y) {
        const spatial::RowWindow<int> window{row(y - 1), row(y), row(y + 1)};
        int* rowOut = out + stride * static_cast<std::size_t>(y);
        if (bypass == filterAll)
            spatial::filterRow(window, rowOut, cols, gain);
        else
            spatial::filterMarkedRow(window, rowOut, cols, gain);
    }
}
