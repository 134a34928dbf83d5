// SPDX-License-Identifier: Apache-2.0
// The minimisation and its stages on one thread, beside the serial solver of the reference engine and the
// limit of the machine: the larger of the bytes moved by the measured bandwidth and the operations by the measured
// peak rate.
//
// Stages are told apart by the step budget: without a step there is only the set-up (normalisation,
// back-projection, result); each further step is one application of the system matrix with its vector
// updates; each round freezes the edge weights and applies the matrix once for the true residual.

#include <benchmark/benchmark.h>
#include <omp.h>

#include <array>
#include <cstring>
#include <opencv2/core.hpp>
#include <vector>

#include "benchmarks/Timing.h"
#include "core/base/Kernel.h"
#include "enhancement/superresolution/SrFloatMinimization.h"
#include "enhancement/superresolution/reference/SuperResolutionMinimization.h"
#include "support/Burst.h"

using namespace halvor::vx;
using vxbench::fastestSeconds;

namespace {

constexpr int frameCount = 5;
constexpr int reference = 1;
constexpr int taps = 6;

/// A burst whose frames overlap well: masks of ones, shifts below a pixel.
class SolverInput
{
public:
    explicit SolverInput(const cv::Size& size)
        : mask_(static_cast<std::size_t>(size.area()), 1), result_(size * 2)
    {
        vxsupport::BurstSettings settings;
        settings.scene.frame = size;
        vxsupport::Burst burst = vxsupport::simulateBurst(settings);
        shifts_ = burst.shifts;
        original_ = burst.frames;
        for (const cv::Mat_<float>& frame : original_)
            frames_.push_back(frame.clone());
        for (cv::Mat_<float>& frame : frames_)
            framePointers_.push_back(frame[0]);
        maskPointers_.assign(frames_.size(), mask_.data());
    }

    // The solver leaves normalised frames behind; normalising those again is the same work.
    template <typename Solver>
    int solve(Solver& solver)
    {
        return solver.minimize(frameCount, reference, framePointers_.data(), shifts_.data(),
                               maskPointers_.data(), result_[0]);
    }

private:
    std::vector<cv::Mat_<float>> original_;
    std::vector<cv::Mat_<float>> frames_;
    std::vector<float*> framePointers_;
    std::vector<char> mask_;
    std::vector<char*> maskPointers_;
    std::vector<PointF> shifts_;
    cv::Mat_<float> result_;
};

struct StageSeconds
{
    double setUp;
    double round;  // edge weights and true residual
    double step;   // system matrix and vector updates
};

StageSeconds measureStages(const cv::Size& size, SolverInput& input)
{
    SrFloatMinimization solver(size.width, size.height, frameCount, 2.0F);
    solver.setRelRes(1e-9F);  // no early end
    const auto withBudget = [&](int steps) {
        solver.setMaxIter(steps);
        return fastestSeconds([&] { input.solve(solver); }, 25);
    };
    const double none = withBudget(0);
    const double one = withBudget(1);
    const double eight = withBudget(8);
    const double step = (eight - one) / 7.0;
    return {none, one - none - step, step};
}

double fullPixels(const cv::Size& size)
{
    return static_cast<double>(2 * size.width + taps - 1) * (2 * size.height + taps - 1);
}

// One application: gather and scatter of each frame in both directions, a stencil of nine.
double operationsOfStep(const cv::Size& size)
{
    const double fullRows = 2.0 * size.height + taps - 1;
    const double perFrame = 2.0 * 2.0 * taps * (fullRows * size.width + size.area());
    const double vectors = 2.0 * 2.0 + 3.0 * 2.0;  // two products, three updates
    return frameCount * perFrame + (9.0 * 2.0 + vectors) * fullPixels(size);
}

// One pass: the four weights, which also give the diagonal, R, S, Q and U once each way, and the masks.
double bytesOfStep(const cv::Size& size)
{
    return 4.0 * (4.0 + 7.0) * fullPixels(size) + frameCount * size.area();
}

double bytesPerSecond()
{
    const std::vector<char> from(std::size_t{64} << 20, 1);
    std::vector<char> to(from.size());
    return 2.0 * static_cast<double>(from.size()) / fastestSeconds([&] {
               std::memcpy(to.data(), from.data(), from.size());
               benchmark::ClobberMemory();
           });
}

constexpr int lanes = 128;

VX_KERNEL void multiplyAdd(float* VX_RESTRICT values, float factor, float term, int rounds)
{
    float sums[lanes];
    for (int lane = 0; lane < lanes; ++lane)
        sums[lane] = values[lane];
    for (int i = 0; i < rounds; ++i)
        for (int lane = 0; lane < lanes; ++lane)
            sums[lane] = sums[lane] * factor + term;
    for (int lane = 0; lane < lanes; ++lane)
        values[lane] = sums[lane];
}

double operationsPerSecond()
{
    constexpr int rounds = 1 << 18;
    std::vector<float> values(lanes, 1.0F);
    const double seconds = fastestSeconds([&] {
        multiplyAdd(values.data(), 0.999F, 0.001F, rounds);
        benchmark::DoNotOptimize(values.data());
    });
    return 2.0 * lanes * rounds / seconds;
}

void minimise(benchmark::State& state)
{
    const cv::Size size(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    omp_set_num_threads(1);
    SolverInput input(size);
    SrFloatMinimization solver(size.width, size.height, frameCount, 2.0F);
    for ([[maybe_unused]] auto iteration : state)
        benchmark::DoNotOptimize(input.solve(solver));

    const double own = fastestSeconds([&] { input.solve(solver); }, 25);
    SuperResolutionMinimization serial(size.width, size.height, frameCount, 2.0F);
    state.counters["serial/own"] = fastestSeconds([&] { input.solve(serial); }, 3) / own;

    const StageSeconds stages = measureStages(size, input);
    const double limit =
        std::max(bytesOfStep(size) / bytesPerSecond(), operationsOfStep(size) / operationsPerSecond());
    state.counters["set-up ms"] = stages.setUp * 1e3;
    state.counters["round ms"] = stages.round * 1e3;
    state.counters["step ms"] = stages.step * 1e3;
    state.counters["limit/step"] = limit / stages.step;
}

BENCHMARK(minimise)
    ->Args({160, 120})
    ->Args({320, 240})
    ->Args({640, 480})
    ->ArgNames({"width", "height"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
