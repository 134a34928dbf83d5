// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/Enhancement.h"

#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/Verbosity.h"

namespace vxapp {

namespace {

Recording& requireColumns(Recording& recording)
{
    if (recording.frameSize().width < 2)
        throw UsageError(recording.nameOf(0) + ": the chain needs frames of at least two columns");
    return recording;
}

}  // namespace

Enhancement::Enhancement(Recording& recording, const EnhancementOptions& options)
    : options_(options.chain),
      reach_(options.reach),
      size_(requireColumns(recording).frameSize()),
      scale_(recording, options.scale),
      settings_(chainSettings(options_, size_, 0.0)),
      tone_(toneSettings(options_))
{}

void Enhancement::settle(const Survey& found)
{
    if (const int bad = found.badPixels.marks.empty() ? 0 : found.badPixels.bad(); bad > size_.area() / 2)
        warn("the map of bad pixels marks " + std::to_string(bad) + " of " + std::to_string(size_.area()) +
             " pixels; expected 0 for the good ones");
    mender_ = BadPixelMender(found.badPixels);
    settings_ = chainSettings(options_, size_, found.noise);
    stage_.reset();
    chain_.reset();
    isMeasuring_ = false;
    shown_ = 0;
}

void Enhancement::measure(const cv::Mat_<short>& samples)
{
    if (!isMeasuring_) {
        stage_.emplace(*tone_, reach_);
        chain_.emplace(openChain(settings_, size_));
        isMeasuring_ = true;
    }
    process(samples);
    stage_->measure(*chain_);
}

void Enhancement::enhance(const cv::Mat_<short>& samples)
{
    if (isMeasuring_ || !chain_) {
        chain_.emplace(openChain(settings_, size_));
        isMeasuring_ = false;
    }
    process(samples);
    if (stage_)
        stage_->apply(shown_++, *chain_, enhanced_);
}

void Enhancement::process(const cv::Mat_<short>& samples)
{
    if (mender_.mendsNothing()) {
        chain_->processFrame(samples, enhanced_);
        return;
    }
    samples.copyTo(mended_);
    mender_.mend(mended_);
    chain_->processFrame(mended_, enhanced_);
}

}  // namespace vxapp
