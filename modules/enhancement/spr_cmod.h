// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include "core/base/Export.h"

namespace halvor::vx::pattern {
class PatternRemoval;
}

/// Bit-exact model of the camera's static pattern removal block: learns the stripes and pixel offsets that
/// stay with the detector, one correction per column and one per pixel, and subtracts them. It learns where
/// the neighbourhood is flat enough for a deviation to be pattern, not scene.
///
/// The settings are references: a change takes effect with the next frame. A block forgets by being rebuilt.
class VXKIT_API SprCmod
{
public:
    /// @param cols, rows  frame size
    /// @param threshold   deviation from the neighbours, in sample steps, above which a pixel is scene
    /// @param lineLimit   bounds the column correction
    /// @param frameLimit  bounds the pixel correction
    /// @param delay   columns by which a new column correction is late inside a row: 0 to 2, 0 acting as 2;
    ///                any other value prints a message and aborts the process
    /// @param bypass  1 copies the frame, 0 corrects, any other value corrects and passes marked pixels (bit
    ///                31)
    SprCmod(int cols, int rows, int& threshold, int& lineLimit, int& frameLimit, int delay, int bypass);
    ~SprCmod();
    SprCmod(const SprCmod&) = delete;
    SprCmod& operator=(const SprCmod&) = delete;

    /// @param in   cols * rows pixels row by row; the low 16 bits are a two's complement sample
    /// @param out  as many; may be in. Corrected pixels are signed and may leave 16 bits (bypass 0), or are
    ///             bare 16-bit patterns (marked mode); copied ones keep the input's 32 bits
    void ProcessFrame(const int* in, int* out);

    /// 0.7 of the threshold in double precision, truncated: 90 gives 62.
    int Th07() const;

private:
    std::vector<int> line_;
    std::vector<int> frame_;
    int& threshold_;
    int th07_ = 0;
    int& lineLimit_;
    int& frameLimit_;
    int cols_;
    int rows_;
    int delay_;
    int bypass_;
    int firstFrame_ = 1;
    std::unique_ptr<halvor::vx::pattern::PatternRemoval> removal_;
};
