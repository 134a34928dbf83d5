// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

#include "support/Burst.h"
#include "support/Stream.h"

// The simulator as people use it: a few settings for bursts and recordings alike, and their limits.
namespace vxsupport {

/// A frame of a longer side takes some gigabytes while its scene is painted.
inline constexpr int smallestSimulatedSide = 8;
inline constexpr int largestSimulatedSide = 2048;
inline constexpr int mostSimulatedFrames = 100000;
inline constexpr int mostSimulatedDefects = 1 << 22;

struct SimulatorSettings
{
    SceneSettings scene;
    int frames = 0;                ///< 0: what the kind of recording asks for
    std::optional<int> reference;  ///< of a burst; empty: the engine's own choice of five frames
    std::uint64_t seed = 1;
    double netd = 0.05;
    double psfSigma = 0.683;
    double shake = 1.0;
    double drift = 0.0;
    double turn = 0.0;      ///< of a burst
    double parallax = 0.0;  ///< of a burst
    std::optional<double> subjectSpeed;
    double columnOffset = 0.0;
    double pixelOffset = 0.0;
    DefectSettings defects;
};

/// @throws SettingError  if the reference is none of the frames
BurstSettings burstSettingsOf(const SimulatorSettings& settings);

/// Rows have offsets of half the columns' deviation.
StreamSettings streamSettingsOf(const SimulatorSettings& settings);

}  // namespace vxsupport
