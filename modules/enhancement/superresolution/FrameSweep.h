#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "enhancement/superresolution/SplitImage.h"

namespace halvor::vx {

/// How one frame sees the large image: its kernels without the outer tap that is always zero, and its mask.
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
    const std::int8_t* mask = nullptr;
};

/// Moves down the large image two rows at a time and passes them through the imaging model of all frames and
/// back: what SrFloatConvolution does with whole images, on a window of rows that stays in the cache.
///
/// Row pair p is the large image's rows 2p and 2p + 1. A frame's row r is seen in the pairs r to r + 2. Bits
/// equal those of the operators' told order of taps, up to the sign of a zero, as long as all is finite.
class FrameSweep
{
public:
    FrameSweep(int frameWidth, int frameHeight, int capacity);

    /// Forgets all rows: those above the first one that follows count as absent.
    void begin(std::span<const FrameModel> frames);
    /// Horizontal gather of one pair of stored rows, for all frames.
    void collect(int pair, const float* even, const float* odd, const SplitLayout& layout);
    /// Vertical gather of a frame row whose three pairs were collected, masked, for all frames.
    void sample(int frameRow);
    /// In place of sample(): takes the frames' own pixels.
    void load(int frameRow, const float* const* images);
    /// Vertical and horizontal scatter into one pair: adds what the frame rows pair - 2 to pair give to it,
    /// frame after frame.
    void scatter(int pair, float* even, float* odd, const SplitLayout& layout);

private:
    static constexpr int windowRows = 3;     // frame rows that meet in one pair
    static constexpr int collectedRows = 6;  // rows of the large image that a frame row sees

    float* collectedRow(int y) { return collected_[y % collectedRows]; }
    float* sampledRow(int frameRow) { return sampled_[(frameRow + windowRows) % windowRows] + guard; }
    void clearSampled(int frameRow);

    static constexpr int guard = SplitLayout::block;  // zeros in front of a row

    int width_;
    int height_;
    int rowWidth_;  // columns of one part of a stored row that a frame reaches, in whole blocks
    std::span<const FrameModel> frames_;
    // Rings of rows. Each row holds one stretch per frame.
    cv::Mat_<float> collected_;
    cv::Mat_<float> sampled_;
    cv::Mat_<float> scattered_;
};

}  // namespace halvor::vx
