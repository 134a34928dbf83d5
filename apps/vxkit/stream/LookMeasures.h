// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

namespace vxapp {

/// Figures of how a recording looks, in the 256 levels of a display: those of the processed frames, and of the
/// input with each frame stretched between its 1st and 99th percentile.
class LookMeasures
{
public:
    /// @param input     counts of a frame
    /// @param enhanced  what was made of it
    /// @param top       what is shown as the brightest level; 0 is the darkest
    void add(const cv::Mat_<std::uint16_t>& input, const cv::Mat_<std::uint16_t>& enhanced, int top);

    /// A table of two lines and its head.
    std::string text() const;

private:
    /// Sums over the frames.
    struct Figures
    {
        double range = 0.0;  ///< share of the levels between 1st and 99th percentile
        double leastRange = 1e9;
        double deviation = 0.0;  ///< standard deviation
        double clipped = 0.0;    ///< share of the pixels at the darkest and the brightest level
        double jump = 0.0;       ///< largest change of the median from frame to frame
        double lastMedian = -1.0;

        void add(const cv::Mat_<double>& levels);
    };

    int frames_ = 0;
    Figures stretched_, enhanced_;
};

}  // namespace vxapp
