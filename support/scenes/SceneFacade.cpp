// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>

#include "support/Random.h"
#include "support/scenes/SceneDesigns.h"

namespace vxsupport {

namespace {

// A plastered house front on a winter evening that fills the picture, as in a survey of its insulation: the
// cold sky is kept out. Lengths in metres, converted by `metre_`.
class Facade
{
public:
    Facade(const SceneSettings& settings, const SceneArea& area)
        : metre_(12.0 * settings.zoom), area_(area.rect()), random_(settings.seed), layout_(area)
    {
        ground_ = settings.frame.height - 0.6 * metre_;
        storeys_ = static_cast<int>(std::ceil((ground_ - area_.y) / storeyHeight()));
    }

    SceneDesign design()
    {
        paintWall();
        const int firstBay = static_cast<int>(std::floor(area_.x / bayWidth())) - 1;
        const int lastBay = static_cast<int>(std::floor(area_.br().x / bayWidth())) + 1;
        for (int storey = 0; storey < storeys_; ++storey)
            for (int bay = firstBay; bay <= lastBay; ++bay)
                paintBay(bay, storey);
        for (int bay = firstBay; bay <= lastBay; ++bay)
            if (floorModulo(bay, 3) == 2)
                paintDownpipe(bay * bayWidth());
        paintGround();
        return {std::move(layout_), wallTemperature};
    }

private:
    static constexpr double wallTemperature = 3.5;

    static int floorModulo(int value, int modulus) { return ((value % modulus) + modulus) % modulus; }

    double storeyHeight() const { return 3.0 * metre_; }
    double bayWidth() const { return 2.5 * metre_; }
    double floorOf(int storey) const { return ground_ - storey * storeyHeight(); }

    void box(double x, double y, double width, double height, const Paint& paint)
    {
        layout_.addBox({x, y, width, height}, paint);
    }

    // Across the whole picture, however wide.
    void band(double y, double height, const Paint& paint)
    {
        const double far = 1e4 * metre_;
        box(-far, y, 2.0 * far, height, paint);
    }

    void paintWall()
    {
        // Rising warmth, and less of the cold street in view.
        layout_.addField(4.0, [this](cv::Point2d p) {
            const double storeys = std::max(ground_ - p.y, 0.0) / storeyHeight();
            return 1.6 * storeys / (2.0 + storeys);
        });
        layout_.addFractal(random_.split(1).next(), 3.0 * metre_, 0.04 * metre_, 0.28);
        // Floor slabs conduct heat to the outside.
        for (int storey = 1; storey <= storeys_; ++storey)
            band(floorOf(storey) - 0.12 * metre_, 0.24 * metre_,
                 {.temperature = 1.1, .softness = 0.25 * metre_, .relative = true});
        // Plinth of stone blocks.
        band(ground_ - 0.55 * metre_, 0.55 * metre_, {.temperature = 4.6});
        for (int joint = 2; joint > 0; --joint)
            band(ground_ - joint * 0.275 * metre_, 0.025 * metre_, {.temperature = -0.7, .relative = true});
    }

    void paintBay(int bay, int storey)
    {
        Random random =
            random_.split(2).split(static_cast<std::uint32_t>(bay)).split(static_cast<std::uint32_t>(storey));
        const double left = bay * bayWidth();
        const double floor = floorOf(storey);
        if (storey == 0 && floorModulo(bay, 5) == 2) {
            paintDoor(left + 0.7 * metre_, floor);
        } else if (storey > 0 && floorModulo(bay, 3) == 1) {
            paintWindow(left + 0.55 * metre_, floor - 2.3 * metre_, 1.4 * metre_, 2.15 * metre_, random);
            paintBalcony(left + 0.1 * metre_, floor, 2.3 * metre_);
        } else {
            paintRadiator(left + 0.65 * metre_, floor, random);
            paintWindow(left + 0.65 * metre_, floor - 2.3 * metre_, 1.2 * metre_, 1.45 * metre_, random);
            box(left + 0.58 * metre_, floor - 0.85 * metre_, 1.34 * metre_, 0.06 * metre_,
                {.temperature = 1.6});
        }
    }

    void paintRadiator(double x, double floor, Random& random)
    {
        if (random.uniform() < 0.3)
            return;
        box(x + 0.1 * metre_, floor - 0.8 * metre_, 1.0 * metre_, 0.6 * metre_,
            {.temperature = random.uniform(0.8, 2.2), .softness = 0.45 * metre_, .relative = true});
    }

    void paintWindow(double x, double y, double width, double height, Random& random)
    {
        const double frame = 0.07 * metre_;
        const double reveal = 0.05 * metre_;
        box(x - reveal, y - reveal, width + 2 * reveal, height + 2 * reveal, {.temperature = 5.6});
        box(x, y, width, height, {.temperature = random.uniform(3.6, 4.4)});
        const double pane = (width - 3 * frame) / 2.0;
        const double glass = random.uniform(6.2, 9.0);
        const double transom = y + 0.3 * height;
        for (int side = 0; side < 2; ++side) {
            const double left = x + frame + side * (pane + frame);
            // Upper parts of the glass mirror more of the cold sky.
            const Paint paint{.temperature = glass, .gradient = {0.0, 1.6 / height}};
            box(left, y + frame, pane, transom - y - frame, paint);
            box(left, transom + 0.05 * metre_, pane, y + height - frame - transom - 0.05 * metre_, paint);
        }
        const double choice = random.uniform();
        if (choice < 0.3)
            paintBlind(x + frame, y + frame, width - 2 * frame, random.uniform(0.35, 0.9) * height);
        else if (choice < 0.5)
            paintGlazingBars(x, y, width, height);
        else if (choice < 0.62)  // tilted open: warm air leaves at the top
            box(x + frame, y + 0.02 * metre_, pane, 0.08 * metre_,
                {.temperature = 13.5, .softness = 0.05 * metre_});
    }

    void paintBlind(double x, double y, double width, double height)
    {
        box(x, y, width, height, {.temperature = 5.2});
        for (double slat = 0.0; slat < height; slat += 0.16 * metre_)
            box(x, y + slat, width, 0.05 * metre_, {.temperature = 6.4});
    }

    void paintGlazingBars(double x, double y, double width, double height)
    {
        for (int i = 1; i < 6; ++i)
            if (i != 3)
                box(x + i * width / 6.0 - 0.015 * metre_, y, 0.03 * metre_, height, {.temperature = 4.4});
        for (int i = 1; i < 5; ++i)
            box(x, y + i * height / 5.0 - 0.015 * metre_, width, 0.03 * metre_, {.temperature = 4.4});
    }

    void paintDoor(double x, double floor)
    {
        const double width = 1.1 * metre_;
        const double height = 2.2 * metre_;
        box(x - 0.08 * metre_, floor - height - 0.08 * metre_, width + 0.16 * metre_, height + 0.08 * metre_,
            {.temperature = 5.4});
        box(x, floor - height, width, height, {.temperature = 4.5, .gradient = {0.0, -0.04}});
        box(x + 0.15 * metre_, floor - 1.9 * metre_, 0.8 * metre_, 0.7 * metre_, {.temperature = 7.8});
        box(x + 0.15 * metre_, floor - 0.9 * metre_, 0.8 * metre_, 0.05 * metre_, {.temperature = 6.6});
        box(x, floor - 0.05 * metre_, width, 0.05 * metre_, {.temperature = 9.5});
        layout_.addEllipse({x + 1.02 * metre_, floor - 1.05 * metre_}, {0.05 * metre_, 0.05 * metre_},
                           {.temperature = 2.4});
        layout_.addEllipse({x + 0.55 * metre_, floor - 2.5 * metre_}, {0.16 * metre_, 0.12 * metre_},
                           {.temperature = 17.0, .softness = 0.05 * metre_});
    }

    // Steel rails mirror the sky and are colder than the wall.
    void paintBalcony(double x, double floor, double width)
    {
        const Paint steel{.temperature = 0.8};
        box(x, floor - 0.02 * metre_, width, 0.16 * metre_, {.temperature = 2.4});
        box(x, floor - 1.0 * metre_, width, 0.05 * metre_, steel);
        box(x, floor - 0.14 * metre_, width, 0.03 * metre_, steel);
        for (double bar = 0.0; bar <= width; bar += 0.115 * metre_)
            box(x + bar, floor - 1.0 * metre_, 0.025 * metre_, 0.88 * metre_, steel);
    }

    void paintDownpipe(double x)
    {
        const double top = floorOf(storeys_ + 1);
        box(x - 0.05 * metre_, top, 0.1 * metre_, ground_ - top, {.temperature = 1.2});
        for (int storey = 0; storey <= storeys_; ++storey)
            box(x - 0.08 * metre_, floorOf(storey) - 0.5 * metre_, 0.16 * metre_, 0.04 * metre_,
                {.temperature = 2.4});
    }

    void paintGround()
    {
        const double depth = 100.0 * metre_;
        band(ground_, depth, {.temperature = 5.0 + 0.01 * depth, .gradient = {0.0, 0.02}});
        band(ground_, 0.06 * metre_, {.temperature = 3.2});
    }

    double metre_;
    cv::Rect2d area_;
    Random random_;
    double ground_;
    int storeys_;
    SceneLayout layout_;
};

}  // namespace

SceneDesign designFacade(const SceneSettings& settings, const SceneArea& area)
{
    return Facade(settings, area).design();
}

}  // namespace vxsupport
