// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "doubles/PlainPattern.h"
#include "doubles/PlainPeaking.h"
#include "doubles/PlainSpatial.h"
#include "doubles/PlainTemporal.h"
#include "enhancement/CamInternalSettings.h"
#include "enhancement/histogram.h"

namespace plain {

/// The chain of the plain forms, as the double for the enhancer; the equaliser maps pixel by pixel.
class Chain
{
public:
    Chain(int cols, int rows, const halvor::vx::CamInternalSettings& s)
        : temporalImage(static_cast<std::size_t>(cols) * rows),
          patternImage(temporalImage.size()),
          spatialImage(temporalImage.size()),
          equalisedImage(temporalImage.size()),
          binData(static_cast<std::size_t>(Histogram(cols, rows).BinDataRoom())),
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
    Chain(const Chain&) = delete;
    Chain& operator=(const Chain&) = delete;

    void process(const int* in)
    {
        temporal_.process(in, temporalImage.data());
        pattern_.process(temporalImage.data(), patternImage.data());
        spatial_.process(patternImage.data(), spatialImage.data());
        histogram_.MeasureFrame(frame_, spatialImage.data(), binData.data());
        std::transform(spatialImage.begin(), spatialImage.end(), equalisedImage.begin(),
                       [this](int pixel) { return histogram_.ProcessPixel(pixel); });
        const double* localGain = histogram_.param.mode != 0 ? histogram_.getLocalGain() : nullptr;
        peaking_.ProcessFrame(equalisedImage.data(), result.data(), localGain);
        histogram_.Update(frame_);
        frame_ = 1;
    }

    std::vector<int> temporalImage, patternImage, spatialImage, equalisedImage, binData, result;

private:
    Temporal::Settings temporalSettings_;
    Pattern::Settings patternSettings_;
    int spatialGain_;
    Temporal temporal_;
    Pattern pattern_;
    Spatial spatial_;
    Histogram histogram_;
    Peaking peaking_;
    int frame_ = 0;
};

}  // namespace plain
