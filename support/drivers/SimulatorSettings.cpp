// SPDX-License-Identifier: Apache-2.0
#include "support/drivers/SimulatorSettings.h"

#include <algorithm>
#include <string>

#include "support/drivers/SettingError.h"

namespace vxsupport {

namespace {

HandMotion motionOf(const SimulatorSettings& settings)
{
    HandMotion motion;
    motion.deviationX *= settings.shake;
    motion.deviationY *= settings.shake;
    motion.drift = settings.drift;
    return motion;
}

}  // namespace

BurstSettings burstSettingsOf(const SimulatorSettings& settings)
{
    BurstSettings burst;
    burst.scene = settings.scene;
    burst.frameCount = settings.frames == 0 ? burst.frameCount : settings.frames;
    // Of five frames the engine takes the second as its reference.
    burst.reference = settings.reference.value_or(std::min(1, burst.frameCount - 1));
    if (burst.reference < 0 || burst.reference >= burst.frameCount)
        throw SettingError("reference " + std::to_string(burst.reference) +
                           ": expected one of the frames 0 to " + std::to_string(burst.frameCount - 1));
    burst.seed = settings.seed;
    burst.motion = motionOf(settings);
    burst.turn = settings.turn;
    burst.parallax = settings.parallax;
    burst.subject = settings.subjectSpeed.has_value();
    burst.subjectSpeed = settings.subjectSpeed.value_or(burst.subjectSpeed);
    burst.psfSigma = settings.psfSigma;
    burst.netd = settings.netd;
    burst.columnOffset = settings.columnOffset;
    burst.pixelOffset = settings.pixelOffset;
    burst.defects = settings.defects;
    return burst;
}

StreamSettings streamSettingsOf(const SimulatorSettings& settings)
{
    StreamSettings stream;
    stream.scene = settings.scene;
    stream.frameCount = settings.frames == 0 ? stream.frameCount : settings.frames;
    stream.seed = settings.seed;
    stream.psfSigma = settings.psfSigma;
    stream.netd = settings.netd;
    stream.columnOffset = settings.columnOffset;
    stream.rowOffset = settings.columnOffset / 2.0;
    stream.pixelOffset = settings.pixelOffset;
    stream.defects = settings.defects;
    stream.motion = motionOf(settings);
    stream.subjectSpeed = settings.subjectSpeed.value_or(stream.subjectSpeed);
    return stream;
}

}  // namespace vxsupport
