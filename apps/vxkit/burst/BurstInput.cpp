// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/burst/BurstInput.h"

#include <algorithm>
#include <opencv2/core.hpp>

#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/terminal/Failure.h"
#include "support/drivers/EngineLimits.h"

namespace vxapp {

int checkedWindow(const Recording& recording, const SuperresSettings& settings, const std::string& name)
{
    const int window = settings.windowSize();
    constexpr int largestWindow = vxsupport::EngineLimits::largestWindow;
    const int smallest = settings.motion == BurstMotion::single ? 1 : vxsupport::EngineLimits::smallestWindow;
    if (window < smallest || window > largestWindow)
        throw UsageError("--window " + std::to_string(window) + ": expected " + std::to_string(smallest) +
                         " to " + std::to_string(largestWindow) + " frames");
    if (recording.frameCount() < window)
        throw UsageError(name + ": " + std::to_string(recording.frameCount()) +
                         (recording.frameCount() == 1 ? " frame" : " frames") +
                         " in all; expected at least " + std::to_string(window));
    return window;
}

Calibration calibrationFor(const SuperresSettings& settings, std::optional<double> scale,
                           std::optional<double> offset, Recording& recording)
{
    if (settings.radiance)
        return Calibration::byEngine();
    if (!vxsupport::isFixedPoint(settings.kind()))
        return {scale, offset, recording.holdsFloats()};
    if (recording.holdsFloats())
        throw UsageError(recording.nameOf(0) + ": holds floats; expected 16-bit counts for --engine " +
                         std::string(vxsupport::nameOf(settings.kind())));
    double largest = 0.0;
    for (int i = 0; i < recording.frameCount(); ++i)
        largest = std::max(largest, cv::norm(recording.values(i), cv::NORM_INF));
    return Calibration::signedCounts(scale, offset, largest);
}

}  // namespace vxapp
