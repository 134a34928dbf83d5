// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <vector>

namespace vxsupport {

/// The part of the plane that is rendered: a frame and a margin around it.
struct SceneArea
{
    cv::Size frame;  ///< pixels of the small frame
    int margin = 0;  ///< small-frame pixels beyond each edge

    cv::Rect2d rect() const
    {
        return {-1.0 * margin, -1.0 * margin, frame.width + 2.0 * margin, frame.height + 2.0 * margin};
    }
};

/// A scene on cells much finer than any pixel of a camera: the scene IS this function, constant on each cell.
/// Displaced frames are exact integrals over cells; nothing is interpolated from another picture.
struct FineScene
{
    /// Cells along a side of a small-frame pixel; a pixel of the doubled grid has half as many.
    static constexpr int cellsPerPixel = 8;

    cv::Mat_<float> cells;  ///< degrees Celsius
    int margin = 0;         ///< small-frame pixels rendered beyond each edge of the undisplaced frame
};

/// How a shape is painted. Lengths are in pixels of the small frame.
struct Paint
{
    double temperature = 0.0;    ///< degrees Celsius at the shape's centre, or a difference if `relative`
    cv::Point2d gradient{0, 0};  ///< kelvin per pixel to the right and downward
    double opacity = 1.0;        ///< 1 hides what is below
    double softness = 0.0;       ///< width of the edge's ramp; never less than a cell
    bool relative = false;       ///< add to what is below
};

/// One item of the list; paints its part of one row of cells.
class SceneLayer;

/// List of things to paint, in order, in coordinates of the small frame: (0, 0) is the upper left corner of
/// the upper left pixel, y grows downward. What is painted inside a frame doesn't depend on the margin.
class SceneLayout
{
public:
    explicit SceneLayout(const SceneArea& area);
    ~SceneLayout();
    SceneLayout(SceneLayout&&) noexcept;
    SceneLayout& operator=(SceneLayout&&) noexcept;

    /// Adds a smooth function of the position, sampled every `spacing` pixels and interpolated by B-splines.
    void addField(double spacing, const std::function<double(cv::Point2d)>& field);

    /// Adds smooth noise of the given deviation whose grains are about `period` pixels wide.
    void addTexture(std::uint64_t seed, double period, double deviation);

    /// Adds octaves of texture with grains from `period` down to `finest`; each has half the deviation of the
    /// one before, as many natural surfaces have.
    void addFractal(std::uint64_t seed, double period, double finest, double deviation);

    void addBox(const cv::Rect2d& box, const Paint& paint, double cornerRadius = 0.0);

    /// @param axis  direction of the box's width, of any length above 0
    void addTurnedBox(cv::Point2d centre, cv::Point2d halfSize, cv::Point2d axis, const Paint& paint);
    void addEllipse(cv::Point2d centre, cv::Point2d radii, const Paint& paint);

    /// Line with round ends whose half width goes from `radiusA` at a to `radiusB` at b.
    void addStroke(cv::Point2d a, cv::Point2d b, double radiusA, double radiusB, const Paint& paint);

    /// Convex polygon, corners in clockwise order as seen on the screen.
    void addPolygon(std::vector<cv::Point2d> corners, const Paint& paint);

    /// Paints everything over `background`.
    FineScene render(double background) const;

    /// Paints everything over the cells of a scene of the same area.
    void paintOver(FineScene& scene) const;

    /// Smallest rectangle around everything painted; empty without layers.
    cv::Rect2d bounds() const;

private:
    SceneArea area_;
    std::vector<std::unique_ptr<SceneLayer>> layers_;
};

}  // namespace vxsupport
