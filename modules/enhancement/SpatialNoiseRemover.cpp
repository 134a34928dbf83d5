#include "enhancement/SpatialNoiseRemover.h"

#include "enhancement/CheckedSetting.h"
#include "enhancement/SpatialArithmetic.h"

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
    spatial::filterFrame(viewOf(input, dst), gain);
}

bool SpatialNoiseRemover::setGain(int value)
{
    return setChecked(gain, value, 31);
}

}  // namespace halvor::vx
