#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "support/Burst.h"
#include "support/EngineRuns.h"

using namespace vxsupport;
using testing::IsEmpty;

class ThreeEngines : public testing::TestWithParam<SceneKind>
{
protected:
    void SetUp() override
    {
        burst_ = checkBurst(GetParam(), {128, 96}, 3);
        for (const EngineKind kind : allEngineKinds())
            runs_.push_back(runEngine(kind, burst_.frames, reference));
    }

    const EngineRun& run(EngineKind kind) const { return runs_[static_cast<std::size_t>(kind)]; }

    static constexpr int reference = 1;
    Burst burst_;
    std::vector<EngineRun> runs_;
};

TEST_P(ThreeEngines, AgreeWithEachOtherAndWithTheTruth)
{
    EXPECT_THAT(excesses(compareRuns(run(EngineKind::phase), run(EngineKind::reference)), twinLimits),
                IsEmpty());
    EXPECT_THAT(excesses(compareRuns(run(EngineKind::production), run(EngineKind::phase)), siblingLimits),
                IsEmpty());
    for (const EngineKind kind : allEngineKinds()) {
        EXPECT_THAT(excesses(compareWithTruth(run(kind), burst_, reference), truthLimits), IsEmpty())
            << nameOf(kind);
        EXPECT_GT(run(kind).result, 1.9F) << nameOf(kind);
        EXPECT_LE(run(kind).result, 2.0F) << nameOf(kind);
        EXPECT_GT(run(kind).iterations, 0) << nameOf(kind);
    }
}

INSTANTIATE_TEST_SUITE_P(All, ThreeEngines, testing::ValuesIn(allSceneKinds()),
                         [](const auto& scene) { return std::string(nameOf(scene.param)); });

// A displacement of several pixels in each direction, where signs and whole pixels matter most.
TEST(ThreeEnginesFar, AgreeOnLargerDisplacementsOfEitherSign)
{
    BurstSettings settings;
    settings.scene.frame = {128, 96};
    settings.shifts = {{-3.3F, 4.4F}, {0.0F, 0.0F}, {5.2F, -6.6F}, {7.7F, 2.1F}, {-0.4F, -8.3F}};
    const Burst burst = simulateBurst(settings);
    const EngineRun production = runEngine(EngineKind::production, burst.frames, 1);
    const EngineRun phase = runEngine(EngineKind::phase, burst.frames, 1);
    const EngineRun serial = runEngine(EngineKind::reference, burst.frames, 1);
    EXPECT_THAT(excesses(compareRuns(phase, serial), twinLimits), IsEmpty());
    EXPECT_THAT(excesses(compareRuns(production, phase), siblingLimits), IsEmpty());
    // One gradient step overshoots by up to a tenth of the sub-pixel part.
    EXPECT_THAT(excesses(compareWithTruth(phase, burst, 1), RunError{0.1, 2.0}), IsEmpty());
}

TEST(EngineRuns, ReportsWhatExceedsItsLimit)
{
    EngineRun a;
    a.image = cv::Mat_<float>(4, 4, 1.0F);
    a.shifts = {{0.0F, 0.0F}};
    a.masks = {cv::Mat_<unsigned char>(2, 2, static_cast<unsigned char>(1))};
    a.result = 2.0F;
    a.iterations = 4;
    EngineRun b = a;
    b.image = cv::Mat_<float>(4, 4, 3.0F);
    b.shifts = {{0.0F, -0.5F}};
    b.masks = {a.masks[0].clone()};
    b.masks[0](0, 0) = 0;
    b.iterations = 2;
    const Disagreement found = compareRuns(a, b);
    EXPECT_EQ(found.shift, 0.5);
    EXPECT_EQ(found.masks, 0.25);
    EXPECT_EQ(found.image, 2.0);
    EXPECT_EQ(found.result, 0.0);
    EXPECT_EQ(found.iterations, 2.0);
    EXPECT_THAT(excesses(found, found), IsEmpty());
    EXPECT_THAT(excesses(found, siblingLimits),
                testing::ElementsAre("shift [pixels]: 0.5, limit 0.06", "masks [share]: 0.25, limit 0.005",
                                     "image [K]: 2, limit 0.15", "iterations: 2, limit 1"));
    EXPECT_THAT(excesses(RunError{std::nan(""), 2.5}, truthLimits), testing::SizeIs(2));
}
