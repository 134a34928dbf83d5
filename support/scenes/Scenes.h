// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/types.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/scenes/SceneLayout.h"

namespace vxsupport {

/// What the simulated camera looks at. Temperatures in degrees Celsius; a larger frame sees more of the same
/// world, not the same picture enlarged (the target is the exception: it always fills the frame).
enum class SceneKind
{
    facade,   ///< house front on a cold evening: brick, windows with bars, railings, sills above radiators
    board,    ///< powered circuit board: hot parts, rows of pins, thin traces
    outdoor,  ///< meadow, trees and sky with a person and a wire fence; mostly soft
    target,   ///< laboratory chart: slanted edge, star, bars
};

const std::vector<SceneKind>& allSceneKinds();
std::string_view nameOf(SceneKind kind);
std::optional<SceneKind> sceneKindFrom(std::string_view name);

struct SceneSettings
{
    SceneKind kind = SceneKind::facade;
    cv::Size frame{160, 120};  ///< pixels of the small frame
    std::uint64_t seed = 1;    ///< arranges what is random about the scene
    double zoom = 1.0;         ///< above 1, things look larger and less of them is seen
};

/// Renders a scene; the same settings give the same bits on every machine and with any number of threads, and
/// a larger margin only adds to the outside.
FineScene makeScene(const SceneSettings& settings, int margin);

}  // namespace vxsupport
