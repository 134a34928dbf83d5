#include "support/Burst.h"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>

#include "support/Random.h"
#include "support/Sensor.h"
#include "support/SensorNoise.h"

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

void require(bool fulfilled, const char* text)
{
    if (!fulfilled)
        throw std::invalid_argument(text);
}

bool isDeviation(double value)
{
    return value >= 0.0 && std::isfinite(value);
}

void check(const BurstSettings& s)
{
    require(s.frameCount >= 1, "burst: frameCount must be at least 1");
    require(s.reference >= 0 && s.reference < s.frameCount, "burst: reference must be one of the frames");
    require(s.shifts.empty() || static_cast<int>(s.shifts.size()) == s.frameCount,
            "burst: shifts must be empty or one for each frame");
    require(isDeviation(s.netd), "burst: netd must be 0 or more");
    require(isDeviation(s.columnOffset), "burst: columnOffset must be 0 or more");
    require(isDeviation(s.pixelOffset), "burst: pixelOffset must be 0 or more");
    require(s.defects.count >= 0, "burst: defects.count must be 0 or more");
}

std::vector<PointF> relativeShifts(const BurstSettings& settings, const Random& random)
{
    std::vector<PointF> shifts =
        settings.shifts.empty() ? drawMotion(settings.motion, settings.frameCount, random) : settings.shifts;
    const PointF origin = shifts[static_cast<std::size_t>(settings.reference)];
    for (PointF& shift : shifts)
        shift = {shift.x - origin.x, shift.y - origin.y};
    return shifts;
}

double largestOf(const std::vector<PointF>& shifts)
{
    float largest = 0.0F;
    for (const PointF& shift : shifts)
        largest = std::max({largest, std::fabs(shift.x), std::fabs(shift.y)});
    return static_cast<double>(largest);
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
        makeScene(settings.scene, requiredMargin(largestOf(burst.shifts), settings.psfSigma));
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
