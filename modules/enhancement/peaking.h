// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <vector>

#include "core/base/Export.h"
#include "enhancement/Matrix.h"

/// Settings of the sharpener; they may change between frames and nothing checks them.
struct PeakingParam
{
    int enabled = 0;       ///< zero copies the frame
    int gain = 14;         ///< boost in units of 1/4096
    int coring = 22;       ///< differences up to this count as none; follows the local gain
    int limit = 130;       ///< largest boost before the gain, in units of 4096
    int width = 1;         ///< read by nothing here
    int reductThres = 20;  ///< local contrast in units of 512 above which the boost falls
    int reductGain = 30;   ///< how fast it falls, in units of 1/4096; 0 for not at all
    int testmode = 0;      ///< must stay 0
};

/// Bit-exact model of the last block of the chain: a three by three high-pass sharpener with coring, a limit
/// on the boost and less of it near strong edges.
///
/// Coring follows the local slope of the equaliser's curve, so that noise which the equalisation amplified is
/// still held back.
class VXKIT_API Peaking
{
public:
    /// @param frameCols, frameRows  size of a frame in pixels
    Peaking(int frameCols, int frameRows);

    /// Read anew with every frame.
    PeakingParam param;
    /// Room for two texts of the camera, read by nothing here.
    std::array<char, 128> textA{" "};
    std::array<char, 128> textB{" "};

    /// Reads the section "Peaking_Parameter" of a parameter file; prints one line when it can't be opened.
    void SetParam(const char* fileName);

    /// Sharpens a frame of cols() * rows() pixels; `in` and `out` must not overlap.
    ///
    /// @param localGain  256 slopes by the upper bits of an equalised pixel; the output is then 0 to 32766.
    ///                   Null for a raw frame: slope 1, output -32767 to 32766.
    /// Ends the process when `testmode` is set.
    void ProcessFrame(int* in, int* out, double* localGain);
    void ProcessFrame(halvor::vx::ChainMatrix& in, halvor::vx::ChainMatrix& out, double* localGain);

    /// Size of a frame in pixels.
    int cols() const { return cols_; }
    int rows() const { return rows_; }

private:
    // A row of the frame with its ends repeated, as integers and, where these are 16-bit samples, as floats.
    struct Row
    {
        std::vector<int> values;
        std::vector<float> samples;
        bool isSamples = false;
    };

    void fillCores(const double* localGain);
    void pad(const int* row, Row& padded) const;

    int cols_;
    int rows_;
    std::array<Row, 3> window_;     // the row above, the row itself and the one below, in turn
    std::array<int, 256> cores_{};  // coring by the upper bits of a pixel
    std::array<float, 256> sampleCores_{};
    bool coresOfSamples_ = false;  // no coring is negative
    std::vector<int> core_;        // coring of each pixel of a row
    std::vector<float> sampleCore_;
};
