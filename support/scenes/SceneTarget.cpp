// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>

#include "support/PortableMath.h"
#include "support/scenes/SceneDesigns.h"

namespace vxsupport {

namespace {

constexpr double plateTemperature = 38.0;
constexpr double coolTemperature = 27.0;

// Radial spokes; toward the centre they become finer than any pixel.
void addStar(SceneLayout& layout, cv::Point2d centre, double radius)
{
    constexpr int spokes = 36;
    layout.addEllipse(centre, {radius * 1.06, radius * 1.06}, {.temperature = plateTemperature});
    for (int i = 0; i < spokes; ++i) {
        const double from = (i - 0.25) / spokes;
        const double to = (i + 0.25) / spokes;
        layout.addPolygon({centre, centre + radius * cv::Point2d(cosineOfTurns(from), sineOfTurns(from)),
                           centre + radius * cv::Point2d(cosineOfTurns(to), sineOfTurns(to))},
                          {.temperature = coolTemperature});
    }
}

// Groups of three bars, upright and lying, from coarse to fine; `period` is in pixels of the small frame.
void addBars(SceneLayout& layout, cv::Point2d corner, double period, double length)
{
    for (int i = 0; i < 3; ++i) {
        layout.addBox({corner.x + i * period, corner.y, period / 2.0, length},
                      {.temperature = coolTemperature});
        layout.addBox({corner.x, corner.y + length + 3.0 + i * period, length, period / 2.0},
                      {.temperature = coolTemperature});
    }
}

}  // namespace

SceneDesign designTarget(const SceneSettings& settings, const SceneArea& area)
{
    SceneDesign design{SceneLayout(area), 21.0};
    SceneLayout& layout = design.layout;
    const double w = settings.frame.width;
    const double h = settings.frame.height;
    const double unit = settings.zoom * std::min(w / 160.0, h / 120.0);

    layout.addField(8.0, [w, h](cv::Point2d p) { return 0.6 * p.x / w - 0.9 * p.y / h; });
    layout.addFractal(settings.seed, 40.0, 1.0, 0.06);
    // The heated plate is a little warmer in its middle.
    layout.addBox({0.04 * w, 0.05 * h, 0.92 * w, 0.9 * h}, {.temperature = plateTemperature}, 3.0 * unit);
    layout.addEllipse({0.5 * w, 0.5 * h}, {0.45 * w, 0.45 * h},
                      {.temperature = 0.8, .softness = 0.5 * h, .relative = true});

    addStar(layout, {0.67 * w, 0.5 * h}, 40.0 * unit);
    layout.addTurnedBox({0.21 * w, 0.31 * h}, {17.0 * unit, 17.0 * unit}, {1.0, 0.0875},
                        {.temperature = coolTemperature});
    double x = 0.08 * w;
    for (const double period : {5.0, 4.0, 3.0, 2.0}) {
        addBars(layout, {x, 0.6 * h}, period * settings.zoom, 3.0 * period * settings.zoom);
        x += 3.0 * period * settings.zoom + 2.0;
    }
    return design;
}

}  // namespace vxsupport
