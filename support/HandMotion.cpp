// SPDX-License-Identifier: Apache-2.0
#include "support/HandMotion.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace vxsupport {

namespace {

class Axis
{
public:
    Axis(double deviation, double correlation, double drift, Random random)
        : deviation_(deviation),
          correlation_(correlation),
          drift_(drift),
          random_(random),
          tremor_(deviation * random_.normal())
    {}

    float position() const { return static_cast<float>(tremor_ + std::floor(walk_ + 0.5)); }

    void step()
    {
        tremor_ = correlation_ * tremor_ +
                  deviation_ * std::sqrt(1.0 - correlation_ * correlation_) * random_.normal();
        walk_ += drift_ * random_.normal();
    }

private:
    double deviation_;
    double correlation_;
    double drift_;
    Random random_;
    double tremor_;
    double walk_ = 0.0;
};

}  // namespace

std::vector<PointF> drawMotion(const HandMotion& motion, int frameCount, Random random)
{
    Axis x(motion.deviationX, motion.correlationX, motion.drift, random.split(0));
    Axis y(motion.deviationY, motion.correlationY, motion.drift, random.split(1));
    std::vector<PointF> positions;
    for (int i = 0; i < frameCount; ++i) {
        positions.push_back({x.position(), y.position()});
        x.step();
        y.step();
    }
    return positions;
}

void makeRelative(std::vector<PointF>& positions, int reference)
{
    const PointF origin = positions.at(static_cast<std::size_t>(reference));
    for (PointF& position : positions)
        position = {position.x - origin.x, position.y - origin.y};
}

double largestShift(const std::vector<PointF>& shifts)
{
    float largest = 0.0F;
    for (const PointF& shift : shifts)
        largest = std::max({largest, std::fabs(shift.x), std::fabs(shift.y)});
    return static_cast<double>(largest);
}

}  // namespace vxsupport
