#include "enhancement/EnhancerStages.h"

namespace halvor::vx {

void runStages(int frame, const EnhancerStages& s)
{
    s.temporal.ProcessFrame(s.input.row(0), s.afterTemporal.row(0));
    s.pattern.ProcessFrame(s.afterTemporal.row(0), s.afterPattern.row(0));
    s.spatial.ProcessFrame(s.afterPattern.row(0), s.afterSpatial.row(0));
    s.histogram.param.hw = 1;
    s.histogram.MeasureFrame(frame, s.afterSpatial, s.binData);
    s.histogram.ProcessFrame(frame, s.afterSpatial, s.afterHistogram);
    double* localGain = s.histogram.param.mode != 0 ? s.histogram.getLocalGain() : nullptr;
    s.peaking.ProcessFrame(s.afterHistogram, s.output, localGain);
    s.histogram.Update(frame);
}

}  // namespace halvor::vx
