// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "support/Burst.h"
#include "support/EngineRuns.h"

using namespace vxsupport;
using testing::IsEmpty;

// A displacement of several pixels in each direction, where signs and whole pixels matter most.
TEST(ThreeEngines, AgreeOnLargerDisplacementsOfEitherSign)
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
    for (const EngineRun* run : {&production, &phase, &serial}) {
        EXPECT_GT(run->result, 1.8F);
        EXPECT_LE(run->result, 2.0F);
        EXPECT_GT(run->iterations, 0);
    }
    // One gradient step overshoots by up to a tenth of the sub-pixel part.
    EXPECT_THAT(excesses(compareWithTruth(phase, burst, 1), RunError{0.1, 2.0}), IsEmpty());
}

TEST(EngineRuns, ReportsWhatExceedsItsLimit)
{
    EngineRun a;
    a.image = cv::Mat_<float>(4, 4, 1.0F);
    a.shifts = {{0.0F, 0.0F}};
    a.masks.emplace_back(2, 2, static_cast<unsigned char>(1));
    EngineRun b = a;
    b.image = cv::Mat_<float>(4, 4, 3.0F);
    b.shifts[0].y = -0.5F;
    b.masks[0] = (cv::Mat_<unsigned char>(2, 2) << 1, 1, 0, 1);
    b.iterations = 2;
    const Disagreement found = compareRuns(a, b);
    EXPECT_EQ(found.result, 0.0);
    EXPECT_THAT(excesses(found, found), IsEmpty());
    EXPECT_THAT(excesses(found, siblingLimits),
                testing::ElementsAre("shift [pixels]: 0.5, limit 0.06", "masks [share]: 0.25, limit 0.005",
                                     "image [K]: 2, limit 0.15", "iterations: 2, limit 1"));
    EXPECT_THAT(excesses(RunError{std::nan(""), 2.5}, truthLimits), testing::SizeIs(2));
}
