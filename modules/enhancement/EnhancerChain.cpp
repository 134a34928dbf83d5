// SPDX-License-Identifier: Apache-2.0
#include "enhancement/EnhancerChain.h"

namespace halvor::vx {

namespace {

constexpr int binDataRows = 4;

// The blocks' own argument is 1 for a bypass; a chain never selects their marked-pixel mode.
int blockMode(int bypass)
{
    return bypass == 0 ? 1 : 0;
}

}  // namespace

EnhancerChain::EnhancerChain(int frameCols, int frameRows, const NoiseSettings& noise,
                             const NoiseBypasses& bypasses, int delay)
    : cols(frameCols),
      rows(frameRows),
      input(std::make_shared<ChainMatrix>(rows, cols)),
      afterTemporal(std::make_shared<ChainMatrix>(rows, cols)),
      afterPattern(std::make_shared<ChainMatrix>(rows, cols)),
      afterSpatial(std::make_shared<ChainMatrix>(rows, cols)),
      afterHistogram(std::make_shared<ChainMatrix>(rows, cols)),
      output(std::make_shared<ChainMatrix>(rows, cols)),
      settings(std::make_shared<NoiseSettings>(noise)),
      histogram(std::make_shared<Histogram>(cols, rows)),
      peaking(std::make_shared<Peaking>(cols, rows))
{
    buildTemporal(bypasses.temporal);
    buildPattern(bypasses.pattern, delay);
    buildSpatial(bypasses.spatial);
}

void EnhancerChain::buildTemporal(int bypass)
{
    NoiseSettings& s = *settings;
    temporal =
        std::make_shared<TnrCmod>(cols, rows, s.tnrCGain, s.tnrGlobal, s.tnrAlpha, blockMode(bypass), 0);
}

void EnhancerChain::buildPattern(int bypass, int delay)
{
    NoiseSettings& s = *settings;
    pattern = std::make_shared<SprCmod>(cols, rows, s.sprThreshold, s.sprMaxLine, s.sprMaxFrame, delay,
                                        blockMode(bypass));
}

void EnhancerChain::buildSpatial(int bypass)
{
    spatial = std::make_shared<SnrCmod>(cols, rows, settings->snrGain, blockMode(bypass));
}

void EnhancerChain::makeBinData(int binCols)
{
    binData = std::make_shared<ChainMatrix>(binDataRows, binCols, histogram->BinDataRoom());
}

void EnhancerChain::process(int frame)
{
    temporal->ProcessFrame(input->row(0), afterTemporal->row(0));
    pattern->ProcessFrame(afterTemporal->row(0), afterPattern->row(0));
    spatial->ProcessFrame(afterPattern->row(0), afterSpatial->row(0));
    histogram->param.hw = 1;
    histogram->MeasureFrame(frame, *afterSpatial, *binData);
    histogram->ProcessFrame(frame, *afterSpatial, *afterHistogram);
    double* localGain = histogram->param.mode != 0 ? histogram->getLocalGain() : nullptr;
    peaking->ProcessFrame(*afterHistogram, *output, localGain);
    histogram->Update(frame);
}

}  // namespace halvor::vx
