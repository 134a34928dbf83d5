// SPDX-License-Identifier: Apache-2.0
#include "support/scenes/SceneShapes.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace vxsupport {

namespace {

constexpr double cell = 1.0 / FineScene::cellsPerPixel;

// Each outline gives the signed distance of a point, negative inside, and the rectangle around itself.

struct BoxOutline
{
    cv::Point2d centre;
    cv::Point2d half;
    cv::Point2d axis;
    double corner;

    double distance(cv::Point2d p) const
    {
        const cv::Point2d d = p - centre;
        const double x = std::fabs(d.dot(axis)) - half.x + corner;
        const double y = std::fabs(d.y * axis.x - d.x * axis.y) - half.y + corner;
        const double outsideX = std::max(x, 0.0);
        const double outsideY = std::max(y, 0.0);
        return std::sqrt(outsideX * outsideX + outsideY * outsideY) + std::min(std::max(x, y), 0.0) - corner;
    }

    cv::Rect2d bounds() const
    {
        const cv::Point2d reach(std::fabs(axis.x) * half.x + std::fabs(axis.y) * half.y,
                                std::fabs(axis.y) * half.x + std::fabs(axis.x) * half.y);
        return {centre - reach, centre + reach};
    }

    cv::Point2d middle() const { return centre; }
};

struct EllipseOutline
{
    cv::Point2d centre;
    cv::Point2d radii;

    // Exact for a circle, first order near the edge of an ellipse.
    double distance(cv::Point2d p) const
    {
        const cv::Point2d scaled((p.x - centre.x) / radii.x, (p.y - centre.y) / radii.y);
        const double level = std::sqrt(scaled.dot(scaled));
        if (level < 1e-6)
            return -std::min(radii.x, radii.y);
        const cv::Point2d slope(scaled.x / radii.x, scaled.y / radii.y);
        return level * (level - 1.0) / std::sqrt(slope.dot(slope));
    }

    cv::Rect2d bounds() const { return {centre - radii, centre + radii}; }
    cv::Point2d middle() const { return centre; }
};

struct StrokeOutline
{
    cv::Point2d a;
    cv::Point2d b;
    double radiusA;
    double radiusB;

    double distance(cv::Point2d p) const
    {
        const cv::Point2d along = b - a;
        const double length = std::max(along.dot(along), 1e-12);
        const double t = std::clamp((p - a).dot(along) / length, 0.0, 1.0);
        const cv::Point2d d = p - a - t * along;
        return std::sqrt(d.dot(d)) - (radiusA + t * (radiusB - radiusA));
    }

    cv::Rect2d bounds() const
    {
        const double reach = std::max(radiusA, radiusB);
        const cv::Point2d low(std::min(a.x, b.x) - reach, std::min(a.y, b.y) - reach);
        const cv::Point2d high(std::max(a.x, b.x) + reach, std::max(a.y, b.y) + reach);
        return {low, high};
    }

    cv::Point2d middle() const { return (a + b) / 2.0; }
};

struct PolygonOutline
{
    std::vector<cv::Point2d> corners;

    // The largest distance from any edge's line: exact inside, too small outside a corner.
    double distance(cv::Point2d p) const
    {
        double largest = -std::numeric_limits<double>::infinity();
        for (std::size_t i = 0; i < corners.size(); ++i) {
            const cv::Point2d edge = corners[(i + 1) % corners.size()] - corners[i];
            const cv::Point2d d = p - corners[i];
            largest = std::max(largest, (edge.y * d.x - edge.x * d.y) / std::sqrt(edge.dot(edge)));
        }
        return largest;
    }

    cv::Rect2d bounds() const
    {
        cv::Point2d low = corners.front();
        cv::Point2d high = corners.front();
        for (const cv::Point2d& corner : corners) {
            low = {std::min(low.x, corner.x), std::min(low.y, corner.y)};
            high = {std::max(high.x, corner.x), std::max(high.y, corner.y)};
        }
        return {low, high};
    }

    cv::Point2d middle() const
    {
        const cv::Rect2d box = bounds();
        return (box.tl() + box.br()) / 2.0;
    }
};

template <typename Outline>
class ShapeLayer : public SceneLayer
{
public:
    ShapeLayer(Outline outline, const Paint& paint)
        : outline_(std::move(outline)), paint_(paint), ramp_(std::max(paint.softness, cell))
    {
        const cv::Rect2d box = outline_.bounds();
        const cv::Point2d half(ramp_ / 2.0, ramp_ / 2.0);
        bounds_ = cv::Rect2d(box.tl() - half, box.br() + half);
        middle_ = outline_.middle();
    }

    void paintRow(const CellRow& row) const override
    {
        if (row.y < bounds_.y || row.y > bounds_.br().y)
            return;
        const int first = std::max(0, static_cast<int>(std::floor((bounds_.x - row.left) / cell)));
        const int end = std::min(row.count, static_cast<int>(std::ceil((bounds_.br().x - row.left) / cell)));
        for (int i = first; i < end; ++i)
            paintCell({row.left + (i + 0.5) * cell, row.y}, row.values[i]);
    }

    cv::Rect2d bounds() const override { return bounds_; }

private:
    void paintCell(cv::Point2d p, float& value) const
    {
        const double t = std::clamp(0.5 - outline_.distance(p) / ramp_, 0.0, 1.0);
        const double cover = t * t * (3.0 - 2.0 * t) * paint_.opacity;
        const double painted = paint_.temperature + (p - middle_).dot(paint_.gradient);
        const double below = static_cast<double>(value);
        value =
            static_cast<float>(paint_.relative ? below + cover * painted : below + cover * (painted - below));
    }

    Outline outline_;
    Paint paint_;
    double ramp_;
    cv::Rect2d bounds_;
    cv::Point2d middle_;
};

template <typename Outline>
std::unique_ptr<SceneLayer> makeLayer(Outline outline, const Paint& paint)
{
    return std::make_unique<ShapeLayer<Outline>>(std::move(outline), paint);
}

}  // namespace

std::unique_ptr<SceneLayer> makeBoxLayer(cv::Point2d centre, cv::Point2d halfSize, cv::Point2d axis,
                                         double cornerRadius, const Paint& paint)
{
    return makeLayer(BoxOutline{centre, halfSize, axis, cornerRadius}, paint);
}

std::unique_ptr<SceneLayer> makeEllipseLayer(cv::Point2d centre, cv::Point2d radii, const Paint& paint)
{
    return makeLayer(EllipseOutline{centre, radii}, paint);
}

std::unique_ptr<SceneLayer> makeStrokeLayer(cv::Point2d a, cv::Point2d b, double radiusA, double radiusB,
                                            const Paint& paint)
{
    return makeLayer(StrokeOutline{a, b, radiusA, radiusB}, paint);
}

std::unique_ptr<SceneLayer> makePolygonLayer(std::vector<cv::Point2d> corners, const Paint& paint)
{
    return makeLayer(PolygonOutline{std::move(corners)}, paint);
}

}  // namespace vxsupport
