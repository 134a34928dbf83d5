// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

namespace vxapp {

/// How a frame shows a straight edge, by the point spread of super-resolution: a Gaussian that is integrated over
/// the pixels of the large image, of which two lie along a pixel of the frame. With a deviation near 0 there
/// remains the pixel's own square.
///
/// Held as a table over the distance from the edge, so that a look-up is cheap.
class EdgeModel
{
public:
    /// @param sigma  deviation in pixels of the large image, above 0
    /// @param slope  tangent of the edge's angle to the columns or rows, -1 to 1
    EdgeModel(double sigma, double slope);

    /// Share of the bright side at a distance from the edge in pixels of the frame, 0 to 1.
    double at(double distance) const;
    /// Its derivative, per pixel.
    double slopeAt(double distance) const;

private:
    double step_;   // of the table, frame pixels
    double reach_;  // distance beyond which nothing changes, frame pixels
    std::vector<double> table_;
};

}  // namespace vxapp
