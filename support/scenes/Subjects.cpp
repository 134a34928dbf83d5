// SPDX-License-Identifier: Apache-2.0
#include "support/scenes/Subjects.h"

#include <cmath>

#include "support/PortableMath.h"

namespace vxsupport {

namespace {

// Places on the body in parts of the height, x in the walking direction, y upward from the feet.
class Figure
{
public:
    Figure(SceneLayout& layout, const Person& person) : layout_(layout), person_(person) {}

    void limb(cv::Point2d a, cv::Point2d b, double radiusA, double radiusB, double temperature)
    {
        const double h = person_.height;
        layout_.addStroke(at(a), at(b), radiusA * h, radiusB * h,
                          {.temperature = temperature, .softness = 0.012 * h});
    }

    void warmSpot(cv::Point2d centre, cv::Point2d radii, double rise)
    {
        const double h = person_.height;
        layout_.addEllipse(at(centre), radii * h,
                           {.temperature = rise, .softness = 0.035 * h, .relative = true});
    }

private:
    cv::Point2d at(cv::Point2d part) const
    {
        return person_.feet + cv::Point2d(part.x * person_.facing * person_.height, -part.y * person_.height);
    }

    SceneLayout& layout_;
    const Person& person_;
};

void addLeg(Figure& figure, double swing, double temperature, double shoe)
{
    const cv::Point2d hip(0.0, 0.50);
    const cv::Point2d knee(0.12 * swing + 0.01, 0.27);
    const cv::Point2d ankle(0.2 * swing - 0.02, 0.045);
    figure.limb(knee, ankle, 0.036, 0.026, temperature - 0.8);
    figure.limb(hip, knee, 0.058, 0.04, temperature);
    figure.limb(ankle + cv::Point2d(-0.01, -0.025), ankle + cv::Point2d(0.06, -0.03), 0.02, 0.016, shoe);
}

void addArm(Figure& figure, double swing, const Person& person)
{
    const cv::Point2d shoulder(0.0, 0.79);
    const cv::Point2d elbow(0.09 * swing - 0.015, 0.63);
    const cv::Point2d hand(0.17 * swing + 0.02, 0.49);
    figure.limb(shoulder, elbow, 0.036, 0.028, person.clothes - 0.6);
    figure.limb(elbow, hand, 0.028, 0.021, person.clothes - 0.2);
    figure.limb(hand, hand + cv::Point2d(0.01, -0.03), 0.018, 0.015, person.skin - 4.0);
}

bool isOutdoors(SceneKind kind)
{
    return kind == SceneKind::facade || kind == SceneKind::outdoor;
}

// In the street somebody is nearer than the house, and at its scale about three metres high.
double subjectSize(const SceneSettings& scene)
{
    return scene.kind == SceneKind::facade ? 38.0 * scene.zoom : 0.5 * scene.frame.height;
}

}  // namespace

void addPerson(SceneLayout& layout, const Person& person)
{
    Figure figure(layout, person);
    addArm(figure, -person.stride, person);
    addLeg(figure, -person.stride, person.clothes - 2.2, person.clothes - 5.0);
    addLeg(figure, person.stride, person.clothes - 1.6, person.clothes - 5.0);
    // Trunk, scarf, head, cap.
    figure.limb({0.0, 0.54}, {0.0, 0.755}, 0.07, 0.078, person.clothes);
    figure.warmSpot({0.015, 0.68}, {0.035, 0.07}, 2.2);
    figure.limb({0.003, 0.84}, {0.006, 0.86}, 0.032, 0.03, person.skin - 3.0);
    figure.limb({0.012, 0.905}, {0.012, 0.94}, 0.04, 0.042, person.skin);
    figure.limb({0.0, 0.965}, {0.012, 0.97}, 0.04, 0.036, person.clothes + 1.0);
    figure.warmSpot({0.028, 0.915}, {0.014, 0.014}, 2.0);
    addArm(figure, person.stride, person);
}

void addHand(SceneLayout& layout, const Hand& hand)
{
    const double length = hand.length;
    const auto at = [&](double right, double up) { return hand.wrist + cv::Point2d(right, -up) * length; };
    const auto part = [&](cv::Point2d a, cv::Point2d b, double radiusA, double radiusB, double temperature) {
        layout.addStroke(a, b, radiusA * length, radiusB * length,
                         {.temperature = temperature, .softness = 0.02 * length});
    };
    // A sleeve covers the forearm; fingertips are colder than the palm.
    part(at(-0.03, -1.2), at(0.0, -0.15), 0.2, 0.16, hand.skin - 9.0);
    part(at(0.0, -0.1), at(0.0, 0.05), 0.14, 0.16, hand.skin - 1.0);
    part(at(-0.02, 0.12), at(-0.01, 0.4), 0.17, 0.19, hand.skin);
    layout.addEllipse(at(0.02, 0.25), {0.09 * length, 0.12 * length},
                      {.temperature = 0.8, .softness = 0.1 * length, .relative = true});
    struct Finger
    {
        double root;
        double tip;
        double reach;
    };
    for (const Finger& finger : {Finger{-0.14, -0.26, 0.82}, Finger{-0.05, -0.1, 0.96},
                                 Finger{0.05, 0.06, 0.94}, Finger{0.14, 0.22, 0.8}}) {
        const cv::Point2d root = at(finger.root, 0.46);
        const cv::Point2d tip = at(finger.tip, finger.reach);
        part(root, root + 0.55 * (tip - root), 0.055, 0.05, hand.skin - 0.8);
        part(root + 0.5 * (tip - root), tip, 0.05, 0.04, hand.skin - 2.5);
    }
    part(at(-0.12, 0.2), at(-0.3, 0.38), 0.07, 0.055, hand.skin - 0.6);
    part(at(-0.3, 0.38), at(-0.36, 0.52), 0.052, 0.042, hand.skin - 2.0);
}

double subjectPath(const SceneSettings& scene)
{
    return scene.frame.width + subjectSize(scene);
}

void addPassingSubject(SceneLayout& layout, const SceneSettings& scene, cv::Point2d origin, double travelled,
                       bool isLeftward)
{
    const double height = scene.frame.height;
    const double size = subjectSize(scene);
    const double path = subjectPath(scene);
    const double x = travelled - std::floor(travelled / path) * path - 0.5 * size;
    if (isOutdoors(scene.kind))
        addPerson(layout, {.feet = cv::Point2d(x, 0.95 * height) - origin,
                           .height = size,
                           .stride = sineOfTurns(travelled / (0.8 * size)),
                           .facing = isLeftward ? -1.0 : 1.0});
    else
        addHand(layout, {.wrist = cv::Point2d(x, 0.9 * height) - origin, .length = size});
}

}  // namespace vxsupport
