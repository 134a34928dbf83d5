#pragma once

#include "core/base/Export.h"
#include "enhancement/Matrix.h"
#include "enhancement/histogram.h"
#include "enhancement/peaking.h"
#include "enhancement/snr_cmod.h"
#include "enhancement/spr_cmod.h"
#include "enhancement/tnr_cmod.h"

namespace halvor::vx {

/// The blocks of the enhancer chain and the image between each pair of them; somebody else owns them.
struct EnhancerStages
{
    TnrCmod& temporal;
    SprCmod& pattern;
    SnrCmod& spatial;
    Histogram& histogram;
    Peaking& peaking;
    ChainMatrix& input;
    ChainMatrix& afterTemporal;
    ChainMatrix& afterPattern;
    ChainMatrix& afterSpatial;
    ChainMatrix& afterHistogram;
    ChainMatrix& binData;  ///< with Histogram::BinDataRoom() words
    ChainMatrix& output;
};

/// Pushes one frame through the chain: temporal noise, static pattern, spatial noise, equalisation by the
/// gain table of the frame before, peaking, and the gain table for the next frame. The histogram is always
/// measured by the hardware model.
///
/// @param frame  0 sets the gain table, any other number filters it
VXKIT_API void runStages(int frame, const EnhancerStages& stages);

}  // namespace halvor::vx
