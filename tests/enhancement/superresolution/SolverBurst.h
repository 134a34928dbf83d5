#pragma once

#include <cstddef>
#include <vector>

#include "core/base/PointF.h"

namespace halvor::vx {

/// What the solver is given, with the storage of its arrays.
struct SolverBurst
{
    int width;
    int height;
    int reference;
    std::vector<PointF> shifts;
    std::vector<float> frames;
    std::vector<char> masks;

    int count() const { return static_cast<int>(shifts.size()); }
    std::size_t frameSize() const { return static_cast<std::size_t>(width) * height; }
    std::vector<float*> framePointers();
    std::vector<char*> maskPointers();
};

/// A wavy scene with edges and noise in degrees Celsius, seen with random sub-pixel shifts, and masks with
/// holes. The same arguments give the same burst.
SolverBurst makeSolverBurst(int width, int height, int frames, unsigned seed);

/// Five noiseless frames that the imaging model itself makes of a scene.
///
/// @param truth  takes the scene, twice the size of a frame
SolverBurst makeModelBurst(int width, int height, std::vector<float>& truth);

}  // namespace halvor::vx
