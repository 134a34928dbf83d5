// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/solver/FrameSweep.h"

#include <algorithm>
#include <cstddef>

#include "core/base/Kernel.h"

namespace halvor::vx {

namespace {

using Taps = FrameModel::Taps;

constexpr int lanes = LaneOrder::lanes;
constexpr int next = lanes;  // from a column to its neighbour

// One pair of rows, for one frame. Each row is gathered horizontally; what comes of it is added to the frame
// rows that see the pair, in the order of their taps. The pair holds the first taps of `newest` and the last
// of `oldest`.
template <int FirstY>
inline void gatherPair(const float* VX_RESTRICT even, const float* VX_RESTRICT odd, const Taps& x,
                       const Taps& y, float* VX_RESTRICT newest, float* VX_RESTRICT middle,
                       float* VX_RESTRICT oldest, int run)
{
    const auto [x0, x1, x2, x3, x4] = x.value;
    const auto [y0, y1, y2, y3, y4] = y.value;
    even += x.first * next;
    odd += x.first * next;
    for (int column = 0; column < run; ++column)
        for (int lane = 0; lane < lanes; ++lane) {
            const int i = 2 * next * column + lane;
            const int o = next * column + lane;
            const float e = even[i] * x0 + even[i + next] * x1 + even[i + 2 * next] * x2 +
                            even[i + 3 * next] * x3 + even[i + 4 * next] * x4;
            const float d = odd[i] * x0 + odd[i + next] * x1 + odd[i + 2 * next] * x2 +
                            odd[i + 3 * next] * x3 + odd[i + 4 * next] * x4;
            if constexpr (FirstY == 0) {
                newest[o] = e * y0 + d * y1;
                middle[o] = middle[o] + e * y2 + d * y3;
                oldest[o] = oldest[o] + e * y4;
            } else {
                newest[o] = d * y0;
                middle[o] = middle[o] + e * y1 + d * y2;
                oldest[o] = oldest[o] + e * y3 + d * y4;
            }
        }
}

VX_KERNEL void gatherFrames(const FrameModel* frames, std::size_t count, const float* even, const float* odd,
                            float* newest, float* middle, float* oldest, std::ptrdiff_t step, int run)
{
    for (std::size_t k = 0; k < count; ++k, newest += step, middle += step, oldest += step)
        if (frames[k].y.first == 0)
            gatherPair<0>(even, odd, frames[k].x, frames[k].y, newest, middle, oldest, run);
        else
            gatherPair<1>(even, odd, frames[k].x, frames[k].y, newest, middle, oldest, run);
}

VX_KERNEL void maskRow(const std::int8_t* VX_RESTRICT mask, float* VX_RESTRICT row, int groups)
{
    for (int i = 0; i < groups * LaneMasks::group; ++i)
        row[i] = static_cast<float>(mask[i]) * row[i];
}

VX_KERNEL void maskColumns(const std::int8_t* VX_RESTRICT mask, const float* VX_RESTRICT image,
                           float* VX_RESTRICT out, int n)
{
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<float>(mask[i]) * image[i];
}

VX_KERNEL bool allOnes(const std::int8_t* mask, int n)
{
    int other = 0;
    for (int i = 0; i < n; ++i)
        other |= mask[i] ^ 1;
    return other == 0;
}

// The vertical scatter of one frame into a pair of rows, which still have the frame's columns.
template <int FirstY>
inline void scatterPair(const float* VX_RESTRICT newest, const float* VX_RESTRICT middle,
                        const float* VX_RESTRICT oldest, const Taps& y, float* VX_RESTRICT even,
                        float* VX_RESTRICT odd, int run)
{
    const auto [y0, y1, y2, y3, y4] = y.value;
    for (int i = 0; i < run * lanes; ++i)
        if constexpr (FirstY == 0) {
            even[i] = newest[i] * y0 + middle[i] * y2 + oldest[i] * y4;
            odd[i] = newest[i] * y1 + middle[i] * y3;
        } else {
            even[i] = middle[i] * y1 + oldest[i] * y3;
            odd[i] = newest[i] * y0 + middle[i] * y2 + oldest[i] * y4;
        }
}

// The horizontal scatter of one row.
template <int FirstX>
inline void spreadRow(const float* VX_RESTRICT in, const Taps& x, float* VX_RESTRICT out, int run)
{
    const auto [x0, x1, x2, x3, x4] = x.value;
    for (int column = 0; column < run; ++column)
        for (int lane = 0; lane < lanes; ++lane) {
            const int i = next * column + lane;
            const int o = 2 * next * column + lane;
            const float three = in[i] * x0 + in[i - next] * x2 + in[i - 2 * next] * x4;
            const float two = in[i - FirstX * next] * x1 + in[i - (FirstX + 1) * next] * x3;
            out[o] += FirstX == 0 ? three : two;
            out[o + next] += FirstX == 0 ? two : three;
        }
}

// Frame k + 1 is scattered vertically before frame k horizontally: the edge blocks in between are read from
// rows that were just written, and this gives them time to reach the cache.
VX_KERNEL void scatterFrames(const FrameModel* frames, std::size_t count, const float* newest,
                             const float* middle, const float* oldest, std::ptrdiff_t step, float* scattered,
                             std::ptrdiff_t scatteredStep, float* even, float* odd, int run)
{
    for (std::size_t k = 0; k <= count; ++k) {
        if (k < count) {
            float* const evenRow = scattered + (k % 2) * 2 * scatteredStep;
            float* const oddRow = evenRow + scatteredStep;
            if (frames[k].y.first == 0)
                scatterPair<0>(newest, middle, oldest, frames[k].y, evenRow, oddRow, run);
            else
                scatterPair<1>(newest, middle, oldest, frames[k].y, evenRow, oddRow, run);
            newest += step;
            middle += step;
            oldest += step;
        }
        if (k > 0) {
            float* const evenRow = scattered + ((k - 1) % 2) * 2 * scatteredStep;
            float* const oddRow = evenRow + scatteredStep;
            for (float* row : {evenRow, oddRow})
                for (const int distance : {1, 2})
                    LaneEdges::fillBefore(row, run, distance);
            if (frames[k - 1].x.first == 0) {
                spreadRow<0>(evenRow, frames[k - 1].x, even, run);
                spreadRow<0>(oddRow, frames[k - 1].x, odd, run);
            } else {
                spreadRow<1>(evenRow, frames[k - 1].x, even, run);
                spreadRow<1>(oddRow, frames[k - 1].x, odd, run);
            }
        }
    }
}

int wholeGroups(int floats)
{
    return (floats + LaneMasks::group - 1) / LaneMasks::group;
}

}  // namespace

LaneMasks::LaneMasks(int frameWidth, int frameHeight, int capacity, LaneOrder order)
    : width_(frameWidth),
      height_(frameHeight),
      order_(order),
      groups_(wholeGroups(order.size())),
      bytes_(static_cast<std::size_t>(capacity) * frameHeight * groups_ * group),
      full_(static_cast<std::size_t>(capacity) * frameHeight)
{}

void LaneMasks::setRow(int frame, int frameRow, const std::int8_t* mask, std::int8_t* scratch)
{
    const std::size_t index = static_cast<std::size_t>(frame) * height_ + frameRow;
    full_[index] = allOnes(mask, width_) ? 1 : 0;
    if (full_[index] != 0)
        return;
    std::copy_n(mask, width_, scratch);
    order_.toLanes(scratch, &bytes_[index * groups_ * group]);
}

const std::int8_t* LaneMasks::row(int frame, int frameRow) const
{
    const std::size_t index = static_cast<std::size_t>(frame) * height_ + frameRow;
    return full_[index] != 0 ? nullptr : &bytes_[index * groups_ * group];
}

FrameModel::Taps FrameModel::trim(std::span<const float> kernel)
{
    Taps taps;
    taps.first = kernel.back() == 0.0F ? 0 : 1;
    std::copy_n(kernel.begin() + taps.first, tapCount, taps.value.begin());
    return taps;
}

FrameSweep::FrameSweep(int frameWidth, int frameHeight, int capacity, LaneOrder frameOrder)
    : width_(frameWidth),
      height_(frameHeight),
      order_(frameOrder),
      step_(wholeGroups(frameOrder.size()) * LaneMasks::group),
      rows_(ring + 1 + reach, capacity * step_, 0.0F),
      scattered_(4, (frameOrder.run + 2) * lanes, 0.0F),
      columns_(frameOrder.size())
{}

void FrameSweep::begin(std::span<const FrameModel> frames, int firstFrameRow)
{
    frames_ = frames;
    firstRow_ = firstFrameRow;
}

float* FrameSweep::gathered(int frameRow, int tapPair)
{
    return present(frameRow) ? rows_[frameRow % ring] : rows_[ring + 1 + tapPair];
}

const float* FrameSweep::sampled(int frameRow) const
{
    return present(frameRow) ? rows_[frameRow % ring] : rows_[ring];
}

void FrameSweep::gather(int pair, const float* even, const float* odd)
{
    gatherFrames(frames_.data(), frames_.size(), even, odd, gathered(pair, 0), gathered(pair - 1, 1),
                 gathered(pair - 2, 2), step_, order_.run);
}

void FrameSweep::finish(int frameRow, const LaneMasks& masks)
{
    if (!present(frameRow))
        return;
    float* row = rows_[frameRow % ring];
    for (int k = 0; k < static_cast<int>(frames_.size()); ++k, row += step_) {
        const std::int8_t* const mask = masks.row(k, frameRow);
        if (mask != nullptr)
            maskRow(mask, row, masks.groups());
        else
            order_.clearFrom(width_, row);
    }
}

void FrameSweep::load(int frameRow, const float* const* images, const char* const* masks)
{
    if (!present(frameRow))
        return;
    const std::ptrdiff_t start = static_cast<std::ptrdiff_t>(frameRow) * width_;
    float* row = rows_[frameRow % ring];
    for (std::size_t k = 0; k < frames_.size(); ++k, row += step_) {
        const float* const image = images[k] + start;
        const auto* const mask = reinterpret_cast<const std::int8_t*>(masks[k]) + start;
        maskColumns(mask, image, columns_.data(), width_);
        order_.toLanes(columns_.data(), row);
    }
}

void FrameSweep::scatter(int pair, float* even, float* odd)
{
    scatterFrames(frames_.data(), frames_.size(), sampled(pair), sampled(pair - 1), sampled(pair - 2), step_,
                  scattered_.ptr<float>() + 2 * lanes, static_cast<std::ptrdiff_t>(scattered_.step1()), even,
                  odd, order_.run);
}

}  // namespace halvor::vx
