// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/base/RowSums.h"

namespace halvor::vx {

/// Normalises a burst by its reference frame, whose mean becomes 0 and whose standard deviation 1.
class FrameScale
{
public:
    FrameScale(int frameWidth, int frameHeight);

    /// @param count      frames, normalised in place
    /// @param reference  one of them
    void normalise(int count, float* const* frames, const float* reference);

    /// What the last burst was normalised by: the deviation and the mean.
    float sigma() const { return sigma_; }
    float mean() const { return mean_; }

private:
    int width_;
    int height_;
    RowSums<double> rowSums_;
    float sigma_ = 1.0F;
    float mean_ = 0.0F;
};

}  // namespace halvor::vx
