// SPDX-License-Identifier: Apache-2.0
#include "core/registration/Displacement.h"

#include "core/base/ParallelPixels.h"

namespace halvor::vx {

namespace {

std::size_t pixelsOf(const cv::Size& size)
{
    return static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
}

// The part of a flat move that fills target[from] up to target[to].
void moveSegment(const float* source, const FlatMove& move, int from, int to, float* target)
{
    const int begin = std::clamp(move.begin, from, to);
    const int end = std::clamp(move.end, begin, to);
    std::fill(target + from, target + begin, 0.0F);
    std::copy(source + begin + move.offset, source + end + move.offset, target + begin);
    std::fill(target + end, target + to, 0.0F);
}

}  // namespace

void moveByWholePixels(const cv::Size& size, int count, const float* const* frames, int usable,
                       PointF* displacements, float* const* moved)
{
#pragma omp parallel for schedule(static) if (pixelsOf(size) >= 4 * parallelPixels)
    for (int line = 0; line < count * size.height; ++line) {
        const int i = line / size.height;
        const int from = line % size.height * size.width;
        const PointI shift = i < usable ? roundToPixels(displacements[i]) : PointI{0, 0};
        moveSegment(frames[i], flatMoveOf(size, shift), from, from + size.width, moved[i]);
    }
    for (int i = 0; i < usable; ++i) {
        const PointI shift = roundToPixels(displacements[i]);
        displacements[i].x -= static_cast<float>(shift.x);
        displacements[i].y -= static_cast<float>(shift.y);
    }
}

bool settleDisplacements(const cv::Size& size, int count, const float* const* frames, PointF* displacements,
                         std::vector<PointF>& complete, float* const* moved)
{
    const int usable = countWithin(displacements, count, size.height / 2);
    const int measured = std::min(usable + 1, count);
    complete.resize(std::max(complete.size(), static_cast<std::size_t>(count)));
    std::copy(displacements, displacements + measured, complete.begin());
    moveByWholePixels(size, count, frames, usable, displacements, moved);
    return usable == count;
}

}  // namespace halvor::vx
