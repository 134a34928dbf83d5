// SPDX-License-Identifier: Apache-2.0
#include "enhancement/SpatialNoiseRemover.h"

#include "enhancement/arithmetic/CheckedSetting.h"
#include "enhancement/arithmetic/SpatialArithmetic.h"

namespace halvor::vx {

SpatialNoiseRemover::SpatialNoiseRemover(int initialGain)
{
    setGain(initialGain);
}

SpatialNoiseRemover::~SpatialNoiseRemover() = default;

void SpatialNoiseRemover::process(const cv::Mat_<short>& src, cv::Mat_<short>& dst)
{
    const cv::Mat_<short> input = dst.data == src.data ? src.clone() : src;
    dst.create(input.size());
    spatial::filterFrame(viewOf(input, dst), gain_);
}

bool SpatialNoiseRemover::setGain(int value)
{
    return setChecked(gain_, value, 31);
}

}  // namespace halvor::vx
