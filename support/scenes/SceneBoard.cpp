// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "support/Random.h"
#include "support/scenes/SceneDesigns.h"

namespace vxsupport {

namespace {

struct HeatSource
{
    cv::Point2d place;
    double rise;   // kelvin above it
    double reach;  // distance at which nothing is felt any more
};

// A powered circuit board under a macro lens, laid out in tiles of four kinds. Lengths in millimetres,
// converted by `mm_`. Bare metal mirrors the cool room and looks colder than the lacquer around it.
class Board
{
public:
    Board(const SceneSettings& settings, const SceneArea& area)
        : mm_(4.0 * settings.zoom), area_(area.rect()), random_(settings.seed), layout_(area)
    {}

    SceneDesign design()
    {
        layout_.addFractal(random_.split(1).next(), 6.0 * mm_, 0.08 * mm_, 0.15);
        forEachTile([this](int column, int row, cv::Point2d corner) {
            paintTraces(corner, tileRandom(column, row).split(0));
        });
        forEachTile([this](int column, int row, cv::Point2d corner) { paintParts(column, row, corner); });
        addHeat();
        return {std::move(layout_), lacquer};
    }

private:
    static constexpr double lacquer = 33.0;
    static constexpr double metal = 29.5;
    static constexpr double tileWidth = 20.0;
    static constexpr double tileHeight = 15.0;
    static constexpr double heatReach = 22.0;

    // The tiles that can be seen, and those whose heat is felt.
    template <typename Visit>
    void forEachTile(Visit visit)
    {
        const double reach = heatReach * mm_;
        const int firstColumn = static_cast<int>(std::floor((area_.x - reach) / (tileWidth * mm_)));
        const int lastColumn = static_cast<int>(std::floor((area_.br().x + reach) / (tileWidth * mm_)));
        const int firstRow = static_cast<int>(std::floor((area_.y - reach) / (tileHeight * mm_)));
        const int lastRow = static_cast<int>(std::floor((area_.br().y + reach) / (tileHeight * mm_)));
        for (int row = firstRow; row <= lastRow; ++row)
            for (int column = firstColumn; column <= lastColumn; ++column)
                visit(column, row, {column * tileWidth, row * tileHeight});
    }

    Random tileRandom(int column, int row) const
    {
        return random_.split(2)
            .split(static_cast<std::uint32_t>(column))
            .split(static_cast<std::uint32_t>(row));
    }

    void box(double x, double y, double width, double height, const Paint& paint, double corner = 0.0)
    {
        layout_.addBox({x * mm_, y * mm_, width * mm_, height * mm_}, paint, corner * mm_);
    }

    void disc(cv::Point2d centre, double radius, const Paint& paint)
    {
        layout_.addEllipse(centre * mm_, {radius * mm_, radius * mm_}, paint);
    }

    void trace(const std::vector<cv::Point2d>& path, double width, double difference)
    {
        const double half = width * mm_ / 2.0;
        for (std::size_t i = 1; i < path.size(); ++i)
            layout_.addStroke(path[i - 1] * mm_, path[i] * mm_, half, half,
                              {.temperature = lacquer + difference, .opacity = 0.9});
    }

    // The warm middle of a package, above its die.
    void glow(cv::Point2d centre, double radius, double rise)
    {
        layout_.addEllipse(centre * mm_, {radius * mm_ * 0.6, radius * mm_ * 0.6},
                           {.temperature = rise, .softness = radius * mm_, .relative = true});
    }

    void heat(cv::Point2d place, double rise, double reach = heatReach)
    {
        heat_.push_back({place * mm_, rise, reach * mm_});
    }

    void via(cv::Point2d place)
    {
        disc(place, 0.32, {.temperature = metal + 1.0});
        disc(place, 0.14, {.temperature = lacquer + 0.5});
    }

    // A bus along the tile's upper edge with a step in it, and a few single traces to vias.
    void paintTraces(cv::Point2d corner, Random random)
    {
        const double jog = random.uniform(6.0, 13.0);
        for (int lane = 0; lane < 6; ++lane) {
            const double y = corner.y + 0.3 + lane * 0.42;
            const double bend = corner.x + jog + lane * 0.17;
            trace({{corner.x, y},
                   {bend, y},
                   {bend + 0.84, y + 0.84},
                   {corner.x + 18.0, y + 0.84},
                   {corner.x + 18.84, y},
                   {corner.x + tileWidth, y}},
                  0.2, -1.1);
        }
        for (int i = 0; i < 9; ++i) {
            const double row = random.uniform(4.0, 14.0);
            const cv::Point2d from(corner.x + random.uniform(1.0, 19.0), corner.y + row);
            const double across = random.uniform(-5.0, 5.0);
            const double down = random.uniform(-3.0, 3.0);
            const double slant = std::min(std::fabs(across), std::fabs(down));
            const cv::Point2d middle(from.x + (across < 0 ? -slant : slant),
                                     from.y + (down < 0 ? -slant : slant));
            const cv::Point2d to = std::fabs(across) > std::fabs(down)
                                       ? cv::Point2d(from.x + across, middle.y)
                                       : cv::Point2d(middle.x, from.y + down);
            trace({from, middle, to}, 0.25, -1.0);
            via(from);
            via(to);
        }
    }

    void paintParts(int column, int row, cv::Point2d corner)
    {
        Random random = tileRandom(column, row).split(1);
        switch ((column + 2 * row) & 3) {
            case 0:
                paintProcessor(corner + cv::Point2d(9.5, 9.0), random);
                break;
            case 1:
                paintConverter(corner, random);
                break;
            case 2:
                paintDriver(corner, random);
                break;
            default:
                paintConnector(corner, random);
        }
    }

    // Body, 15 legs with 0.5 mm between them on each of the four sides.
    void paintProcessor(cv::Point2d centre, Random& random)
    {
        const double half = 4.2;
        const Paint leg{.temperature = metal};
        for (int i = -7; i <= 7; ++i) {
            const double along = i * 0.5 - 0.11;
            box(centre.x + along, centre.y - half - 0.9, 0.22, 0.9, leg);
            box(centre.x + along, centre.y + half, 0.22, 0.9, leg);
            box(centre.x - half - 0.9, centre.y + along, 0.9, 0.22, leg);
            box(centre.x + half, centre.y + along, 0.9, 0.22, leg);
        }
        const double rise = random.uniform(6.0, 20.0);
        box(centre.x - half, centre.y - half, 2 * half, 2 * half, {.temperature = lacquer + 4.0}, 0.3);
        glow(centre, 2.8, 5.0);
        disc(centre + cv::Point2d(-3.3, -3.3), 0.4, {.temperature = -0.8, .relative = true});
        heat(centre, rise);
        for (int i = 0; i < 4; ++i)
            paintChip(centre + cv::Point2d(6.6, -3.6 + 2.3 * i), true, random);
        paintCrystal(centre + cv::Point2d(-7.4, 1.5));
    }

    // Two-terminal part of 1.6 by 0.8 mm with bare ends.
    void paintChip(cv::Point2d centre, bool lying, Random& random)
    {
        const double body = lacquer + random.uniform(0.4, 2.8);
        const cv::Point2d half = lying ? cv::Point2d(0.8, 0.4) : cv::Point2d(0.4, 0.8);
        const cv::Point2d inner = lying ? cv::Point2d(0.5, 0.4) : cv::Point2d(0.4, 0.5);
        box(centre.x - half.x, centre.y - half.y, 2 * half.x, 2 * half.y, {.temperature = metal + 0.5});
        box(centre.x - inner.x, centre.y - inner.y, 2 * inner.x, 2 * inner.y, {.temperature = body});
    }

    void paintCrystal(cv::Point2d centre)
    {
        box(centre.x - 1.0, centre.y - 2.2, 2.0, 4.4, {.temperature = metal - 0.5}, 0.9);
        box(centre.x - 0.8, centre.y - 2.0, 1.6, 4.0, {.temperature = metal + 0.4}, 0.7);
    }

    // Coil, two switches and their capacitors: the hottest part of the board.
    void paintConverter(cv::Point2d corner, Random& random)
    {
        const cv::Point2d coil = corner + cv::Point2d(5.6, 9.2);
        box(coil.x - 3.5, coil.y - 3.5, 7.0, 7.0, {.temperature = lacquer + 3.0}, 0.8);
        disc(coil, 2.9, {.temperature = lacquer + 4.5});
        for (int turn = 0; turn < 4; ++turn) {
            disc(coil, 2.6 - 0.45 * turn, {.temperature = lacquer + 6.5});
            disc(coil, 2.4 - 0.45 * turn, {.temperature = lacquer + 4.2});
        }
        heat(coil, random.uniform(4.0, 16.0));
        for (int i = 0; i < 2; ++i) {
            const cv::Point2d fet = corner + cv::Point2d(12.0, 6.6 + 5.0 * i);
            for (int leg = 0; leg < 4; ++leg) {
                box(fet.x - 2.0 + leg * 1.27, fet.y - 2.9, 0.45, 0.9, {.temperature = metal + 2.0});
                box(fet.x - 2.0 + leg * 1.27, fet.y + 1.5, 0.45, 0.9, {.temperature = metal + 2.0});
            }
            box(fet.x - 2.4, fet.y - 2.0, 4.9, 3.5, {.temperature = lacquer + 9.0}, 0.2);
            glow(fet, 1.4, 8.0);
            heat(fet, random.uniform(4.0, 15.0), 12.0);
        }
        const cv::Point2d can = corner + cv::Point2d(17.2, 7.2);
        disc(can, 2.3, {.temperature = metal + 0.5});
        disc(can, 2.0, {.temperature = lacquer + 1.0, .gradient = {-0.08, 0.0}});
        box(can.x - 0.12, can.y - 1.8, 0.24, 3.6, {.temperature = -0.8, .relative = true});
        for (int i = 0; i < 3; ++i)
            paintChip(corner + cv::Point2d(15.6 + 1.5 * i, 12.4), false, random);
    }

    // Two small packages with legs 1.27 mm apart and a field of resistors.
    void paintDriver(cv::Point2d corner, Random& random)
    {
        for (int i = 0; i < 2; ++i) {
            const cv::Point2d centre = corner + cv::Point2d(5.2, 6.2 + 5.6 * i);
            for (int leg = 0; leg < 7; ++leg) {
                const double x = centre.x - 4.0 + leg * 1.27;
                box(x, centre.y - 2.9, 0.42, 1.0, {.temperature = metal});
                box(x, centre.y + 1.9, 0.42, 1.0, {.temperature = metal});
            }
            box(centre.x - 4.4, centre.y - 1.95, 8.7, 3.9, {.temperature = lacquer + 2.0}, 0.2);
            disc(centre + cv::Point2d(-3.6, 1.2), 0.3, {.temperature = -0.7, .relative = true});
            heat(centre, random.uniform(1.0, 9.0), 12.0);
        }
        for (int j = 0; j < 4; ++j)
            for (int i = 0; i < 3; ++i)
                if (random.uniform() < 0.85)
                    paintChip(corner + cv::Point2d(12.2 + 2.6 * i, 5.0 + 2.5 * j), j % 2 == 0, random);
    }

    // Double row of pins, traces that fan out from it, and a mounting hole.
    void paintConnector(cv::Point2d corner, Random& random)
    {
        box(corner.x + 1.5, corner.y + 8.6, 13.2, 5.1, {.temperature = lacquer - 0.8}, 0.3);
        for (int pin = 0; pin < 5; ++pin) {
            const double x = corner.x + 2.9 + pin * 2.54;
            trace({{x, corner.y + 9.8},
                   {x, corner.y + 7.4},
                   {x + 0.8 * (pin - 2), corner.y + 6.6},
                   {x + 0.8 * (pin - 2), corner.y + 4.0}},
                  0.3, pin == 3 ? 4.0 : -1.0);
            for (int line = 0; line < 2; ++line) {
                const double y = corner.y + 9.9 + 2.54 * line;
                box(x - 0.6, y - 0.6, 1.2, 1.2, {.temperature = lacquer - 1.6});
                box(x - 0.32, y - 0.32, 0.64, 0.64, {.temperature = metal - 2.0});
            }
        }
        const cv::Point2d hole = corner + cv::Point2d(17.4, 11.2);
        disc(hole, 2.3, {.temperature = metal - 0.5});
        disc(hole, 1.6, {.temperature = 23.5});
        for (int i = 0; i < 3; ++i)
            paintChip(corner + cv::Point2d(16.4 + 1.4 * i, 6.0), false, random);
    }

    // Warmth spreads in the copper below everything.
    void addHeat()
    {
        layout_.addField(mm_ / 2.0, [this](cv::Point2d p) {
            double sum = 0.0;
            for (const HeatSource& source : heat_) {
                const cv::Point2d d = p - source.place;
                const double q = d.dot(d) / (source.reach * source.reach);
                if (q < 1.0)
                    sum += source.rise * (1.0 - q) * (1.0 - q) / (1.0 + 12.0 * q);
            }
            return sum;
        });
    }

    double mm_;
    cv::Rect2d area_;
    Random random_;
    SceneLayout layout_;
    std::vector<HeatSource> heat_;
};

}  // namespace

SceneDesign designBoard(const SceneSettings& settings, const SceneArea& area)
{
    return Board(settings, area).design();
}

}  // namespace vxsupport
