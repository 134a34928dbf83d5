#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "core/base/Exception.h"
#include "core/diagnostics/DebugSingleton.h"
#include "enhancement/AllocationCounter.h"
#include "enhancement/superresolution/PlainSolver.h"
#include "enhancement/superresolution/SolverBurst.h"
#include "enhancement/superresolution/SrFloatMinimization.h"

using namespace halvor::vx;

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

struct Settings
{
    float psfSigma = 0.683F;
    float weightTV = 400.0F;
    float epsilon = 0.1F;
    float relRes = 0.007F;
    int maxIter = 8;
};

struct Outcome
{
    int steps = 0;
    std::vector<float> image;
    std::vector<float> frames;
};

void apply(const Settings& settings, SrFloatMinimization& solver)
{
    solver.setPsfSigma(settings.psfSigma);
    solver.setWeightTV(settings.weightTV);
    solver.setEpsilon(settings.epsilon);
    solver.setRelRes(settings.relRes);
    solver.setMaxIter(settings.maxIter);
}

Outcome solve(SolverBurst burst, const Settings& settings = {})
{
    SrFloatMinimization solver(burst.width, burst.height, burst.count(), 2.0F);
    apply(settings, solver);
    Outcome outcome;
    outcome.image.resize(4 * burst.frameSize());
    outcome.steps = solver.minimize(burst.count(), burst.reference, burst.framePointers().data(),
                                    burst.shifts.data(), burst.maskPointers().data(), outcome.image.data());
    outcome.frames = burst.frames;
    return outcome;
}

Outcome solvePlainly(SolverBurst burst, const Settings& settings = {})
{
    plain::Solver solver(burst.width, burst.height);
    solver.setPsfSigma(settings.psfSigma);
    solver.weightTV = settings.weightTV;
    solver.epsilon = settings.epsilon;
    solver.relRes = settings.relRes;
    solver.maxIter = settings.maxIter;
    Outcome outcome;
    outcome.image.resize(4 * burst.frameSize());
    outcome.steps = solver.minimize(burst.count(), burst.reference, burst.framePointers().data(),
                                    burst.shifts.data(), burst.maskPointers().data(), outcome.image.data());
    outcome.frames = burst.frames;
    return outcome;
}

void expectSameBits(const Outcome& fast, const Outcome& plain)
{
    EXPECT_EQ(fast.steps, plain.steps);
    EXPECT_TRUE(bitsOf(fast.image) == bitsOf(plain.image));
    EXPECT_TRUE(bitsOf(fast.frames) == bitsOf(plain.frames));
}

class ThreadCount
{
public:
    explicit ThreadCount(int count) : before_(omp_get_max_threads()) { omp_set_num_threads(count); }
    ThreadCount(const ThreadCount&) = delete;
    ThreadCount& operator=(const ThreadCount&) = delete;
    ~ThreadCount() { omp_set_num_threads(before_); }

private:
    int before_;
};

class LineCollector : public DebugDeviceBase
{
public:
    void write(std::string_view channel, std::string_view text, int level) override
    {
        EXPECT_EQ(channel, "SrFloat");
        EXPECT_EQ(level, 11);
        lines.emplace_back(text);
    }

    std::vector<std::string> lines;
};

// All debug lines of the engine go to a collector while this lives.
class DebugLines
{
public:
    DebugLines()
    {
        registry_.setDebugDevice(collector_);
        registry_.setOutputLevel(11);
    }
    DebugLines(const DebugLines&) = delete;
    DebugLines& operator=(const DebugLines&) = delete;
    ~DebugLines()
    {
        registry_.setOutputLevel(0);
        registry_.setDebugDevice(nullptr);
    }
    const std::vector<std::string>& lines() const { return collector_->lines; }

private:
    DebugSingletonInterface& registry_ = DebugSingleton::getInstance("");
    std::shared_ptr<LineCollector> collector_ = std::make_shared<LineCollector>();
};

struct Size
{
    int width;
    int height;
    int frames;
};

}  // namespace

class SolverSizes : public testing::TestWithParam<Size>
{};

TEST_P(SolverSizes, EqualsThePlainLoopsBitForBit)
{
    const auto [width, height, frames] = GetParam();
    const SolverBurst burst = makeSolverBurst(width, height, frames, 5);
    Settings thorough;
    thorough.relRes = 1e-4F;
    for (const Settings& settings : {Settings{}, thorough})
        expectSameBits(solve(burst, settings), solvePlainly(burst, settings));
}

INSTANTIATE_TEST_SUITE_P(Solver, SolverSizes,
                         testing::Values(Size{2, 1, 1}, Size{1, 2, 3}, Size{3, 2, 2}, Size{12, 13, 5},
                                         Size{13, 40, 7}, Size{16, 16, 4}, Size{61, 9, 3}, Size{30, 31, 5},
                                         Size{160, 120, 5}));

TEST(Solver, GivesTheSameBitsForAnyNumberOfThreads)
{
    const SolverBurst burst = makeSolverBurst(47, 38, 5, 11);
    const Outcome expected = solvePlainly(burst);
    for (const int threads : {1, 2, 7}) {
        SCOPED_TRACE(threads);
        const ThreadCount limit(threads);
        expectSameBits(solve(burst), expected);
    }
}

TEST(Solver, EqualsThePlainLoopsForSettingsFarFromTheDefaults)
{
    const SolverBurst burst = makeSolverBurst(21, 18, 4, 3);
    for (const Settings& settings :
         {Settings{.psfSigma = 0.3F, .weightTV = 1.0F}, Settings{.psfSigma = 1.7F, .weightTV = 1e5F},
          Settings{.epsilon = 4.0F}, Settings{.epsilon = 1e-3F, .maxIter = 30}, Settings{.weightTV = 0.0F}})
        expectSameBits(solve(burst, settings), solvePlainly(burst, settings));
}

TEST(Solver, EqualsThePlainLoopsForShiftsBeyondAPixel)
{
    SolverBurst burst = makeSolverBurst(24, 17, 5, 8);
    burst.shifts = {{0.0F, -0.0F}, {0.5F, -0.5F}, {1.25F, 0.0F}, {-2.0F, 3.5F}, {0.1F, -0.9F}};
    expectSameBits(solve(burst), solvePlainly(burst));
}

// Weights and taps of zero must not hide what is not finite where the loops as told would show it.
TEST(Solver, EqualsThePlainLoopsWhereValuesAreNotFinite)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    const SolverBurst sound = makeSolverBurst(14, 11, 3, 21);
    std::vector<SolverBurst> bursts(8, sound);
    std::fill_n(bursts[0].framePointers()[0], sound.frameSize(), 3.0F);  // reference of zero variance
    bursts[1].framePointers()[1][40] = nan;
    bursts[2].framePointers()[2][13] = infinity;
    bursts[3].framePointers()[1][70] = 1e30F;
    bursts[4].framePointers()[1][70] = 3e38F;
    std::fill(bursts[5].masks.begin(), bursts[5].masks.end(), 0);
    bursts[6].shifts[1] = {nan, 0.25F};
    bursts[7].shifts[2] = {0.25F, infinity};
    for (const SolverBurst& burst : bursts)
        for (const int maxIter : {0, 1, 2, 8}) {
            SCOPED_TRACE(testing::Message() << "burst " << &burst - bursts.data() << ", budget " << maxIter);
            expectSameBits(solve(burst, {.maxIter = maxIter}), solvePlainly(burst, {.maxIter = maxIter}));
        }
}

TEST(Solver, RecoversFromFramesThatAreNotFinite)
{
    SolverBurst poor = makeSolverBurst(19, 16, 3, 4);
    poor.framePointers()[1][40] = std::numeric_limits<float>::quiet_NaN();
    SolverBurst sound = makeSolverBurst(19, 16, 3, 5);
    const Outcome expected = solvePlainly(sound);

    SrFloatMinimization solver(19, 16, 3, 2.0F);
    Outcome outcome;
    outcome.image.resize(4 * sound.frameSize());
    for (SolverBurst* burst : {&poor, &sound})
        outcome.steps =
            solver.minimize(3, burst->reference, burst->framePointers().data(), burst->shifts.data(),
                            burst->maskPointers().data(), outcome.image.data());
    outcome.frames = sound.frames;
    expectSameBits(outcome, expected);
}

TEST(Solver, ReportsEachOperatorWithoutChangingABit)
{
    const SolverBurst burst = makeSolverBurst(20, 14, 2, 9);
    const Settings settings{.relRes = 0.05F};
    const Outcome silent = solve(burst, settings);
    std::vector<std::string> lines;
    Outcome told;
    {
        const DebugLines debug;
        told = solve(burst, settings);
        lines = debug.lines();
    }
    expectSameBits(told, silent);

    const std::vector<std::string> backProjection{"start SrFloat_Convolution.fullConvFromSparse",
                                                  "end SrFloat_Convolution.fullConvFromSparse"};
    std::vector<std::string> head{"start minimize"};
    for (int k = 0; k < 2; ++k)
        head.insert(head.end(), backProjection.begin(), backProjection.end());
    head.insert(head.end(), {"start large iteration: 0", "start gradient"});
    for (int k = 0; k < 2; ++k) {
        head.push_back("gradient for frame: " + std::to_string(k));
        head.insert(head.end(), {"start SrFloat_Convolution.validCorrToSparse",
                                 "end SrFloat_Convolution.validCorrToSparse"});
        head.insert(head.end(), backProjection.begin(), backProjection.end());
    }
    head.insert(head.end(), {"end gradient", "start small iteration: 0", "start gradient"});
    ASSERT_GT(lines.size(), head.size());
    EXPECT_EQ(
        std::vector<std::string>(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(head.size())),
        head);
    EXPECT_THAT(lines, testing::Contains(testing::StartsWith("abort small iteration: ")));
    EXPECT_EQ(lines[lines.size() - 2], "cummulated iterations" + std::to_string(told.steps));
    EXPECT_EQ(lines.back(), "end minimize");
}

TEST(Solver, ReturnsTheBackProjectionWithoutABudget)
{
    const SolverBurst burst = makeSolverBurst(15, 10, 3, 2);
    const Outcome none = solve(burst, {.maxIter = 0});
    const Outcome converged = solve(burst, {.relRes = 100.0F});
    EXPECT_EQ(none.steps, 0);
    EXPECT_EQ(converged.steps, 0);
    EXPECT_TRUE(bitsOf(none.image) == bitsOf(converged.image));
}

TEST(Solver, NeverSpendsMoreThanItsBudget)
{
    const SolverBurst burst = makeSolverBurst(40, 30, 5, 6);
    for (const int budget : {1, 2, 3, 5, 8})
        EXPECT_LE(solve(burst, {.maxIter = budget}).steps, budget);
    EXPECT_EQ(solve(burst, {.relRes = 1e-7F, .maxIter = 5}).steps, 5);
}

TEST(Solver, ExplainsFramesOnlyWithTheirTrueDisplacement)
{
    std::vector<float> truth;
    SolverBurst burst = makeModelBurst(48, 40, truth);
    const auto error = [&truth](const std::vector<float>& image) {
        double squares = 0.0;
        for (std::size_t i = 0; i < image.size(); ++i)
            squares += std::pow(static_cast<double>(image[i]) - truth[i], 2);
        return std::sqrt(squares / static_cast<double>(image.size()));
    };
    const double right = error(solve(burst, {.relRes = 0.002F}).image);
    for (PointF& shift : burst.shifts)
        shift = {-shift.x, -shift.y};
    const double wrong = error(solve(burst, {.relRes = 0.002F}).image);
    EXPECT_LT(right, 0.5 * wrong);
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
    const blocktest::AllocationCounter counter;
    minimize();
    EXPECT_EQ(counter.count(), 0U);
}

TEST(Solver, RefusesWhatItHasNoRoomOrNoKernelFor)
{
    SolverBurst burst = makeSolverBurst(8, 6, 3, 1);
    std::vector<float> image(4 * burst.frameSize());
    SrFloatMinimization small(8, 6, 2, 2.0F);
    EXPECT_THROW(small.minimize(3, 0, burst.framePointers().data(), burst.shifts.data(),
                                burst.maskPointers().data(), image.data()),
                 Exception);
    EXPECT_THROW(SrFloatMinimization(8, 6, 2, 0.2F), Exception);
    SrFloatMinimization coarse(8, 6, 3, 1.5F);
    EXPECT_THROW(coarse.minimize(3, 0, burst.framePointers().data(), burst.shifts.data(),
                                 burst.maskPointers().data(), image.data()),
                 Exception);
}
