// SPDX-License-Identifier: Apache-2.0
#include "enhancement/spr_cmod.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "enhancement/arithmetic/ChainSample.h"
#include "enhancement/arithmetic/PatternArithmetic.h"

using namespace halvor::vx;

SprCmod::SprCmod(int frameCols, int frameRows, int& thresholdSetting, int& lineSetting, int& frameSetting,
                 int lineDelay, int mode)
    : line_(static_cast<std::size_t>(frameCols)),
      frame_(static_cast<std::size_t>(frameCols) * static_cast<std::size_t>(frameRows)),
      threshold_(thresholdSetting),
      lineLimit_(lineSetting),
      frameLimit_(frameSetting),
      cols_(frameCols),
      rows_(frameRows),
      delay_(lineDelay),
      bypass_(mode),
      removal_(std::make_unique<pattern::PatternRemoval>(frameCols))
{
    if (delay_ < 0 || delay_ > 2) {
        std::fputs("ERROR: illegal delay value\n", stdout);
        std::fflush(stdout);
        std::abort();
    }
}

SprCmod::~SprCmod() = default;

void SprCmod::ProcessFrame(const int* in, int* out)
{
    th07_ = Th07();
    if (bypass_ == copyAll) {
        if (in != out)
            std::copy_n(in, frame_.size(), out);
        return;
    }

    const FrameView<int> image = viewOf(in, out, cols_, rows_);
    const pattern::Corrections corrections{line_.data(), frame_.data(), image.inStride};
    const pattern::Settings settings{threshold_, th07_, lineLimit_, frameLimit_};
    // Each pipeline register keeps a new line value from one more column; the pixel's own is never in time.
    const pattern::Scan scan{delay_ == 1 ? 2 : 3, firstFrame_ != 0};
    if (bypass_ == filterAll)
        removal_->filterFrame(image, corrections, settings, scan);
    else
        removal_->filterMarkedFrame(image, corrections, settings, scan);
    if (rows_ > 0)
        firstFrame_ = 0;
}

int SprCmod::Th07() const
{
    return static_cast<int>(static_cast<double>(threshold_) * 0.7);
}
