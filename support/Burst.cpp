// SPDX-License-Identifier: Apache-2.0
#include "support/Burst.h"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>

#include "support/PortableMath.h"
#include "support/Random.h"
#include "support/Sensor.h"
#include "support/SensorNoise.h"
#include "support/Settings.h"
#include "support/scenes/Subjects.h"

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
    // Behind the numbers of any frame.
    turnNumbers = std::uint64_t{1} << 32,
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
    requireSetting(isDeviation(s.turn) && s.turn <= 0.2, "burst: turn must be 0 to 0.2");
    requireSetting(s.parallax >= 0.0 && s.parallax <= 10.0, "burst: parallax must be 0 to 10");
    requireSetting(std::isfinite(s.subjectSpeed), "burst: subjectSpeed must be finite");
    requireSetting(s.defects.count >= 0, "burst: defects.count must be 0 or more");
}

std::vector<PointF> relativeShifts(const BurstSettings& settings, const Random& random)
{
    std::vector<PointF> shifts =
        settings.shifts.empty() ? drawMotion(settings.motion, settings.frameCount, random) : settings.shifts;
    makeRelative(shifts, settings.reference);
    return shifts;
}

std::vector<double> drawTurns(const BurstSettings& settings, Random random)
{
    std::vector<double> turns;
    turns.reserve(static_cast<std::size_t>(settings.frameCount));
    for (int i = 0; i < settings.frameCount; ++i)
        turns.push_back(settings.turn * random.normal());
    const double origin = turns.at(static_cast<std::size_t>(settings.reference));
    for (double& turn : turns)
        turn -= origin;
    return turns;
}

// Pixels by which a corner of the frame may move.
double largestMotion(const BurstSettings& settings, const Burst& burst)
{
    double turn = 0.0;
    for (const double angle : burst.turns)
        turn = std::max(turn, std::fabs(angle));
    const cv::Size size = settings.scene.frame;
    return largestShift(burst.shifts) * (1.0 + settings.parallax) +
           turn * 0.5 * std::max(size.width, size.height);
}

// The scene as a frame sees it, with the subject where it is then.
FineScene sceneOf(const BurstSettings& settings, const FineScene& still, int index)
{
    if (!settings.subject)
        return still;
    FineScene scene{still.cells.clone(), still.margin};
    const cv::Size size = settings.scene.frame;
    SceneLayout layout({size, still.margin});
    addPassingSubject(
        layout, settings.scene, {0.0, 0.0},
        0.5 * subjectPath(settings.scene) + settings.subjectSpeed * (index - settings.reference),
        settings.subjectSpeed < 0.0);
    layout.paintOver(scene);
    return scene;
}

cv::Mat_<float> seenBy(const BurstSettings& settings, const FineScene& scene, PointF shift, double turn)
{
    const cv::Size size = settings.scene.frame;
    if (settings.turn == 0.0 && settings.parallax == 0.0)
        return sampleFrame(scene, size, shift, settings.psfSigma);
    return sampleMovedFrame(
        scene, size, [&](int x, int y) { return burstMotion(settings, shift, turn, x, y); },
        settings.psfSigma);
}

}  // namespace

cv::Point2d burstMotion(const BurstSettings& settings, PointF shift, double turn, int x, int y)
{
    const cv::Size size = settings.scene.frame;
    const double right = x - 0.5 * (size.width - 1);
    const double below = y - 0.5 * (size.height - 1);
    const double near = 0.5 - 0.5 * cosineOfTurns((x + 0.5) / size.width);
    const double share = 1.0 + settings.parallax * near;
    return {share * static_cast<double>(shift.x) - turn * below,
            share * static_cast<double>(shift.y) + turn * right};
}

Burst simulateBurst(const BurstSettings& settings)
{
    check(settings);
    const cv::Size size = settings.scene.frame;
    const Random random(settings.seed);

    Burst burst;
    burst.shifts = relativeShifts(settings, random.split(motionNumbers));
    burst.turns = drawTurns(settings, random.split(turnNumbers));
    const FineScene scene =
        makeScene(settings.scene, requiredMargin(largestMotion(settings, burst), settings.psfSigma));
    burst.truth = sampleTruth(sceneOf(settings, scene, settings.reference), size);
    burst.defects = drawDefects(size, settings.defects.count, random.split(defectNumbers));

    cv::Mat_<float> pattern = columnPattern(size, settings.columnOffset, random.split(columnNumbers));
    addNoise(pattern, settings.pixelOffset, random.split(pixelNumbers));
    double low = 0.0;
    double high = 0.0;
    cv::minMaxLoc(burst.truth, &low, &high);

    for (std::size_t i = 0; i < burst.shifts.size(); ++i) {
        cv::Mat_<float> frame =
            seenBy(settings, sceneOf(settings, scene, static_cast<int>(i)), burst.shifts[i], burst.turns[i]);
        frame += pattern;
        addNoise(frame, settings.netd, random.split(firstFrameNumbers + i));
        applyDefects(frame, burst.defects, settings.defects.style, low, high);
        burst.frames.push_back(frame);
    }
    return burst;
}

}  // namespace vxsupport
