// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core/types.hpp>

#include "support/scenes/SceneLayout.h"
#include "support/scenes/Scenes.h"

namespace vxsupport {

/// A warmly dressed, walking person seen from the front quarter.
struct Person
{
    cv::Point2d feet;       ///< on the ground between the feet, pixels of the small frame
    double height = 52.0;   ///< pixels
    double stride = 0.0;    ///< -1 to 1: how far the left foot is ahead
    double facing = 1.0;    ///< 1 walks to the right, -1 to the left
    double skin = 31.0;     ///< degrees Celsius
    double clothes = 15.0;  ///< degrees Celsius
};

void addPerson(SceneLayout& layout, const Person& person);

/// A hand that reaches into the picture from below, the fingers spread.
struct Hand
{
    cv::Point2d wrist;     ///< pixels of the small frame
    double length = 50.0;  ///< from the wrist to the tip of the middle finger, pixels
    double skin = 33.0;    ///< degrees Celsius
};

void addHand(SceneLayout& layout, const Hand& hand);

/// What passes through a scene: a person walks through outdoor ones, at a work bench it is a hand.
///
/// @param origin     of the layout in the frame
/// @param travelled  pixels of the small frame; after subjectPath() of them it comes back on the other side
void addPassingSubject(SceneLayout& layout, const SceneSettings& scene, cv::Point2d origin, double travelled,
                       bool isLeftward);
double subjectPath(const SceneSettings& scene);

}  // namespace vxsupport
