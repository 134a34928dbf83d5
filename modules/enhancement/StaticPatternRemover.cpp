// SPDX-License-Identifier: Apache-2.0
#include "enhancement/StaticPatternRemover.h"

#include <cstddef>

#include "enhancement/arithmetic/CheckedSetting.h"
#include "enhancement/arithmetic/PatternArithmetic.h"

namespace halvor::vx {

StaticPatternRemover::StaticPatternRemover(int initialThreshold, int initialLineLimit, int initialFrameLimit)
{
    setThreshold(initialThreshold);
    setLineLimit(initialLineLimit);
    setFrameLimit(initialFrameLimit);
}

StaticPatternRemover::StaticPatternRemover(const StaticPatternRemover& other) : StaticPatternRemover(0, 0, 0)
{
    *this = other;
}

StaticPatternRemover& StaticPatternRemover::operator=(const StaticPatternRemover& other)
{
    if (this == &other)
        return *this;
    removal_.reset();  // so that a failed allocation leaves a filter that starts anew
    mLine_ = other.mLine_;
    mFrame_ = other.mFrame_;
    frameSize_ = other.frameSize_;
    threshold_ = other.threshold_;
    th07_ = other.th07_;
    lineLimit_ = other.lineLimit_;
    frameLimit_ = other.frameLimit_;
    removal_ = other.removal_ ? std::make_unique<pattern::PatternRemoval>(frameSize_.width) : nullptr;
    return *this;
}

StaticPatternRemover::~StaticPatternRemover() = default;

void StaticPatternRemover::process(const cv::Mat_<short>& src, cv::Mat_<short>& dst)
{
    validateInput(src.size());
    dst.create(src.size());
    const pattern::Corrections corrections{mLine_.data(), mFrame_.data(), mLine_.size()};
    // A line value is stored before the next column's window looks.
    const pattern::Scan scan{1, false};
    removal_->filterFrame(viewOf(src, dst), corrections, {threshold_, th07_, lineLimit_, frameLimit_}, scan);
}

bool StaticPatternRemover::setThreshold(int value)
{
    if (!setChecked(threshold_, value, 100))
        return false;
    // In single precision, unlike the block: 90 gives 63.
    th07_ = static_cast<int>(static_cast<float>(value) * 0.7F);
    return true;
}

bool StaticPatternRemover::setLineLimit(int value)
{
    return setChecked(lineLimit_, value, 31);
}

bool StaticPatternRemover::setFrameLimit(int value)
{
    return setChecked(frameLimit_, value, 31);
}

void StaticPatternRemover::validateInput(const cv::Size_<int>& size)
{
    if (size != frameSize_ || !removal_)
        init(size);
}

void StaticPatternRemover::init(const cv::Size_<int>& size)
{
    removal_.reset();
    mLine_.assign(static_cast<std::size_t>(size.width), 0);
    mFrame_.assign(mLine_.size() * static_cast<std::size_t>(size.height), 0);
    frameSize_ = size;
    removal_ = std::make_unique<pattern::PatternRemoval>(size.width);
}

}  // namespace halvor::vx
