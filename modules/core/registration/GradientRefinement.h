// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/base/PointF.h"
#include "core/base/PointI.h"
#include "core/base/RowSums.h"
#include "core/imaging/MeanFilter.h"
#include "core/registration/FrameOverlap.h"
#include "core/registration/GradientStep.h"

namespace halvor::vx {

/// Refines whole-pixel displacements of frames against one reference to sub-pixel precision, and marks the
/// pixels where the refined frame agrees with the reference.
///
/// One Gauss-Newton step on the brightness constancy equation (Lucas and Kanade, 1981). Gradients and
/// structure sums of the reference are made once and corrected for each frame by the strips outside its
/// overlap. All memory is allocated at construction; results do not depend on the number of threads.
class GradientRefinement
{
public:
    /// @param size     of the reference and of every frame
    /// @param workers  how many frames may be refined at the same time
    explicit GradientRefinement(const cv::Size& size, int workers = 1);

    /// Standard deviation of the Gaussian that smooths frames for this method, by the radius of its kernel.
    static float smoothingSigma(int radius);

    int workers() const { return static_cast<int>(meanFilters_.size()); }

    /// @param reference  smoothed; its pixels are read again by refine()
    void setReference(const cv::Mat_<float>& reference);

    /// Runs on one thread; different workers may run at the same time.
    ///
    /// @param worker      whose scratch memory is used
    /// @param frame       smoothed
    /// @param shift       whole-pixel displacement of the frame; positive if the scene lies further right or
    ///                    lower in it than in the reference. Any value; without an overlap the result is not
    ///                    a number
    /// @param regError    largest accepted local error, in squared pixels of displacement
    /// @param blurRadius  of the mean filter that makes the error a local one; at most half the frame's
    ///                    smaller side is used
    /// @param mask        one value per pixel, set to 1 where the frame agrees and to 0 elsewhere in the
    ///                    window that the rounded result leaves in common; not written outside of it
    /// @return the displacement in pixels
    PointF refine(int worker, const cv::Mat_<float>& frame, PointI shift, float regError, int blurRadius,
                  char* mask);

    /// Refines each frame but the reference, several at the same time.
    ///
    /// @param frames     smoothed; as many as there are shifts are used
    /// @param shifts     whole-pixel displacements, one per frame
    /// @param reference  index of the frame that is left alone
    /// @param masks      one per frame, see refine()
    /// @param refined    takes the displacements; that of the reference is (0, 0)
    void refineAll(const std::vector<cv::Mat_<float>>& frames, const std::vector<PointI>& shifts,
                   int reference, float regError, int blurRadius, char** masks, std::vector<PointF>& refined);

private:
    GradientStep solve(const cv::Mat_<float>& frame, const FrameOverlap& overlap) const;
    void writeError(int y, const cv::Mat_<float>& frame, const FrameOverlap& overlap,
                    const GradientStep& step, float regError, float* error) const;

    cv::Size size_;
    cv::Mat_<float> reference_;
    cv::Mat_<float> gradX_;
    cv::Mat_<float> gradY_;
    float sumXx_ = 0.0F;
    float sumXy_ = 0.0F;
    float sumYy_ = 0.0F;
    RowSums<StructureSums> structureRows_;
    std::vector<MeanFilter> meanFilters_;  // one for each worker
};

}  // namespace halvor::vx
