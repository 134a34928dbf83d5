#include "PlainChain.h"

#include <cstddef>

namespace plain {

Chain::Chain(int cols, int rows, const halvor::vx::CamInternalSettings& s)
    : temporalImage(static_cast<std::size_t>(cols) * rows),
      patternImage(temporalImage.size()),
      spatialImage(temporalImage.size()),
      equalisedImage(temporalImage.size()),
      binData(70000),
      result(temporalImage.size()),
      temporalSettings_{s.tnrCGain, s.tnrGlobal, s.tnrAlpha, false},
      patternSettings_{s.sprThreshold, s.sprMaxLine, s.sprMaxFrame},
      spatialGain_(s.snrGain),
      temporal_(cols, rows, temporalSettings_, s.tnrBypass == 0 ? 1 : 0),
      pattern_(cols, rows, patternSettings_, 1, s.sprBypass == 0 ? 1 : 0),
      spatial_(cols, rows, spatialGain_, s.snrBypass == 0 ? 1 : 0),
      histogram_(cols, rows),
      peaking_(cols, rows)
{
    histogram_.param.mode = s.histMode;
    histogram_.param.width = s.histWidth;
    histogram_.param.gain = s.histGain;
    histogram_.param.gainlow = s.histGainLow;
    histogram_.param.gainhigh = s.histGainHigh;
    histogram_.param.limit = s.histLimit;
    histogram_.param.hw = 1;
    peaking_.param.enabled = s.peakEnabled;
    peaking_.param.coring = s.peakCoring;
    peaking_.param.gain = s.peakGain;
    peaking_.param.limit = s.peakLimit;
    peaking_.param.reductThres = s.peakReductThres;
    peaking_.param.reductGain = s.peakReductGain;
}

void Chain::process(const int* in)
{
    temporal_.process(in, temporalImage.data());
    pattern_.process(temporalImage.data(), patternImage.data());
    spatial_.process(patternImage.data(), spatialImage.data());
    histogram_.MeasureFrame(frame_, spatialImage.data(), binData.data());
    histogram_.ProcessFrame(spatialImage.data(), equalisedImage.data());
    const double* localGain = histogram_.param.mode != 0 ? histogram_.localGain.data() : nullptr;
    peaking_.ProcessFrame(equalisedImage.data(), result.data(), localGain);
    histogram_.Update(frame_);
    frame_ = 1;
}

}  // namespace plain
