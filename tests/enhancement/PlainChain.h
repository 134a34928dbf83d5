#pragma once

#include <vector>

#include "PlainHistogram.h"
#include "PlainPattern.h"
#include "PlainPeaking.h"
#include "PlainSpatial.h"
#include "PlainTemporal.h"
#include "enhancement/CamInternalSettings.h"

namespace plain {

/// The whole chain pixel by pixel, as the double for the enhancer.
class Chain
{
public:
    Chain(int cols, int rows, const halvor::vx::CamInternalSettings& settings);
    Chain(const Chain&) = delete;
    Chain& operator=(const Chain&) = delete;

    void process(const int* in);

    Histogram& histogram() { return histogram_; }
    Peaking& peaking() { return peaking_; }

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
