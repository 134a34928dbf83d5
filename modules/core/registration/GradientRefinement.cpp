// SPDX-License-Identifier: Apache-2.0
#include "core/registration/GradientRefinement.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "core/base/Kernel.h"
#include "core/base/ParallelPixels.h"
#include "core/registration/Displacement.h"

namespace halvor::vx {

namespace {

// Central differences; at an edge of the image, where the caller passes the row itself for the one that is
// missing, the one-sided difference at full scale.
VX_KERNEL void gradientRow(const float* VX_RESTRICT above, const float* VX_RESTRICT row,
                           const float* VX_RESTRICT below, float verticalScale, int n,
                           float* VX_RESTRICT gradX, float* VX_RESTRICT gradY)
{
    for (int i = 0; i < n; ++i)
        gradY[i] = (below[i] - above[i]) * verticalScale;
    for (int i = 1; i < n - 1; ++i)
        gradX[i] = (row[i + 1] - row[i - 1]) * 0.5F;
    gradX[0] = row[std::min(1, n - 1)] - row[0];
    gradX[n - 1] = row[n - 1] - row[std::max(n - 2, 0)];
}

VX_KERNEL StructureSums structureOfRow(const float* VX_RESTRICT gradX, const float* VX_RESTRICT gradY, int n)
{
    return {laneSum(n, [=](int i) { return gradX[i] * gradX[i]; }),
            laneSum(n, [=](int i) { return gradX[i] * gradY[i]; }),
            laneSum(n, [=](int i) { return gradY[i] * gradY[i]; })};
}

VX_KERNEL double gradientTimesDifference(const float* VX_RESTRICT grad, const float* VX_RESTRICT reference,
                                         const float* VX_RESTRICT frame, int n)
{
    return laneSum(n, [=](int i) { return grad[i] * (frame[i] - reference[i]); });
}

VX_KERNEL void errorRow(const float* VX_RESTRICT gradX, const float* VX_RESTRICT gradY,
                        const float* VX_RESTRICT reference, const float* VX_RESTRICT frame, GradientStep step,
                        int n, float* VX_RESTRICT error)
{
    for (int i = 0; i < n; ++i)
        error[i] = stepError(step, gradX[i], gradY[i], reference[i], frame[i]);
}

VX_KERNEL void maskRow(const float* VX_RESTRICT error, float limit, int n, char* VX_RESTRICT mask)
{
    for (int i = 0; i < n; ++i)
        mask[i] = limit > error[i] ? 1 : 0;
}

}  // namespace

GradientRefinement::GradientRefinement(const cv::Size& size, int workers)
    : size_(size), gradX_(size), gradY_(size), structureRows_(size.height)
{
    meanFilters_.reserve(static_cast<std::size_t>(workers));
    for (int i = 0; i < workers; ++i)
        meanFilters_.emplace_back(size);
}

float GradientRefinement::smoothingSigma(int radius)
{
    const auto r = static_cast<float>(radius);
    return std::sqrt(r * 3.0F * r / 25.0F);
}

void GradientRefinement::setReference(const cv::Mat_<float>& reference)
{
    reference_ = reference;
#pragma omp parallel for schedule(static) if (gradX_.total() >= 4 * parallelPixels)
    for (int y = 0; y < size_.height; ++y) {
        const int above = std::max(y - 1, 0);
        const int below = std::min(y + 1, size_.height - 1);
        gradientRow(reference[above], reference[y], reference[below], below - above == 2 ? 0.5F : 1.0F,
                    size_.width, gradX_[y], gradY_[y]);
        structureRows_[y] = structureOfRow(gradX_[y], gradY_[y], size_.width);
    }
    const StructureSums structure = structureRows_.total();
    sumXx_ = static_cast<float>(structure.xx);
    sumXy_ = static_cast<float>(structure.xy);
    sumYy_ = static_cast<float>(structure.yy);
}

PointF GradientRefinement::refine(int worker, const cv::Mat_<float>& frame, PointI shift, float regError,
                                  int blurRadius, char* mask)
{
    const int radius = std::clamp(blurRadius, 0, std::min(size_.width, size_.height) / 2);
    const FrameOverlap overlap = overlapOf(size_, shift);
    const GradientStep step = solve(frame, overlap);
    const PointF displacement = {step.dx + static_cast<float>(shift.x),
                                 step.dy + static_cast<float>(shift.y)};
    const cv::Rect window = overlapOf(size_, roundToPixels(displacement)).reference;
    meanFilters_[static_cast<std::size_t>(worker)].run(
        radius, [&](int y, float* error) { writeError(y, frame, overlap, step, regError, error); },
        [&](int y, const float* error) {
            if (window.y <= y && y < window.y + window.height)
                maskRow(error + window.x, regError, window.width, mask + y * size_.width + window.x);
        });
    return displacement;
}

void GradientRefinement::refineAll(const std::vector<cv::Mat_<float>>& frames,
                                   const std::vector<PointI>& shifts, int reference, float regError,
                                   int blurRadius, char** masks, std::vector<PointF>& refined)
{
    refined.assign(shifts.size(), PointF{0.0F, 0.0F});
    const int others = std::max(static_cast<int>(shifts.size()) - 1, 0);
#pragma omp parallel for schedule(static) \
    num_threads(std::min(omp_get_max_threads(), workers())) if (gradX_.total() >= parallelPixels)
    for (int other = 0; other < others; ++other) {
        const int i = other < reference ? other : other + 1;
        const auto slot = static_cast<std::size_t>(i);
        refined[slot] =
            refine(omp_get_thread_num(), frames[slot], shifts[slot], regError, blurRadius, masks[i]);
    }
}

GradientStep GradientRefinement::solve(const cv::Mat_<float>& frame, const FrameOverlap& overlap) const
{
    const cv::Rect& window = overlap.reference;
    const cv::Rect& strip = overlap.strip;
    if (window.empty())
        return solveGradientStep({}, 0.0, 0.0);

    StructureSums outside;
    for (int y = overlap.band.y; y < overlap.band.y + overlap.band.height; ++y)
        outside += structureOfRow(gradX_[y], gradY_[y], size_.width);
    double bx = 0.0;
    double by = 0.0;
    for (int i = 0; i < window.height; ++i) {
        const int y = window.y + i;
        const float* reference = reference_[y] + window.x;
        const float* displaced = frame[overlap.frame.y + i] + overlap.frame.x;
        outside += structureOfRow(gradX_[y] + strip.x, gradY_[y] + strip.x, strip.width);
        bx += gradientTimesDifference(gradX_[y] + window.x, reference, displaced, window.width);
        by += gradientTimesDifference(gradY_[y] + window.x, reference, displaced, window.width);
    }
    return solveGradientStep(StructureSums{sumXx_, sumXy_, sumYy_} - outside, bx, by);
}

void GradientRefinement::writeError(int y, const cv::Mat_<float>& frame, const FrameOverlap& overlap,
                                    const GradientStep& step, float regError, float* error) const
{
    const cv::Rect& window = overlap.reference;
    const int i = y - window.y;
    if (i < 0 || i >= window.height) {
        std::fill_n(error, size_.width, regError);
        return;
    }
    std::fill_n(error + overlap.strip.x, overlap.strip.width, regError);
    errorRow(gradX_[y] + window.x, gradY_[y] + window.x, reference_[y] + window.x,
             frame[overlap.frame.y + i] + overlap.frame.x, step, window.width, error + window.x);
}

}  // namespace halvor::vx
