// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <opencv2/core/types.hpp>
#include <vector>

#include "support/scenes/SceneLayers.h"
#include "support/scenes/SceneLayout.h"

namespace vxsupport {

// Shapes with sharp or soft edges; arguments as in SceneLayout. Unit axes are expected.
std::unique_ptr<SceneLayer> makeBoxLayer(cv::Point2d centre, cv::Point2d halfSize, cv::Point2d axis,
                                         double cornerRadius, const Paint& paint);
std::unique_ptr<SceneLayer> makeEllipseLayer(cv::Point2d centre, cv::Point2d radii, const Paint& paint);
std::unique_ptr<SceneLayer> makeStrokeLayer(cv::Point2d a, cv::Point2d b, double radiusA, double radiusB,
                                            const Paint& paint);
std::unique_ptr<SceneLayer> makePolygonLayer(std::vector<cv::Point2d> corners, const Paint& paint);

}  // namespace vxsupport
