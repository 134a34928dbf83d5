// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/base/Export.h"

namespace halvor::vx {

/// Temporal noise reduction for a stream of 16-bit images: a recursive filter per pixel, which weakens as the
/// new sample departs from the filtered history, and in the whole picture when the scene moves. The
/// arithmetic is that of the hardware block TnrCmod, bit for bit.
///
/// A copy goes on from the same state, on its own.
class VXKIT_API TemporalNoiseReduction
{
public:
    /// Filter weights by difference index, 32768 being 1.0; the table of TnrCmod.
    static const int (&mAlphaTab)[1024];

    /// Stores the settings unchecked.
    /// @param controlGain      in tenths: the higher, the sooner a difference counts as motion
    /// @param globalThreshold  motion above it weakens the filter; 100 switches this off
    /// @param feedbackFactor   in percent: the strength of the filter
    /// @param hwUnits          control gain and feedback factor are in hardware units (16 for 1, 0 to 2047)
    TemporalNoiseReduction(int controlGain, int globalThreshold, int feedbackFactor, bool hwUnits);

    /// Filters the next frame of the stream; a frame of another size than the last restarts the filter.
    /// @param dst  created at the size of src; may be src
    void process(const cv::Mat_<short>& src, cv::Mat_<short>& dst);

    /// The setters refuse a value out of range, in which case they return false and change nothing. The
    /// ranges are those of tenths and percent, whatever the units.
    bool setControlGain(int value);      ///< 0 to 10
    bool setGlobalThreshold(int value);  ///< 0 to 100
    bool setFeedbackFactor(int value);   ///< 0 to 100

private:
    int getAlphaHw() const;
    int getCGainHw() const;

    int alpha_ = 0;
    int globalError_ = 0;
    bool motionBelowThreshold_ = true;
    bool motionLow_ = false;
    int controlGain_;
    int globalThreshold_;
    int feedbackFactor_;
    bool hwUnits_;
    std::vector<int> history_;  // quarter steps
    cv::Size historySize_;
    bool firstFrame_ = true;
};

}  // namespace halvor::vx
