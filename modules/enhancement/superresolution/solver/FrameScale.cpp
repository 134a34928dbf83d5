// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/solver/FrameScale.h"

#include <cmath>
#include <cstddef>

#include "core/base/Kernel.h"
#include "core/base/ParallelPixels.h"

namespace halvor::vx {

namespace {

VX_KERNEL double sumRow(const float* row, int n)
{
    return laneSum(n, [=](int i) { return row[i]; });
}

VX_KERNEL double squaredDeviationRow(const float* row, double mean, int n)
{
    return laneSum(n, [=](int i) {
        const double difference = static_cast<double>(row[i]) - mean;
        return difference * difference;
    });
}

VX_KERNEL void normaliseRow(float* row, float mean, float sigma, int n)
{
    for (int i = 0; i < n; ++i)
        row[i] = (row[i] - mean) / sigma;
}

}  // namespace

FrameScale::FrameScale(int frameWidth, int frameHeight)
    : width_(frameWidth), height_(frameHeight), rowSums_(frameHeight)
{}

void FrameScale::normalise(int count, float* const* frames, const float* reference)
{
    const auto rowStart = [this](int r) { return static_cast<std::ptrdiff_t>(r) * width_; };
    const double inputSize = static_cast<double>(width_) * height_;
    const bool isLarge = static_cast<std::size_t>(width_) * height_ >= lightPassPixels;
#pragma omp parallel for schedule(static) if (isLarge)
    for (int r = 0; r < height_; ++r)
        rowSums_[r] = sumRow(reference + rowStart(r), width_);
    const double mean = rowSums_.total() / inputSize;
#pragma omp parallel for schedule(static) if (isLarge)
    for (int r = 0; r < height_; ++r)
        rowSums_[r] = squaredDeviationRow(reference + rowStart(r), mean, width_);
    const double variance = rowSums_.total() / inputSize;

    mean_ = static_cast<float>(mean);
    sigma_ = std::sqrt(static_cast<float>(variance));
#pragma omp parallel for schedule(static)
    for (int r = 0; r < height_; ++r)
        for (int k = 0; k < count; ++k)
            normaliseRow(frames[k] + rowStart(r), mean_, sigma_, width_);
}

}  // namespace halvor::vx
