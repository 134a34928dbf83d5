// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <opencv2/core/types.hpp>

#include "support/scenes/SceneLayers.h"
#include "support/scenes/SceneLayout.h"

namespace vxsupport {

// Smooth layers over the whole scene; arguments as in SceneLayout.
std::unique_ptr<SceneLayer> makeFieldLayer(const SceneArea& area, double spacing,
                                           const std::function<double(cv::Point2d)>& field);
std::unique_ptr<SceneLayer> makeTextureLayer(const SceneArea& area, std::uint64_t seed, double period,
                                             double deviation);

}  // namespace vxsupport
