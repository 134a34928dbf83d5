// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <span>
#include <vector>

#include "enhancement/superresolution/solver/LaneOrder.h"

namespace halvor::vx {

/// Masks of a burst in the solver's order of columns.
class LaneMasks
{
public:
    LaneMasks(int frameWidth, int frameHeight, int capacity, LaneOrder order);

    /// Takes one row of a mask, signed bytes in the frame's own order of columns.
    ///
    /// @param scratch  rowBytes() bytes, zero behind the frame's width
    void setRow(int frame, int frameRow, const std::int8_t* mask, std::int8_t* scratch);
    std::size_t rowBytes() const { return static_cast<std::size_t>(order_.size()); }

    /// The row in whole groups of bytes, or null if it is all ones and changes nothing.
    const std::int8_t* row(int frame, int frameRow) const;

    /// Bytes that a loop converts at once.
    static constexpr int group = 64;
    int groups() const { return groups_; }

private:
    int width_;
    int height_;
    LaneOrder order_;
    int groups_;
    std::vector<std::int8_t> bytes_;
    std::vector<std::uint8_t> full_;
};

/// How one frame sees the large image: its kernels without the outer tap that is always zero.
struct FrameModel
{
    static constexpr int tapCount = 5;

    /// A kernel's taps from the first that may differ from zero.
    struct Taps
    {
        std::array<float, tapCount> value{};
        int first = 0;  ///< 0 or 1: index of value[0] among the kernel's six taps
    };

    /// @param kernel  six taps, of which the first or the last is zero
    static Taps trim(std::span<const float> kernel);

    Taps x;
    Taps y;
};

/// Moves down the large image and passes it through the imaging model of all frames and back: what
/// SrFloatConvolution does with whole images, on a few rows that stay in the cache.
///
/// Row pair p is the large image's rows 2p and 2p + 1. A frame's row r is seen in the pairs r to r + 2. Bits
/// equal those of the operators' order of taps, up to the sign of a zero, as long as all is finite.
class FrameSweep
{
public:
    FrameSweep(int frameWidth, int frameHeight, int capacity, LaneOrder frameOrder);

    /// Starts with a frame row; those above count as absent.
    void begin(std::span<const FrameModel> frames, int firstFrameRow);
    /// Gathers one pair of rows for all frames. Pairs come in ascending order, from begin()'s row on.
    ///
    /// @param even, odd  as LineBuffer keeps them
    void gather(int pair, const float* even, const float* odd);
    /// Masks a frame row whose three pairs were gathered.
    void finish(int frameRow, const LaneMasks& masks);
    /// In place of gather() and finish(): takes a row of the frames' own pixels, which have their own order
    /// of columns.
    void load(int frameRow, const float* const* images, const char* const* masks);
    /// Adds to one pair of rows what the frame rows pair - 2 to pair give to it, frame after frame.
    ///
    /// @param even, odd  as LaneImage keeps them
    void scatter(int pair, float* even, float* odd);

private:
    static constexpr int reach = 3;             // pairs that see a frame row, and the reverse
    static constexpr int ring = 2 * reach - 1;  // rows that are gathered or scattered at one time

    bool present(int frameRow) const { return frameRow >= firstRow_ && frameRow < height_; }
    float* gathered(int frameRow, int tapPair);
    const float* sampled(int frameRow) const;

    int width_;
    int height_;
    LaneOrder order_;
    int step_;  // floats from a frame's stretch of a row to that of the next
    int firstRow_ = 0;
    std::span<const FrameModel> frames_;
    // Rows with one stretch per frame: a ring, one of zeros, and some that take what belongs to absent rows.
    cv::Mat_<float> rows_;
    cv::Mat_<float> scattered_;
    std::vector<float> columns_;  // one row of a frame in its own order, zero behind its width
};

}  // namespace halvor::vx
