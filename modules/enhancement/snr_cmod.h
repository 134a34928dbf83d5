// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/base/Export.h"

/// Bit-exact model of the camera's spatial noise removal block: moves each pixel toward the mean of its 3 x 3
/// neighbourhood where that is flat and leaves it alone near edges. It remembers nothing between frames.
class VXKIT_API SnrCmod
{
public:
    /// @param cols, rows  frame size
    /// @param gain    strength, read at each frame: 0 changes nothing; the higher, the more activity is
    ///                smoothed
    /// @param bypass  1 copies the frame, 0 filters, any other value filters and passes marked pixels (bit
    ///                31)
    SnrCmod(int cols, int rows, int& gain, int bypass);
    SnrCmod(const SnrCmod&) = delete;
    SnrCmod& operator=(const SnrCmod&) = delete;

    /// @param in   cols * rows pixels row by row; the low 16 bits are a two's complement sample
    /// @param out  as many, not overlapping in. Filtered pixels are signed and may leave 16 bits (bypass 0),
    ///             or are bare 16-bit patterns (marked mode); copied ones keep the input's 32 bits
    void ProcessFrame(const int* in, int* out);

private:
    int& gain_;
    int cols_;
    int rows_;
    int bypass_;
};
