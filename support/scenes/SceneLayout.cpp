// SPDX-License-Identifier: Apache-2.0
#include "support/scenes/SceneLayout.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "core/base/ParallelExceptions.h"
#include "support/scenes/SceneLayers.h"
#include "support/scenes/SceneShapes.h"
#include "support/scenes/SceneTextures.h"

namespace vxsupport {

SceneLayout::SceneLayout(const SceneArea& area) : area_(area) {}
SceneLayout::~SceneLayout() = default;
SceneLayout::SceneLayout(SceneLayout&&) noexcept = default;
SceneLayout& SceneLayout::operator=(SceneLayout&&) noexcept = default;

void SceneLayout::addField(double spacing, const std::function<double(cv::Point2d)>& field)
{
    layers_.push_back(makeFieldLayer(area_, spacing, field));
}

void SceneLayout::addTexture(std::uint64_t seed, double period, double deviation)
{
    layers_.push_back(makeTextureLayer(area_, seed, period, deviation));
}

void SceneLayout::addFractal(std::uint64_t seed, double period, double finest, double deviation)
{
    std::uint64_t octave = 0;
    for (double grain = period; grain >= finest; grain *= 0.5, deviation *= 0.5)
        addTexture(seed + (++octave << 32), grain, deviation);
}

void SceneLayout::addBox(const cv::Rect2d& box, const Paint& paint, double cornerRadius)
{
    const cv::Point2d half(box.width / 2.0, box.height / 2.0);
    layers_.push_back(makeBoxLayer(box.tl() + half, half, {1.0, 0.0}, cornerRadius, paint));
}

void SceneLayout::addTurnedBox(cv::Point2d centre, cv::Point2d halfSize, cv::Point2d axis, const Paint& paint)
{
    const double length = std::sqrt(axis.dot(axis));
    layers_.push_back(makeBoxLayer(centre, halfSize, axis / length, 0.0, paint));
}

void SceneLayout::addEllipse(cv::Point2d centre, cv::Point2d radii, const Paint& paint)
{
    layers_.push_back(makeEllipseLayer(centre, radii, paint));
}

void SceneLayout::addStroke(cv::Point2d a, cv::Point2d b, double radiusA, double radiusB, const Paint& paint)
{
    layers_.push_back(makeStrokeLayer(a, b, radiusA, radiusB, paint));
}

void SceneLayout::addPolygon(std::vector<cv::Point2d> corners, const Paint& paint)
{
    layers_.push_back(makePolygonLayer(std::move(corners), paint));
}

FineScene SceneLayout::render(double background) const
{
    FineScene scene;
    scene.margin = area_.margin;
    scene.cells.create((area_.frame.height + 2 * area_.margin) * FineScene::cellsPerPixel,
                       (area_.frame.width + 2 * area_.margin) * FineScene::cellsPerPixel);
    scene.cells = static_cast<float>(background);
    paintOver(scene);
    return scene;
}

void SceneLayout::paintOver(FineScene& scene) const
{
    constexpr double cell = 1.0 / FineScene::cellsPerPixel;
    const cv::Rect2d area = bounds();
    const int first = std::max(0, static_cast<int>(std::floor((area.y + scene.margin) / cell)));
    const int end =
        std::min(scene.cells.rows, static_cast<int>(std::ceil((area.br().y + scene.margin) / cell)));
    halvor::vx::ParallelExceptions exceptions;
#pragma omp parallel for schedule(static)
    for (int r = first; r < end; ++r) {
        exceptions.run(r, [&] {
            const double y = (r + 0.5) * cell - scene.margin;
            const CellRow row{scene.cells[r], scene.cells.cols, static_cast<double>(-scene.margin), y};
            for (const auto& layer : layers_)
                layer->paintRow(row);
        });
    }
    exceptions.rethrow();
}

cv::Rect2d SceneLayout::bounds() const
{
    cv::Rect2d all;
    for (const auto& layer : layers_)
        all = all.empty() ? layer->bounds() : all | layer->bounds();
    return all;
}

}  // namespace vxsupport
