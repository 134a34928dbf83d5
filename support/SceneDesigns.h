#pragma once

#include <opencv2/core/types.hpp>

#include "support/SceneLayout.h"
#include "support/Scenes.h"

namespace vxsupport {

/// What is to be painted, and over which temperature.
struct SceneDesign
{
    SceneLayout layout;
    double background = 20.0;
};

// Each arranges one kind of scene. `area` is the part of the plane that will be rendered, in pixels of the
// small frame; what is inside must not depend on it.
SceneDesign designFacade(const SceneSettings& settings, const cv::Rect2d& area);
SceneDesign designBoard(const SceneSettings& settings, const cv::Rect2d& area);
SceneDesign designOutdoor(const SceneSettings& settings, const cv::Rect2d& area);
SceneDesign designTarget(const SceneSettings& settings, const cv::Rect2d& area);

}  // namespace vxsupport
