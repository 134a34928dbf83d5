// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "core/base/Export.h"

/// Bit-exact model of the camera's temporal noise reduction block: a recursive filter per pixel, which
/// weakens as the new sample departs from the filtered history, and in the whole picture when the scene
/// moves.
///
/// The settings are references: a change takes effect with the next frame. A block is reset by rebuilding it.
class VXKIT_API TnrCmod
{
public:
    /// Filter weights by difference index, 32768 being 1.0: the hardware's table.
    static const int (&mAlphaTab)[1024];

    /// @param cols, rows  frame size
    /// @param cGain   control gain, in tenths: the higher, the sooner a difference counts as motion
    /// @param global  global threshold: motion above it weakens the filter; 100 switches this off
    /// @param alpha   feedback factor, in percent: the strength of the filter
    /// @param bypass  1 copies the frame, 0 filters, any other value filters and passes marked pixels (bit
    ///                31)
    /// @param hw      above 0: the settings are in hardware units (control gain 16 for 1, feedback 0 to 2047)
    TnrCmod(int cols, int rows, int& cGain, int& global, int& alpha, int bypass, int hw);
    ~TnrCmod();
    TnrCmod(const TnrCmod&) = delete;
    TnrCmod& operator=(const TnrCmod&) = delete;

    /// @param in   cols * rows pixels row by row; the low 16 bits are a two's complement sample
    /// @param out  as many; may be in. Filtered pixels are signed (bypass 0) or bare 16-bit patterns (marked
    ///             mode); copied ones and those that restart the filter keep the input's 32 bits
    void ProcessFrame(const int* in, int* out);

    int GetAlphaHw() const;    ///< feedback factor in hardware units
    int GetCGainHw() const;    ///< control gain in hardware units
    int GetGlobalHw() const;   ///< global threshold, the same in both units
    int GetGlobalOff() const;  ///< 1 when the global threshold switches the adaptation off, otherwise 0

private:
    std::vector<int> history_;  // quarter steps
    int alpha_ = 0;
    int globalError_ = 0;
    bool motionBelowThreshold_ = true;
    bool motionLow_ = false;
    bool firstFrame_ = true;
    int cols_;
    int rows_;
    int& cGain_;
    int& global_;
    int& alphaSetting_;
    int bypass_;
    bool hwUnits_;
};
