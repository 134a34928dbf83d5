// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <utility>

#include "support/Random.h"
#include "support/scenes/SceneDesigns.h"
#include "support/scenes/Subjects.h"

namespace vxsupport {

namespace {

// A meadow at the edge of a wood, under an overcast evening sky. Lengths near the person in metres,
// converted by `metre_`.
class Outdoor
{
public:
    Outdoor(const SceneSettings& settings, const SceneArea& area)
        : metre_(settings.frame.height / 4.0 * settings.zoom),
          area_(area.rect()),
          random_(settings.seed),
          layout_(area)
    {
        width_ = settings.frame.width;
        horizon_ = 0.42 * settings.frame.height;
        bottom_ = settings.frame.height;
    }

    SceneDesign design()
    {
        paintSky();
        paintWood();
        paintMeadow();
        paintTree({0.87 * width_, horizon_ + 0.5 * (bottom_ - horizon_)});
        paintFence();
        paintPerson({0.36 * width_, bottom_ - 0.22 * metre_}, 0.18);
        return {std::move(layout_), -1.0};
    }

private:
    // Clouds hide the cold of a clear sky; they are thinner overhead.
    void paintSky()
    {
        layout_.addField(4.0, [this](cv::Point2d p) {
            const double height = std::clamp((horizon_ - p.y) / bottom_, -0.2, 2.0);
            return -6.0 * height / (0.5 + std::max(height, 0.0));
        });
        layout_.addFractal(random_.split(1).next(), 1.6 * metre_, 0.1 * metre_, 0.7);
    }

    // The edge of a distant wood: heaps of leaves, each with its own warmth, and firs that stand out.
    void paintWood()
    {
        const double step = 0.07 * metre_;
        const int first = static_cast<int>(std::floor(area_.x / step)) - 8;
        const int last = static_cast<int>(std::floor(area_.br().x / step)) + 8;
        for (int i = first; i <= last; ++i) {
            Random random = random_.split(10).split(static_cast<std::uint32_t>(i));
            if (random.uniform() < 0.15)
                paintFir({i * step, horizon_}, random.uniform(0.35, 0.62) * metre_, random);
        }
        layout_.addBox({-1e5, horizon_ - 0.26 * metre_, 2e5, 0.3 * metre_},
                       {.temperature = 2.4, .softness = 0.05 * metre_});
        for (int row = 0; row < 4; ++row)
            for (int i = first; i <= last; ++i) {
                Random random =
                    random_.split(11U + static_cast<unsigned>(row)).split(static_cast<std::uint32_t>(i));
                const double size = random.uniform(0.04, 0.085) * metre_;
                const double rise = ((3 - row) * 0.085 + random.uniform(0.0, 0.12)) * metre_;
                const Paint leaves{.temperature = random.uniform(2.2, 3.2) + 0.25 * row,
                                   .gradient = {0.0, 0.4 / size},
                                   .softness = 0.02 * metre_};
                layout_.addEllipse({i * step + random.uniform(-0.5, 0.5) * step, horizon_ - rise},
                                   {size * 1.2, size}, leaves);
            }
        layout_.addBox({-1e5, horizon_ - 0.06 * metre_, 2e5, 0.1 * metre_},
                       {.temperature = 3.9, .softness = 0.05 * metre_});
    }

    void paintFir(cv::Point2d foot, double height, Random& random)
    {
        const double warmth = random.uniform(2.0, 2.8);
        for (int whorl = 0; whorl < 7; ++whorl) {
            const double low = height * (0.1 + 0.11 * whorl);
            const double half = 0.26 * height * (1.0 - whorl / 9.0) * random.uniform(0.85, 1.15);
            layout_.addPolygon({foot + cv::Point2d(0.0, -low - 0.26 * height), foot + cv::Point2d(half, -low),
                                foot + cv::Point2d(-half, -low)},
                               {.temperature = warmth, .softness = 0.012 * metre_});
        }
    }

    // Grass, finer toward the horizon; a trodden path that keeps the day's warmth.
    void paintMeadow()
    {
        const double depth = 100.0 * metre_;
        layout_.addBox({-1e5, horizon_, 2e5, depth},
                       {.temperature = 4.6 + 0.45 * depth / metre_ / 2.0, .gradient = {0.0, 0.45 / metre_}});
        paintTufts();
        const double near = bottom_ + 2.0 * metre_;
        layout_.addPolygon({{0.60 * width_, horizon_},
                            {0.615 * width_, horizon_},
                            {0.60 * width_ + 0.8 * metre_, near},
                            {0.60 * width_ - 1.3 * metre_, near}},
                           {.temperature = 7.4, .opacity = 0.85, .softness = 0.12 * metre_});
        layout_.addFractal(random_.split(2).next(), 0.8 * metre_, 0.03 * metre_, 0.16);
    }

    // One tuft in each field of a grid that is seen at a slant, so rows crowd together toward the horizon.
    void paintTufts()
    {
        double distance = 1.0;
        for (int row = 0; distance < 9.0; ++row, distance *= 1.035) {
            const double scale = metre_ / distance;
            const double y = horizon_ + (bottom_ - horizon_ + 0.3 * metre_) / distance;
            const double gap = 0.16 * scale;
            const int first = static_cast<int>(std::floor(area_.x / gap)) - 1;
            const int last = static_cast<int>(std::floor(area_.br().x / gap)) + 1;
            for (int i = first; i <= last; ++i) {
                Random random =
                    random_.split(20U + static_cast<unsigned>(row)).split(static_cast<std::uint32_t>(i));
                const double length = random.uniform(0.05, 0.17) * scale;
                const cv::Point2d root((i + random.uniform()) * gap, y);
                const cv::Point2d tip = root + cv::Point2d(random.uniform(-0.5, 0.5), -1.0) * length;
                layout_.addStroke(root, tip, 0.014 * scale, 0.004 * scale,
                                  {.temperature = random.uniform(-1.0, 0.7), .relative = true});
            }
        }
    }

    void paintTree(cv::Point2d foot)
    {
        const double height = foot.y + 0.4 * metre_;
        const cv::Point2d top(foot.x + 0.1 * metre_, foot.y - height);
        Random random = random_.split(30);
        for (int i = 0; i < 11; ++i) {
            const double part = 0.4 + 0.055 * i;
            const double side = i % 2 == 0 ? -1.0 : 1.0;
            const cv::Point2d start = foot + part * (top - foot);
            const double rise = random.uniform(0.25, 0.6);
            const cv::Point2d reach(side * random.uniform(0.5, 0.9), -rise);
            paintBranch(start, reach * metre_, 0.045 * metre_, 3, random);
        }
        const Paint bark{.temperature = 5.4, .softness = 0.02 * metre_};
        layout_.addStroke(foot, top, 0.13 * metre_, 0.06 * metre_, bark);
        for (const double root : {-0.2, 0.16})
            layout_.addStroke(foot + cv::Point2d(0.3 * root, -0.16) * metre_,
                              foot + cv::Point2d(root, 0.1) * metre_, 0.08 * metre_, 0.03 * metre_, bark);
        // The side that the sun has left last.
        layout_.addStroke(foot + cv::Point2d(-0.05, 0.0) * metre_, top + cv::Point2d(-0.02, 0.0) * metre_,
                          0.04 * metre_, 0.02 * metre_,
                          {.temperature = 0.9, .softness = 0.07 * metre_, .relative = true});
        for (int i = 0; i < 60; ++i) {
            const cv::Point2d aside(random.uniform(-0.08, 0.08) * metre_, 0.0);
            const cv::Point2d place = foot + random.uniform(0.02, 0.95) * (top - foot) + aside;
            layout_.addStroke(place, place + cv::Point2d(0.0, 0.12) * metre_, 0.008 * metre_, 0.004 * metre_,
                              {.temperature = -0.5, .relative = true});
        }
    }

    void paintBranch(cv::Point2d start, cv::Point2d reach, double radius, int generations, Random& random)
    {
        const cv::Point2d end = start + reach;
        layout_.addStroke(start, end, radius, 0.6 * radius, {.temperature = 3.8});
        if (generations == 0)
            return;
        for (int i = 0; i < 3; ++i) {
            const double turn = random.uniform(-0.7, 0.7);
            const cv::Point2d next = cv::Point2d(reach.x - turn * reach.y, reach.y + turn * reach.x) * 0.55;
            paintBranch(start + reach * (0.4 + 0.3 * i), next, 0.6 * radius, generations - 1, random);
        }
    }

    // Posts and three wires, in front of the wood and behind the person.
    void paintFence()
    {
        const double ground = horizon_ + 0.3 * (bottom_ - horizon_);
        const double height = 0.5 * metre_;
        const double gap = 0.95 * metre_;
        const int first = static_cast<int>(std::floor(area_.x / gap)) - 1;
        const int last = static_cast<int>(std::floor(area_.br().x / gap)) + 1;
        for (int wire = 0; wire < 3; ++wire)
            for (int i = first; i < last; ++i) {
                const double y = ground - height * (0.3 + 0.3 * wire);
                const cv::Point2d sag(gap / 2.0, 0.008 * metre_);
                const cv::Point2d from(i * gap, y);
                const Paint paint{.temperature = 1.0};
                layout_.addStroke(from, from + sag, 0.009 * metre_, 0.009 * metre_, paint);
                layout_.addStroke(from + sag, from + cv::Point2d(gap, 0.0), 0.009 * metre_, 0.009 * metre_,
                                  paint);
            }
        for (int i = first; i <= last; ++i)
            layout_.addStroke({i * gap, ground}, {i * gap + 0.01 * metre_, ground - height}, 0.03 * metre_,
                              0.028 * metre_, {.temperature = 5.6});
    }

    void paintPerson(cv::Point2d feet, double stride)
    {
        layout_.addEllipse(feet, {0.35 * metre_, 0.05 * metre_},
                           {.temperature = 0.6, .softness = 0.12 * metre_, .relative = true});
        addPerson(layout_, {.feet = feet, .height = 1.75 * metre_, .stride = stride});
    }

    double metre_;
    cv::Rect2d area_;
    Random random_;
    SceneLayout layout_;
    double width_;
    double horizon_;
    double bottom_;
};

}  // namespace

SceneDesign designOutdoor(const SceneSettings& settings, const SceneArea& area)
{
    return Outdoor(settings, area).design();
}

}  // namespace vxsupport
