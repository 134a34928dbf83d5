// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/motion/DefectMap.h"

#include <bit>
#include <cstdint>

#include "core/base/Kernel.h"

namespace halvor::vx {

namespace {

constexpr float leastCoverage = 0.25F;  // of a frame

VX_KERNEL void findInRow(const float* VX_RESTRICT row, PixelLimits limits, int n,
                         unsigned char* VX_RESTRICT map)
{
    for (int i = 0; i < n; ++i) {
        const auto bits = std::bit_cast<std::uint32_t>(row[i]);
        const bool within = static_cast<bool>((row[i] >= limits.lowest) & (row[i] <= limits.highest));
        const bool isDefect = static_cast<bool>(!within | isPixelMarker(row[i]));
        int code = isDefect ? otherDefect : noDefect;
        code = bits == PixelMarker::underRange ? underRangeDefect : code;
        map[i] = static_cast<unsigned char>(bits == PixelMarker::overRange ? overRangeDefect : code);
    }
}

float markerFor(unsigned char code)
{
    switch (code) {
        case underRangeDefect:
            return std::bit_cast<float>(PixelMarker::underRange);
        case overRangeDefect:
            return std::bit_cast<float>(PixelMarker::overRange);
        default:
            return std::bit_cast<float>(PixelMarker::invalid);
    }
}

}  // namespace

void findDefects(const cv::Mat_<float>& frame, const PixelLimits& limits, cv::Mat_<unsigned char>& map)
{
    map.create(frame.size());
    for (int y = 0; y < frame.rows; ++y)
        findInRow(frame[y], limits, frame.cols, map[y]);
}

bool hasGoodNeighbours(const cv::Mat_<unsigned char>& map, int x, int y)
{
    int neighbours = 0;
    bool good = true;
    const auto look = [&](int nextX, int nextY) {
        if (nextX < 0 || nextY < 0 || nextX >= map.cols || nextY >= map.rows)
            return;
        ++neighbours;
        good = good && map(nextY, nextX) == noDefect;
    };
    look(x - 1, y);
    look(x + 1, y);
    look(x, y - 1);
    look(x, y + 1);
    return good && neighbours >= 3;
}

void markUnseen(const cv::Mat_<unsigned char>& map, const cv::Mat_<float>& coverage, cv::Mat_<float>& picture)
{
    for (int y = 0; y < map.rows; ++y)
        for (int x = 0; x < map.cols; ++x) {
            if (map(y, x) == noDefect || coverage(y, x) >= leastCoverage || hasGoodNeighbours(map, x, y))
                continue;
            const float marker = markerFor(map(y, x));
            for (int i = 0; i < 4; ++i)
                picture(2 * y + i / 2, 2 * x + i % 2) = marker;
        }
}

}  // namespace halvor::vx
