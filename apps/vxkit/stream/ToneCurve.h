// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <opencv2/core/mat.hpp>
#include <vector>

namespace vxapp {

/// Level of the brightest pixel of a display image; the darkest is 0.
inline constexpr int topLevel = 32766;

/// How the samples of a frame are spread over the display.
struct ToneSettings
{
    double equalisation;  ///< 0 to 1: weight of the equalised curve; the rest is a straight line
    double plateau;       ///< 1 or more: a sample's slope counts up to so many times the straight line's
    double tail;          ///< share of the display that the darkest percent of pixels gets, and the brightest
};

/// A rising curve from samples to shares of the display, held as the samples at given shares.
///
/// Its ends are the frame's extremes; between the 1st and the 99th percentile it is a straight line blended with
/// the frame's cumulative histogram, in which no bin counts more than the plateau (V. E. Vickers: Plateau
/// equalization algorithm for real-time display of high-quality infrared imagery. Optical Engineering 35(7),
/// 1996). What depends on the number of pixels is a share of them.
class ToneCurve
{
public:
    static constexpr std::size_t knots = 131;
    using Samples = std::array<float, knots>;

    /// @param frame  samples of 16 bits, signed; not empty
    ToneCurve(const cv::Mat_<int>& frame, const ToneSettings& settings);
    /// @param samples  at each share(), rising
    explicit ToneCurve(const Samples& samples) : samples_(samples) {}

    const Samples& samples() const { return samples_; }
    /// The share of the display at a knot.
    static double share(std::size_t knot, double tail);

    /// Levels 0 to topLevel of the whole samples from `first` on.
    std::vector<int> levels(int first, int count, double tail) const;

private:
    Samples samples_{};
};

}  // namespace vxapp
