// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <string>

namespace vxapp {

/// The point spread that a straight edge shows.
struct EdgeMeasurement
{
    std::string problem;  ///< why the edge can't be used; empty: all else holds

    double sigma = 0.0;      ///< deviation of the point spread in pixels of the frame
    double deviation = 0.0;  ///< standard error of sigma, or if it is less than leastSigma, at leastSigma
    double angle = 0.0;      ///< of the edge to the columns (or the rows, if it is nearer to them), degrees
    bool isUpright = true;   ///< nearer to the columns
    cv::Point2d middle;      ///< of the edge, in pixels of the frame; pixel centres are whole
    int length = 0;          ///< rows (or columns) of the edge that were used
    double contrast = 0.0;   ///< between the two sides, in units of the frame
    double noise = 0.0;      ///< root of the mean squared residue
    double misfit = 0.0;     ///< of the edge spread function to the model, share of the contrast

    bool isUsable() const { return problem.empty(); }
};

/// Deviation below which the pixel's own width hides the point spread, in pixels of the frame.
inline constexpr double leastSigma = 0.2;

/// Measures the one straight, slanted edge in a region: the samples beside it, sorted by their distance from it, are
/// an edge spread function sampled much more finely than the pixels (the method of ISO 12233), to which the model
/// of super-resolution (EdgeModel) is fitted together with the edge's place, the sides' levels and their common
/// gradient, by Levenberg and Marquardt's method.
///
/// @param frame   counts or values, finite
/// @param region  inside the frame
EdgeMeasurement measureEdge(const cv::Mat_<float>& frame, const cv::Rect& region);

/// Looks for the edge of a frame that yields the smallest error.
///
/// @param region  where it was found; unchanged if there is none
EdgeMeasurement findEdge(const cv::Mat_<float>& frame, cv::Rect& region);

}  // namespace vxapp
