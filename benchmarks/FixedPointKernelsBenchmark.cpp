// SPDX-License-Identifier: Apache-2.0
// The convolutions of the fixed-point engine on one thread: the plain pair, which checks every sum, and the
// line and lane forms beside it. All of them are models of what a target does; the solver itself works on all
// frames together.
//
// The line and lane forms go from pixel to pixel, as a target does, and are slower than the plain pair on a
// processor with wide registers. The lane form in eights computes everything in scalar form as well.

#include <benchmark/benchmark.h>
#include <omp.h>

#include <opencv2/core.hpp>

#include "benchmarks/Timing.h"
#include "enhancement/superresolution/SrIntMinimization.h"

using namespace halvor::vx;

namespace {

using Image = cv::Mat_<short>;
using Mask = cv::Mat_<signed char>;

class Model : public SrIntMinimization
{
public:
    using Full = void (SrIntMinimization::*)(const Image&, const Image&, const Image&, const Mask&, Image&,
                                             signed char);
    using Valid = void (SrIntMinimization::*)(const Image&, const Image&, const Image&, Image&, signed char);

    explicit Model(const cv::Size& size)
        : SrIntMinimization(static_cast<short>(size.width), static_cast<short>(size.height), 1, 2),
          frame_(size),
          mask_(size),
          large_(2 * size.height + 5, 2 * size.width + 5)
    {
        const PointF shift{0.21F, -0.37F};
        generatePsfs(1, &shift);
        cv::RNG random(7);
        random.fill(frame_, cv::RNG::UNIFORM, -16384, 16384);
        random.fill(large_, cv::RNG::UNIFORM, -16384, 16384);
        random.fill(mask_, cv::RNG::UNIFORM, 0, 2);
    }

    // Adding to the large image again and again wraps, which costs nothing.
    void run(Full form) { (this->*form)(frame_, psfX_[0], psfY_[0], mask_, large_, -16); }
    void run(Valid form) { (this->*form)(large_, psfX_[0], psfY_[0], frame_, -16); }

private:
    Image frame_;
    Mask mask_;
    Image large_;
};

template <typename Form>
void measure(benchmark::State& state, Form form, Form plain)
{
    const cv::Size size(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    omp_set_num_threads(1);
    Model model(size);
    for ([[maybe_unused]] auto iteration : state)
        model.run(form);
    const auto [own, beside] = vxbench::fastestInTurns(
        25, [&] { model.run(form); }, [&] { model.run(plain); });
    state.counters["plain/own"] = beside / own;
    state.counters["ns/pixel"] = own * 1e9 / size.area();
}

void scatter(benchmark::State& state, Model::Full form)
{
    measure<Model::Full>(state, form, &SrIntMinimization::fullConvFromSparse);
}

void gather(benchmark::State& state, Model::Valid form)
{
    measure<Model::Valid>(state, form, &SrIntMinimization::validCorrToSparse);
}

void setUp(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Args({160, 120})
        ->Args({640, 480})
        ->ArgNames({"width", "height"})
        ->Unit(benchmark::kMicrosecond);
}

BENCHMARK_CAPTURE(scatter, plain, &SrIntMinimization::fullConvFromSparse)->Apply(setUp);
BENCHMARK_CAPTURE(scatter, linewise, &SrIntMinimization::fullConvFromSparseLinewise)->Apply(setUp);
BENCHMARK_CAPTURE(scatter, linewiseInPairs, &SrIntMinimization::fullConvFromSparseLinewise2)->Apply(setUp);
BENCHMARK_CAPTURE(scatter, lanesInFours, &SrIntMinimization::fullConvFromSparseLinewise4)->Apply(setUp);
BENCHMARK_CAPTURE(scatter, lanesInEightsChecked, &SrIntMinimization::fullConvFromSparseNeon)->Apply(setUp);
BENCHMARK_CAPTURE(gather, plain, &SrIntMinimization::validCorrToSparse)->Apply(setUp);
BENCHMARK_CAPTURE(gather, linewise, &SrIntMinimization::validCorrToSparseLinewise)->Apply(setUp);

}  // namespace
