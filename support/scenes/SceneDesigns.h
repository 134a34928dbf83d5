// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/types.hpp>

#include "support/scenes/SceneLayout.h"
#include "support/scenes/Scenes.h"

namespace vxsupport {

/// What is to be painted, and over which temperature.
struct SceneDesign
{
    SceneLayout layout;
    double background = 20.0;
};

// Each arranges one kind of scene. What is seen inside the frame must not depend on the area's margin.
SceneDesign designFacade(const SceneSettings& settings, const SceneArea& area);
SceneDesign designBoard(const SceneSettings& settings, const SceneArea& area);
SceneDesign designOutdoor(const SceneSettings& settings, const SceneArea& area);
SceneDesign designTarget(const SceneSettings& settings, const SceneArea& area);

}  // namespace vxsupport
