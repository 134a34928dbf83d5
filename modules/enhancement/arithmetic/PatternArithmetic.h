// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "enhancement/arithmetic/FrameView.h"

// What the static pattern block and the static pattern filter share.
namespace halvor::vx::pattern {

struct Settings
{
    int threshold;
    int th07;        ///< 0.7 of the threshold, truncated
    int lineLimit;   ///< bounds the line correction to 8192 times this
    int frameLimit;  ///< bounds the frame correction to 256 times this
};

/// What has been learned.
struct Corrections
{
    int* line;                ///< one value per column, 10 fractional bits
    int* frame;               ///< one value per pixel, 5 fractional bits
    std::size_t frameStride;  ///< in elements
};

/// In which order a row's line values become visible to its own pixels.
struct Scan
{
    int lag;             ///< 1 to 3: the window at x sees this row's values only up to column x - lag
    bool hideLineAtTop;  ///< in the first row the windows see no new value at all
};

/// What a row's input says of each of its pixels.
struct Measures
{
    const int* centre;
    const int* squareSum;  ///< of the eight neighbours in the 3 x 3 square
    const int* squareDeviation;
    const int* rowSum;  ///< of the eight neighbours along the row
    const int* rowDeviation;
};

/// Removes the learned pattern from frames of one width, row by row, and learns on; the result may replace
/// the frame.
///
/// The updates of a row's line values depend on the input and on their own former values only, so each step
/// takes a whole row: measures of the input, line update, then frame update and correction with the line
/// values as the scan order shows them to each pixel.
class PatternRemoval
{
public:
    explicit PatternRemoval(int cols);

    /// Results are signed and may leave 16 bits.
    void filterFrame(const FrameView<int>& frame, const Corrections& corrections, const Settings& settings,
                     const Scan& scan);

    /// Marked pixels pass unchanged, the others are bare 16-bit patterns.
    void filterMarkedFrame(const FrameView<int>& frame, const Corrections& corrections,
                           const Settings& settings, const Scan& scan);

    /// Samples of 32767 pass unchanged.
    void filterFrame(const FrameView<short>& frame, const Corrections& corrections, const Settings& settings,
                     const Scan& scan);

private:
    template <auto store, typename Pixel>
    void filterRows(const FrameView<Pixel>& frame, const Corrections& corrections, const Settings& settings,
                    const Scan& scan);
    void load(const int* row, int y);
    void load(const short* row, int y);
    std::int16_t* samples(int y);
    void measure(int y, int lastRow);
    Measures measures(int first) const;
    void correct(const Settings& settings, int hidden, int visible, int* frameRow, int* result);

    int cols_;
    std::size_t padded_;
    std::vector<std::int16_t> samples_;  // the rows around the current one, each padded by repeated edges
    std::vector<std::int16_t> columnHigh_, columnLow_;
    std::vector<int> columnSum_;
    std::vector<int> centre_;              // the current row, padded
    std::vector<int> squareSum_, rowSum_;  // of the eight neighbours
    std::vector<int> squareDeviation_, rowDeviation_;
    std::vector<int> earlierLine_, laterLine_;  // rounded line values before and after the row, padded
    std::vector<int> result_;                   // corrected samples, signed
};

}  // namespace halvor::vx::pattern
