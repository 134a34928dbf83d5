// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>

#include "core/base/Export.h"

/// Bit-exact model of the camera's histogram measuring block.
///
/// One pass over a frame fills 256 bins with triangular splitting, tracks the scene's range and computes the
/// gain and the offset with which the next frame is binned, all on an unsigned 16-bit scale.
class VXKIT_API HstCmod
{
public:
    /// Bins of the measured histogram.
    static constexpr int binCount = 256;
    /// Words of the binary block that carry a value; zeros follow up to whole image lines.
    static constexpr int valueWords = 2 * binCount + 6;

    /// @param shiftUp, shiftDown  shifts of the range filter when the range grows and shrinks, 0 to 31
    /// @param hold           frames for which a range that grew does not shrink
    /// @param smallestRange  smallest range that is spread over the output
    /// @param noOffset       non-zero keeps the offset at 0
    /// @param noRange        non-zero keeps the gain at 1 and the offset at 0
    HstCmod(int frameCols, int frameRows, int shiftUp, int shiftDown, int hold, int smallestRange,
            int noOffset, int noRange);

    /// @param in  cols * rows values whose low 16 bits are a two's complement sample; the samples at the two
    ///            ends of the range count as invalid
    void MeasureFrame(const int* in);

    /// Writes the binary block of the last frame: two words a bin (low 16 bits, the rest), then minimum,
    /// maximum, filtered minimum and maximum, gain, offset, then zeros. The first read reports a flat
    /// histogram of ones, for the hardware delivers its first real one a frame late.
    ///
    /// @param out  BinDataSize() words, and at least valueWords; no effect when null
    void GetBinData(int* out);

    /// Words of the binary block: whole image lines.
    int BinDataSize() const { return binSize_; }

private:
    void countPixels(const int* in);
    void trackRange();
    void trackEnd(int& end, int& hold, int measured, bool shrinks) const;
    void computeGain();

    std::array<int, binCount> bins_{};
    int min_ = 0;
    int max_ = 0;
    int lo_ = 0;
    int hi_ = 0;
    int gain_ = 0;
    int offset_ = 0;
    int cols_;
    int rows_;
    int holdLow_ = 0;
    int holdHigh_ = 0;
    int speedUp_;
    int speedDown_;
    int holdFrames_;
    int minRange_;
    int offsetDisable_;
    int rangeDisable_;
    int binLines_;
    int binSize_;
    int firstFrame_ = 1;
    int firstRead_ = 1;
};
