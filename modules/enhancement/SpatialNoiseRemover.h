// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/mat.hpp>

#include "core/base/Export.h"

namespace halvor::vx {

/// Spatial noise removal for 16-bit images: moves each pixel toward the mean of its 3 x 3 neighbourhood where
/// that is flat and leaves it alone near edges. The arithmetic is that of the hardware block SnrCmod, bit for
/// bit.
class VXKIT_API SpatialNoiseRemover
{
public:
    /// @param gain  as in setGain(); one out of range leaves 0
    explicit SpatialNoiseRemover(int gain);
    SpatialNoiseRemover(const SpatialNoiseRemover&) = default;
    SpatialNoiseRemover& operator=(const SpatialNoiseRemover&) = default;
    virtual ~SpatialNoiseRemover();

    /// @param dst  created at the size of src; should not be src, which costs a copy. Results beyond 16
    ///             bits wrap
    void process(const cv::Mat_<short>& src, cv::Mat_<short>& dst);

    /// @param value  0 to 31: 0 changes nothing; the higher, the more activity is smoothed
    /// @return false, and nothing has changed, for a value out of range
    bool setGain(int value);

private:
    int gain_ = 0;
};

}  // namespace halvor::vx
