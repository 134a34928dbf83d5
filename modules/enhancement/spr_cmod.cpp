#include "enhancement/spr_cmod.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "enhancement/ChainSample.h"
#include "enhancement/PatternArithmetic.h"

using namespace halvor::vx;

SprCmod::SprCmod(int frameCols, int frameRows, int& thresholdSetting, int& lineSetting, int& frameSetting,
                 int lineDelay, int mode)
    : line(static_cast<std::size_t>(frameCols)),
      frame(static_cast<std::size_t>(frameCols) * static_cast<std::size_t>(frameRows)),
      threshold(thresholdSetting),
      lineLimit(lineSetting),
      frameLimit(frameSetting),
      cols(frameCols),
      rows(frameRows),
      delay(lineDelay),
      bypass(mode),
      removal_(std::make_unique<pattern::PatternRemoval>(frameCols))
{
    if (delay < 0 || delay > 2) {
        std::fputs("ERROR: illegal delay value\n", stdout);
        std::fflush(stdout);
        std::abort();
    }
}

SprCmod::~SprCmod() = default;

void SprCmod::ProcessFrame(const int* in, int* out)
{
    th07 = Th07();
    if (bypass == copyAll) {
        if (in != out)
            std::copy_n(in, frame.size(), out);
        return;
    }

    const FrameView<int> image = viewOf(in, out, cols, rows);
    const pattern::Corrections corrections{line.data(), frame.data(), image.inStride};
    const pattern::Settings settings{threshold, th07, lineLimit, frameLimit};
    // Each pipeline register keeps a new line value from one more column; the pixel's own is never in time.
    const pattern::Scan scan{delay == 1 ? 2 : 3, firstFrame != 0};
    if (bypass == filterAll)
        removal_->run(image, corrections, settings, scan);
    else
        removal_->runMarked(image, corrections, settings, scan);
    if (rows > 0)
        firstFrame = 0;
}

int SprCmod::Th07() const
{
    return static_cast<int>(static_cast<double>(threshold) * 0.7);
}
