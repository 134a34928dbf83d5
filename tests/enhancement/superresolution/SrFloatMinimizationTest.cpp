// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrFloatMinimization.h"

#include <gmock/gmock.h>

#include <bit>
#include <cmath>
#include <limits>

#include "core/base/Exception.h"
#include "doubles/AllocationCounter.h"
#include "enhancement/superresolution/LineRecorder.h"
#include "enhancement/superresolution/SolverBurst.h"
#include "enhancement/superresolution/TestBursts.h"

using namespace halvor::vx;
using namespace vxtest;

namespace {

// Bits, with all that is not a number taken as equal: which of two payloads an addition keeps is up to the
// compiler.
std::vector<std::uint32_t> bitsOf(const std::vector<float>& values)
{
    std::vector<std::uint32_t> bits(values.size());
    for (std::size_t i = 0; i < values.size(); ++i)
        bits[i] = std::isnan(values[i]) ? 0x7FC00000U : std::bit_cast<std::uint32_t>(values[i]);
    return bits;
}

void expectSameBits(const SolverOutcome& one, const SolverOutcome& other)
{
    EXPECT_EQ(one.steps, other.steps);
    EXPECT_TRUE(bitsOf(one.image) == bitsOf(other.image));
    EXPECT_TRUE(bitsOf(one.frames) == bitsOf(other.frames));
}

SolverOutcome sweep(const SolverBurst& burst, const SolverSettings& settings = {})
{
    return solve<SrFloatMinimization>(burst, settings);
}

// A solver that is heard applies its operators one after the other, on whole images: the plain form of the
// sweep that does all of them in one pass, by rows and threads.
SolverOutcome operators(const SolverBurst& burst, const SolverSettings& settings = {})
{
    const HeardProcess heard;
    return solve<SrFloatMinimization>(burst, settings);
}

}  // namespace

TEST(Solver, SweepAndOperatorsGiveTheSameBits)
{
    constexpr int sizes[][3] = {{2, 1, 1},   {1, 2, 3},  {3, 2, 2},   {12, 13, 5},  {13, 40, 7},
                                {16, 16, 4}, {61, 9, 3}, {30, 31, 5}, {160, 120, 5}};
    for (const auto& [width, height, frames] : sizes) {
        SCOPED_TRACE(testing::Message() << width << " x " << height << ", " << frames << " frames");
        const SolverBurst burst = makeSolverBurst(width, height, frames, 5);
        for (const SolverSettings& settings : {SolverSettings{}, SolverSettings{.relRes = 1e-4F}})
            expectSameBits(sweep(burst, settings), operators(burst, settings));
    }
}

TEST(Solver, GivesTheSameBitsForAnyNumberOfThreads)
{
    const SolverBurst burst = makeSolverBurst(47, 38, 5, 11);
    const SolverOutcome expected = operators(burst);
    for (const int threads : {1, 2, 7}) {
        SCOPED_TRACE(threads);
        const ThreadCount limit(threads);
        expectSameBits(sweep(burst), expected);
        expectSameBits(operators(burst), expected);
    }
}

TEST(Solver, SweepsWithSettingsAndShiftsFarFromTheDefaults)
{
    SolverBurst burst = makeSolverBurst(21, 18, 5, 3);
    for (const SolverSettings& settings :
         {SolverSettings{.psfSigma = 0.3F, .weightTV = 1.0F},
          SolverSettings{.psfSigma = 1.7F, .weightTV = 1e5F}, SolverSettings{.epsilon = 4.0F},
          SolverSettings{.epsilon = 1e-3F, .maxIter = 30}, SolverSettings{.weightTV = 0.0F}})
        expectSameBits(sweep(burst, settings), operators(burst, settings));
    burst.shifts = {{0.0F, -0.0F}, {0.5F, -0.5F}, {1.25F, 0.0F}, {-2.0F, 3.5F}, {0.1F, -0.9F}};
    expectSameBits(sweep(burst), operators(burst));
}

// Weights and taps of zero, and masks, must not hide from one form what is not finite and the other shows.
TEST(Solver, ShowsWhatIsNotFiniteAndRecovers)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    const SolverBurst sound = makeSolverBurst(14, 11, 3, 21);
    std::vector<SolverBurst> bursts(8, sound);
    std::fill_n(bursts[0].frame(0), sound.frameSize(), 3.0F);
    std::fill_n(bursts[0].frame(1), sound.frameSize(), 3.0F);  // reference of zero variance
    bursts[1].frame(1)[40] = nan;
    bursts[2].frame(2)[13] = infinity;
    bursts[3].frame(1)[70] = 1e30F;
    bursts[4].frame(1)[70] = 3e38F;
    std::fill(bursts[5].masks.begin(), bursts[5].masks.end(), 0);
    bursts[6].shifts[1] = {nan, 0.25F};
    bursts[7].shifts[2] = {0.25F, infinity};
    const SolverOutcome expected = sweep(sound);
    for (const SolverBurst& burst : bursts)
        for (const int maxIter : {0, 1, 2, 8}) {
            SCOPED_TRACE(testing::Message() << "burst " << &burst - bursts.data() << ", budget " << maxIter);
            SrFloatMinimization solver(burst.width, burst.height, burst.count(), 2.0F);
            expectSameBits(run(solver, burst, {.maxIter = maxIter}), operators(burst, {.maxIter = maxIter}));
            expectSameBits(run(solver, sound), expected);
        }
}

TEST(Solver, ReportsEachOperator)
{
    const SolverBurst burst = makeSolverBurst(20, 14, 1, 9);
    const HeardProcess heard;
    const int steps = solve<SrFloatMinimization>(burst, {.relRes = 0.05F}).steps;
    std::vector<std::string> lines = heard.recorder->textsOf("SrFloat", 11);
    EXPECT_THAT(lines, testing::Contains(testing::StartsWith("abort small iteration: ")));
    ASSERT_GT(lines.size(), 12U);
    EXPECT_EQ(lines[lines.size() - 2], "cummulated iterations" + std::to_string(steps));
    EXPECT_EQ(lines.back(), "end minimize");
    lines.resize(12);
    EXPECT_THAT(
        lines,
        testing::ElementsAre(
            "start minimize", "start SrFloat_Convolution.fullConvFromSparse",
            "end SrFloat_Convolution.fullConvFromSparse", "start large iteration: 0", "start gradient",
            "gradient for frame: 0", "start SrFloat_Convolution.validCorrToSparse",
            "end SrFloat_Convolution.validCorrToSparse", "start SrFloat_Convolution.fullConvFromSparse",
            "end SrFloat_Convolution.fullConvFromSparse", "end gradient", "start small iteration: 0"));
}

TEST(Solver, SpendsItsBudgetAndNoMore)
{
    const SolverBurst burst = makeSolverBurst(40, 30, 5, 6);
    const SolverOutcome none = sweep(burst, {.maxIter = 0});
    const SolverOutcome converged = sweep(burst, {.relRes = 100.0F});
    EXPECT_EQ(none.steps, 0);
    EXPECT_EQ(converged.steps, 0) << "both give the back-projection";
    expectSameBits(none, converged);
    for (const int budget : {1, 2, 3, 5, 8})
        EXPECT_LE(sweep(burst, {.maxIter = budget}).steps, budget);
    EXPECT_EQ(sweep(burst, {.relRes = 1e-7F, .maxIter = 5}).steps, 5);
}

TEST(Solver, AllocatesNothingAfterConstruction)
{
    SolverBurst burst = makeSolverBurst(40, 30, 5, 17);
    SrFloatMinimization solver(40, 30, 5, 2.0F);
    std::vector<float> image(4 * burst.frameSize());
    const std::vector<float*> frames = burst.framePointers();
    std::vector<char*> masks = burst.maskPointers();
    const auto minimize = [&] {
        solver.minimize(5, burst.reference, frames.data(), burst.shifts.data(), masks.data(), image.data());
    };
    minimize();  // the threads start
    const AllocationCounter counter;
    minimize();
    EXPECT_EQ(counter.count(), 0U);
}

TEST(Solver, RefusesWhatItHasNoRoomOrNoKernelFor)
{
    const SolverBurst burst = makeSolverBurst(8, 6, 3, 1);
    SrFloatMinimization small(8, 6, 2, 2.0F);
    SrFloatMinimization coarse(8, 6, 3, 1.5F);
    EXPECT_THROW(run(small, burst), Exception);
    EXPECT_THROW(run(coarse, burst), Exception);
    EXPECT_THROW(SrFloatMinimization(8, 6, 2, 0.2F), Exception);
}
