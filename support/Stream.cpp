// SPDX-License-Identifier: Apache-2.0
#include "support/Stream.h"

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

// Purposes of the generators split off a recording's seed.
enum Purpose : std::uint64_t
{
    motionNumbers,
    firstPatternNumbers,
    secondPatternNumbers,
    defectNumbers,
    firstFrameNumbers,
};

void check(const StreamSettings& s)
{
    requireSetting(s.frameCount >= 1, "stream: frameCount must be at least 1");
    requireSetting(isPsfSigma(s.psfSigma), "stream: psfSigma must be above 0 and at most 4");
    requireSetting(isDeviation(s.netd), "stream: netd must be 0 or more");
    requireSetting(isDeviation(s.columnOffset), "stream: columnOffset must be 0 or more");
    requireSetting(isDeviation(s.rowOffset), "stream: rowOffset must be 0 or more");
    requireSetting(isDeviation(s.pixelOffset), "stream: pixelOffset must be 0 or more");
    requireSetting(isDeviation(s.patternPeriod), "stream: patternPeriod must be 0 or more");
    requireSetting(std::isfinite(s.levelDrift), "stream: levelDrift must be finite");
    requireSetting(std::isfinite(s.subjectSpeed), "stream: subjectSpeed must be finite");
    requireSetting(s.defects.count >= 0, "stream: defects.count must be 0 or more");
}

cv::Mat_<float> drawPattern(const StreamSettings& settings, const Random& random)
{
    const cv::Size size = settings.scene.frame;
    cv::Mat_<float> pattern = columnPattern(size, settings.columnOffset, random.split(0));
    pattern += rowPattern(size, settings.rowOffset, random.split(1));
    addNoise(pattern, settings.pixelOffset, random.split(2));
    return pattern;
}

// The part of a scene around some pixels of the undisplaced frame, with a margin as wide as the whole has.
FineScene cutOut(const FineScene& scene, const cv::Rect& pixels)
{
    constexpr int cells = FineScene::cellsPerPixel;
    const cv::Rect area(pixels.x * cells, pixels.y * cells, (pixels.width + 2 * scene.margin) * cells,
                        (pixels.height + 2 * scene.margin) * cells);
    return {scene.cells(area).clone(), scene.margin};
}

}  // namespace

StreamSimulator::StreamSimulator(const StreamSettings& settings) : settings_(settings)
{
    check(settings);
    const Random random(settings.seed);
    shifts_ = drawMotion(settings.motion, settings.frameCount, random.split(motionNumbers));
    makeRelative(shifts_, 0);
    scene_ = makeScene(settings.scene, requiredMargin(largestShift(shifts_), settings.psfSigma));
    background_ = sampleFrame(scene_, settings.scene.frame, {0.0F, 0.0F}, settings.psfSigma);
    cv::minMaxLoc(background_, &low_, &high_);
    firstPattern_ = drawPattern(settings, random.split(firstPatternNumbers));
    if (settings.patternPeriod > 0.0)
        secondPattern_ = drawPattern(settings, random.split(secondPatternNumbers));
    defects_ = drawDefects(settings.scene.frame, settings.defects.count, random.split(defectNumbers));
}

cv::Mat_<float> StreamSimulator::ideal(int index) const
{
    const PointF moved = shift(index);
    cv::Mat_<float> image = moved.x == 0.0F && moved.y == 0.0F
                                ? background_.clone()
                                : sampleFrame(scene_, settings_.scene.frame, moved, settings_.psfSigma);
    const cv::Rect touched = subjectArea(index);
    if (!touched.empty()) {
        FineScene part = cutOut(scene_, touched);
        subjectLayout(index, {touched.size(), part.margin}, touched.tl()).paintOver(part);
        sampleFrame(part, touched.size(), moved, settings_.psfSigma).copyTo(image(touched));
    }
    return image;
}

cv::Mat_<float> StreamSimulator::frame(int index) const
{
    cv::Mat_<float> image = ideal(index);
    image += pattern(index);
    image += settings_.levelDrift * index;
    const auto purpose = firstFrameNumbers + static_cast<std::uint64_t>(index);
    addNoise(image, settings_.netd, Random(settings_.seed).split(purpose));
    applyDefects(image, defects_, settings_.defects.style, low_, high_);
    return image;
}

cv::Mat_<float> StreamSimulator::pattern(int index) const
{
    if (secondPattern_.empty())
        return firstPattern_.clone();
    // The deviation stays the same all the time.
    const double turns = index / settings_.patternPeriod;
    cv::Mat_<float> mixed;
    cv::addWeighted(firstPattern_, cosineOfTurns(turns), secondPattern_, sineOfTurns(turns), 0.0, mixed);
    return mixed;
}

PointF StreamSimulator::shift(int index) const
{
    return shifts_.at(static_cast<std::size_t>(index));
}

cv::Rect StreamSimulator::subjectArea(int index) const
{
    const PointF moved = shift(index);
    if (!settings_.subject)
        return {};
    const cv::Size size = settings_.scene.frame;
    const cv::Rect2d body = subjectLayout(index, {size, 0}, {0, 0}).bounds();
    const int reach = requiredMargin(0.0, settings_.psfSigma);
    const cv::Point first(static_cast<int>(std::floor(body.x + static_cast<double>(moved.x))) - reach,
                          static_cast<int>(std::floor(body.y + static_cast<double>(moved.y))) - reach);
    const cv::Point last(static_cast<int>(std::ceil(body.br().x + static_cast<double>(moved.x))) + reach,
                         static_cast<int>(std::ceil(body.br().y + static_cast<double>(moved.y))) + reach);
    return cv::Rect(first, last) & cv::Rect({0, 0}, size);
}

SceneLayout StreamSimulator::subjectLayout(int index, const SceneArea& area, cv::Point2d origin) const
{
    SceneLayout layout(area);
    const double travelled = 0.35 * subjectPath(settings_.scene) + settings_.subjectSpeed * index;
    addPassingSubject(layout, settings_.scene, origin, travelled, settings_.subjectSpeed < 0.0);
    return layout;
}

}  // namespace vxsupport
