#include "enhancement/superresolution/FrameSweep.h"

#include <algorithm>
#include <cstddef>

#include "core/base/Kernel.h"

namespace halvor::vx {

namespace {

using Taps = FrameModel::Taps;

inline void collectRow(const float* VX_RESTRICT row, int half, const Taps& taps, float* VX_RESTRICT out,
                       int n)
{
    // The columns that meet the taps 0, 2, 4 and the taps 1, 3, once the kernel begins at its first tap.
    const float* VX_RESTRICT a = taps.first == 0 ? row : row + half;
    const float* VX_RESTRICT b = taps.first == 0 ? row + half : row + 1;
    const auto [t0, t1, t2, t3, t4] = taps.value;
    for (int c = 0; c < n; ++c)
        out[c] = a[c] * t0 + b[c] * t1 + a[c + 1] * t2 + b[c + 1] * t3 + a[c + 2] * t4;
}

VX_KERNEL void collectFrames(const FrameModel* frames, std::size_t count, const float* row, int half,
                             float* out, std::ptrdiff_t step, int blocks)
{
    for (std::size_t k = 0; k < count; ++k, out += step)
        collectRow(row, half, frames[k].x, out, blocks * SplitLayout::block);
}

inline void sampleRow(const float* VX_RESTRICT r0, const float* VX_RESTRICT r1, const float* VX_RESTRICT r2,
                      const float* VX_RESTRICT r3, const float* VX_RESTRICT r4, const Taps& taps,
                      const std::int8_t* VX_RESTRICT mask, float* VX_RESTRICT out, int n)
{
    const auto [t0, t1, t2, t3, t4] = taps.value;
    for (int c = 0; c < n; ++c)
        out[c] =
            static_cast<float>(mask[c]) * (r0[c] * t0 + r1[c] * t1 + r2[c] * t2 + r3[c] * t3 + r4[c] * t4);
}

// rows: the six rows that a frame row sees.
VX_KERNEL void sampleFrames(const FrameModel* frames, std::size_t count, const float* const* rows,
                            std::ptrdiff_t rowStep, std::ptrdiff_t maskOffset, float* out,
                            std::ptrdiff_t step, int n)
{
    for (std::size_t k = 0; k < count; ++k, out += step) {
        const float* const* const seen = rows + frames[k].y.first;
        const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(k) * rowStep;
        sampleRow(seen[0] + at, seen[1] + at, seen[2] + at, seen[3] + at, seen[4] + at, frames[k].y,
                  frames[k].mask + maskOffset, out, n);
    }
}

VX_KERNEL void maskRow(const float* VX_RESTRICT image, const std::int8_t* VX_RESTRICT mask,
                       float* VX_RESTRICT out, int n)
{
    for (int c = 0; c < n; ++c)
        out[c] = static_cast<float>(mask[c]) * image[c];
}

// Three taps of the vertical scatter into one row; s0 is the lowest frame row, which meets the first tap.
inline void scatterThree(const float* VX_RESTRICT s0, const float* VX_RESTRICT s1,
                         const float* VX_RESTRICT s2, const Taps& taps, float* VX_RESTRICT out, int n)
{
    const float t0 = taps.value[0];
    const float t2 = taps.value[2];
    const float t4 = taps.value[4];
    for (int c = 0; c < n; ++c)
        out[c] = s0[c] * t0 + s1[c] * t2 + s2[c] * t4;
}

inline void scatterTwo(const float* VX_RESTRICT s0, const float* VX_RESTRICT s1, const Taps& taps,
                       float* VX_RESTRICT out, int n)
{
    const float t1 = taps.value[1];
    const float t3 = taps.value[3];
    for (int c = 0; c < n; ++c)
        out[c] = s0[c] * t1 + s1[c] * t3;
}

inline void spreadRow(const float* VX_RESTRICT in, const Taps& taps, float* VX_RESTRICT row, int half, int n)
{
    float* VX_RESTRICT a = taps.first == 0 ? row : row + half;
    float* VX_RESTRICT b = taps.first == 0 ? row + half : row;
    const float* VX_RESTRICT late = in - taps.first;
    const auto [t0, t1, t2, t3, t4] = taps.value;
    for (int c = 0; c < n; ++c) {
        a[c] += in[c] * t0 + in[c - 1] * t2 + in[c - 2] * t4;
        b[c] += late[c] * t1 + late[c - 1] * t3;
    }
}

// parity: 0 for the even row of a pair, 1 for the odd one. sampled: frame rows pair, pair - 1, pair - 2.
VX_KERNEL void scatterFrames(const FrameModel* frames, std::size_t count, const float* const* sampled,
                             std::ptrdiff_t step, int parity, float* VX_RESTRICT scattered,
                             float* VX_RESTRICT row, int half, int blocks)
{
    const int n = blocks * SplitLayout::block;
    for (std::size_t k = 0; k < count; ++k) {
        const Taps& taps = frames[k].y;
        const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(k) * step;
        if (parity == taps.first)
            scatterThree(sampled[0] + at, sampled[1] + at, sampled[2] + at, taps, scattered, n);
        else
            scatterTwo(sampled[taps.first] + at, sampled[taps.first + 1] + at, taps, scattered, n);
        spreadRow(scattered, frames[k].x, row, half, n);
    }
}

}  // namespace

FrameModel::Taps FrameModel::trim(std::span<const float> kernel)
{
    Taps taps;
    taps.first = kernel.back() == 0.0F ? 0 : 1;
    std::copy_n(kernel.begin() + taps.first, tapCount, taps.value.begin());
    return taps;
}

FrameSweep::FrameSweep(int frameWidth, int frameHeight, int capacity)
    : width_(frameWidth),
      height_(frameHeight),
      rowWidth_(SplitLayout::wholeBlocks(frameWidth + windowRows - 1)),
      collected_(collectedRows, capacity * rowWidth_, 0.0F),
      sampled_(windowRows, guard + capacity * rowWidth_, 0.0F),
      scattered_(1, guard + rowWidth_, 0.0F)
{}

void FrameSweep::begin(std::span<const FrameModel> frames)
{
    frames_ = frames;
    for (int row = 0; row < windowRows; ++row)
        clearSampled(row);
}

void FrameSweep::collect(int pair, const float* even, const float* odd, const SplitLayout& layout)
{
    const int blocks = SplitLayout::wholeBlocks(width_) / SplitLayout::block;
    collectFrames(frames_.data(), frames_.size(), even, layout.half, collectedRow(2 * pair), rowWidth_,
                  blocks);
    collectFrames(frames_.data(), frames_.size(), odd, layout.half, collectedRow(2 * pair + 1), rowWidth_,
                  blocks);
}

void FrameSweep::sample(int frameRow)
{
    if (frameRow >= height_) {
        clearSampled(frameRow);
        return;
    }
    const float* rows[collectedRows];
    for (int k = 0; k < collectedRows; ++k)
        rows[k] = collectedRow(2 * frameRow + k);
    sampleFrames(frames_.data(), frames_.size(), rows, rowWidth_,
                 static_cast<std::ptrdiff_t>(frameRow) * width_, sampledRow(frameRow), rowWidth_, width_);
}

void FrameSweep::load(int frameRow, const float* const* images)
{
    if (frameRow >= height_) {
        clearSampled(frameRow);
        return;
    }
    const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(frameRow) * width_;
    float* out = sampledRow(frameRow);
    for (std::size_t k = 0; k < frames_.size(); ++k, out += rowWidth_)
        maskRow(images[k] + at, frames_[k].mask + at, out, width_);
}

void FrameSweep::scatter(int pair, float* even, float* odd, const SplitLayout& layout)
{
    const float* const sampled[windowRows] = {sampledRow(pair), sampledRow(pair - 1), sampledRow(pair - 2)};
    const int blocks = rowWidth_ / SplitLayout::block;
    float* const scattered = scattered_.ptr<float>() + guard;
    scatterFrames(frames_.data(), frames_.size(), sampled, rowWidth_, 0, scattered, even, layout.half,
                  blocks);
    scatterFrames(frames_.data(), frames_.size(), sampled, rowWidth_, 1, scattered, odd, layout.half, blocks);
}

void FrameSweep::clearSampled(int frameRow)
{
    float* const row = sampledRow(frameRow);
    std::fill_n(row, rowWidth_ * static_cast<int>(frames_.size()), 0.0F);
}

}  // namespace halvor::vx
