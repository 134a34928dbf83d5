// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

#include "core/base/PointF.h"

namespace vxtest {

/// What a solver is given, with the storage of its arrays.
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
    float* frame(int k) { return frames.data() + static_cast<std::size_t>(k) * frameSize(); }
    std::vector<float*> framePointers() { return pointersInto(frames); }
    std::vector<char*> maskPointers() { return pointersInto(masks); }

private:
    template <typename Value>
    std::vector<Value*> pointersInto(std::vector<Value>& values)
    {
        std::vector<Value*> pointers;
        for (std::size_t k = 0; k < shifts.size(); ++k)
            pointers.push_back(values.data() + k * frameSize());
        return pointers;
    }
};

/// A wavy scene with edges and noise in degrees Celsius, seen with random sub-pixel shifts, and masks with
/// holes. The same arguments give the same burst.
inline SolverBurst makeSolverBurst(int width, int height, int frames, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> step(-0.5F, 0.5F);
    std::normal_distribution<float> noise(0.0F, 0.05F);
    std::bernoulli_distribution usable(0.93);
    SolverBurst burst{width, height, frames / 2, {}, {}, {}};
    for (int k = 0; k < frames; ++k) {
        const PointF shift = k == burst.reference ? PointF{0.0F, 0.0F} : PointF{step(random), step(random)};
        burst.shifts.push_back(shift);
        for (int r = 0; r < height; ++r)
            for (int c = 0; c < width; ++c) {
                const float x = 2.0F * (static_cast<float>(c) - shift.x);
                const float y = 2.0F * (static_cast<float>(r) - shift.y);
                const bool warm = std::fmod(x + 0.4F * y + 1000.0F, 23.0F) < 7.0F;
                const float waves = 2.0F * std::sin(0.21F * x) * std::cos(0.13F * y) + 0.02F * x;
                burst.frames.push_back(20.0F + waves + (warm ? 3.0F : 0.0F) + noise(random));
                burst.masks.push_back(k == burst.reference || usable(random) ? 1 : 0);
            }
    }
    return burst;
}

struct SolverSettings
{
    float psfSigma = 0.683F;
    float weightTV = 400.0F;
    float epsilon = 0.1F;
    float relRes = 0.007F;
    int maxIter = 8;
};

struct SolverOutcome
{
    int steps = 0;
    std::vector<float> image;
    std::vector<float> frames;  // normalised
};

/// Runs a solver, which may have been used before.
template <typename Solver>
SolverOutcome run(Solver& solver, SolverBurst burst, const SolverSettings& settings = {})
{
    solver.setPsfSigma(settings.psfSigma);
    solver.setWeightTV(settings.weightTV);
    solver.setEpsilon(settings.epsilon);
    solver.setRelRes(settings.relRes);
    solver.setMaxIter(settings.maxIter);
    SolverOutcome outcome;
    outcome.image.resize(4 * burst.frameSize());
    outcome.steps = solver.minimize(burst.count(), burst.reference, burst.framePointers().data(),
                                    burst.shifts.data(), burst.maskPointers().data(), outcome.image.data());
    outcome.frames = burst.frames;
    return outcome;
}

template <typename Solver>
SolverOutcome solve(const SolverBurst& burst, const SolverSettings& settings = {})
{
    Solver solver(burst.width, burst.height, burst.count(), 2.0F);
    return run(solver, burst, settings);
}

}  // namespace vxtest
