// SPDX-License-Identifier: Apache-2.0
#include "support/Burst.h"

#include <opencv2/core.hpp>

#include "support/Random.h"
#include "support/Sensor.h"
#include "support/SensorNoise.h"
#include "support/Settings.h"

namespace vxsupport {

namespace {

// Purposes of the generators split off a burst's seed.
enum Purpose : std::uint64_t
{
    motionNumbers,
    columnNumbers,
    pixelNumbers,
    defectNumbers,
    firstFrameNumbers,
};

void check(const BurstSettings& s)
{
    requireSetting(s.frameCount >= 1, "burst: frameCount must be at least 1");
    requireSetting(s.reference >= 0 && s.reference < s.frameCount,
                   "burst: reference must be one of the frames");
    requireSetting(s.shifts.empty() || static_cast<int>(s.shifts.size()) == s.frameCount,
                   "burst: shifts must be empty or one for each frame");
    requireSetting(isPsfSigma(s.psfSigma), "burst: psfSigma must be above 0 and at most 4");
    requireSetting(isDeviation(s.netd), "burst: netd must be 0 or more");
    requireSetting(isDeviation(s.columnOffset), "burst: columnOffset must be 0 or more");
    requireSetting(isDeviation(s.pixelOffset), "burst: pixelOffset must be 0 or more");
    requireSetting(s.defects.count >= 0, "burst: defects.count must be 0 or more");
}

std::vector<PointF> relativeShifts(const BurstSettings& settings, const Random& random)
{
    std::vector<PointF> shifts =
        settings.shifts.empty() ? drawMotion(settings.motion, settings.frameCount, random) : settings.shifts;
    makeRelative(shifts, settings.reference);
    return shifts;
}

}  // namespace

Burst simulateBurst(const BurstSettings& settings)
{
    check(settings);
    const cv::Size size = settings.scene.frame;
    const Random random(settings.seed);

    Burst burst;
    burst.shifts = relativeShifts(settings, random.split(motionNumbers));
    const FineScene scene =
        makeScene(settings.scene, requiredMargin(largestShift(burst.shifts), settings.psfSigma));
    burst.truth = sampleTruth(scene, size);
    burst.defects = drawDefects(size, settings.defects.count, random.split(defectNumbers));

    cv::Mat_<float> pattern = columnPattern(size, settings.columnOffset, random.split(columnNumbers));
    addNoise(pattern, settings.pixelOffset, random.split(pixelNumbers));
    double low = 0.0;
    double high = 0.0;
    cv::minMaxLoc(burst.truth, &low, &high);

    for (std::size_t i = 0; i < burst.shifts.size(); ++i) {
        cv::Mat_<float> frame = sampleFrame(scene, size, burst.shifts[i], settings.psfSigma);
        frame += pattern;
        addNoise(frame, settings.netd, random.split(firstFrameNumbers + i));
        applyDefects(frame, burst.defects, settings.defects.style, low, high);
        burst.frames.push_back(frame);
    }
    return burst;
}

}  // namespace vxsupport
