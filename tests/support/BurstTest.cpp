// SPDX-License-Identifier: Apache-2.0
#include "support/Burst.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <vector>

#include "core/base/PointF.h"
#include "doubles/SameBits.h"
#include "doubles/ThreadCount.h"
#include "support/PortableMath.h"
#include "support/Sensor.h"

using namespace vxsupport;

namespace {

BurstSettings quiet(SceneKind kind)
{
    BurstSettings settings;
    settings.scene.kind = kind;
    settings.scene.frame = {64, 48};
    settings.netd = 0.0;
    return settings;
}

bool sameBits(const Burst& a, const Burst& b)
{
    return vxtest::sameBits(a.truth, b.truth) &&
           std::equal(a.frames.begin(), a.frames.end(), b.frames.begin(), b.frames.end(), vxtest::sameBits);
}

// The point spread over whole pixels of the doubled grid, for a sample between the pixels 0 and 1.
double spread(int pixel, double sigma)
{
    return gaussianShare(pixel - 1, pixel, sigma);
}

float filtered(const cv::Mat_<float>& truth, int r, int c, double sigma)
{
    double sum = 0.0;
    for (int j = -4; j < 6; ++j)
        for (int i = -4; i < 6; ++i)
            sum += spread(j, sigma) * spread(i, sigma) * static_cast<double>(truth(2 * r + j, 2 * c + i));
    return static_cast<float>(sum);
}

}  // namespace

TEST(Burst, GivesTheSameBitsForAnyNumberOfThreads)
{
    BurstSettings settings;
    settings.scene.frame = {64, 48};
    settings.columnOffset = 0.2;
    settings.pixelOffset = 0.1;
    settings.defects.count = 9;
    for (const SceneKind kind : allSceneKinds()) {
        settings.scene.kind = kind;
        const auto simulateWith = [&](int threads) {
            const vxtest::ThreadCount set(threads);
            return simulateBurst(settings);
        };
        const Burst one = simulateWith(1);
        EXPECT_TRUE(sameBits(one, simulateWith(7))) << nameOf(kind);
        settings.seed += 1;
        EXPECT_FALSE(sameBits(one, simulateWith(1))) << nameOf(kind);
    }
}

TEST(Burst, ReferenceFrameIsTheTruthSeenThroughThePointSpread)
{
    for (const SceneKind kind : allSceneKinds()) {
        const Burst burst = simulateBurst(quiet(kind));
        for (int r = 4; r < 44; ++r)
            for (int c = 4; c < 60; ++c)
                ASSERT_NEAR(burst.frames[1](r, c), filtered(burst.truth, r, c, 0.683), 1e-4F) << nameOf(kind);
    }
}

TEST(Burst, PositiveShiftMovesTheSceneRightAndDown)
{
    BurstSettings settings = quiet(SceneKind::target);
    settings.shifts = {{0.0F, 0.0F}, {3.0F, 0.0F}, {0.0F, -2.0F}, {0.5F, -1.5F}};
    settings.frameCount = 4;
    settings.reference = 0;
    const Burst burst = simulateBurst(settings);
    for (int r = 4; r < 44; ++r)
        for (int c = 4; c < 60; ++c) {
            ASSERT_NEAR(burst.frames[1](r, c), burst.frames[0](r, c - 3), 1e-4F);
            ASSERT_NEAR(burst.frames[2](r, c), burst.frames[0](r + 2, c), 1e-4F);
        }
    // Half a small pixel is a whole one of the doubled grid.
    cv::Mat_<float> moved(burst.truth.size(), 0.0F);
    burst.truth(cv::Rect(0, 3, 127, 93)).copyTo(moved(cv::Rect(1, 0, 127, 93)));
    for (int r = 4; r < 42; ++r)
        for (int c = 4; c < 60; ++c)
            ASSERT_NEAR(burst.frames[3](r, c), filtered(moved, r, c, 0.683), 1e-4F);
}

TEST(Burst, ShiftsCountFromTheReference)
{
    BurstSettings settings = quiet(SceneKind::facade);
    settings.reference = 3;
    settings.motion.drift = 2.0;
    const Burst burst = simulateBurst(settings);
    EXPECT_EQ(burst.shifts[3].x, 0.0F);
    EXPECT_EQ(burst.shifts[3].y, 0.0F);
    EXPECT_GT(std::fabs(burst.shifts[0].x) + std::fabs(burst.shifts[0].y), 1.0F);
}

TEST(Burst, NoiseAndOffsetsHaveTheWantedDeviations)
{
    const auto burstWith = [](double BurstSettings::*field, double value) {
        BurstSettings settings = quiet(SceneKind::facade);
        settings.scene.frame = {160, 120};
        settings.shifts.assign(5, {0.0F, 0.0F});
        settings.*field = value;
        return simulateBurst(settings).frames;
    };
    const cv::Mat_<float> clean = burstWith(&BurstSettings::netd, 0.0)[0];
    const auto noisy = burstWith(&BurstSettings::netd, 0.05);
    EXPECT_NEAR(vxtest::deviationBetween(noisy[0], clean), 0.05, 0.001);
    EXPECT_NEAR(vxtest::deviationBetween(noisy[0], noisy[1]), 0.05 * std::sqrt(2.0), 0.0015);

    const auto striped = burstWith(&BurstSettings::columnOffset, 0.4);
    EXPECT_NEAR(vxtest::deviationBetween(striped[0], clean), 0.4, 0.06);
    const cv::Mat stripes = striped[0] - clean;
    EXPECT_LT(cv::norm(stripes.row(0), stripes.row(119), cv::NORM_INF), 1e-5);
    EXPECT_TRUE(vxtest::sameBits(striped[0], striped[4]));

    const auto speckled = burstWith(&BurstSettings::pixelOffset, 0.3);
    EXPECT_NEAR(vxtest::deviationBetween(speckled[0], clean), 0.3, 0.006);
    EXPECT_TRUE(vxtest::sameBits(speckled[0], speckled[4]));
}

TEST(Burst, DefectsStandAtTheirPlacesInEveryFrame)
{
    BurstSettings settings = quiet(SceneKind::facade);
    settings.shifts.assign(5, {0.0F, 0.0F});
    const Burst clean = simulateBurst(settings);
    settings.defects = {6, DefectStyle::markers};
    const Burst marked = simulateBurst(settings);
    ASSERT_EQ(marked.defects.size(), 6U);
    const std::vector<std::uint32_t> patterns{0x81, 0x82, 0x84, 0x85, 0x81, 0x82};
    for (const cv::Mat_<float>& frame : marked.frames)
        for (std::size_t i = 0; i < marked.defects.size(); ++i)
            EXPECT_EQ(std::bit_cast<std::uint32_t>(frame(marked.defects[i])), patterns[i]);
    EXPECT_EQ(cv::countNonZero(marked.frames[2] != clean.frames[2]), 6);

    settings.defects.style = DefectStyle::stuck;
    const Burst stuck = simulateBurst(settings);
    double low = 0.0;
    double high = 0.0;
    cv::minMaxLoc(stuck.truth, &low, &high);
    EXPECT_LT(stuck.frames[4](stuck.defects[0]), low);
    EXPECT_GT(stuck.frames[4](stuck.defects[1]), high);
}

TEST(Burst, RefusesSettingsOutOfRange)
{
    const auto refuses = [](void (*spoil)(BurstSettings&)) {
        BurstSettings settings;
        spoil(settings);
        EXPECT_THROW(simulateBurst(settings), std::invalid_argument);
    };
    refuses([](BurstSettings& s) { s.frameCount = 0; });
    refuses([](BurstSettings& s) { s.reference = 5; });
    refuses([](BurstSettings& s) { s.shifts.resize(2); });
    refuses([](BurstSettings& s) { s.netd = -1.0; });
    refuses([](BurstSettings& s) { s.psfSigma = 0.0; });
    refuses([](BurstSettings& s) { s.scene.frame = {0, 10}; });
    refuses([](BurstSettings& s) { s.scene.zoom = 0.0; });
}

// Each pixel of a turned frame is that of a frame displaced by the pixel's own motion.
TEST(Burst, MovesEachPixelByTurnAndParallax)
{
    BurstSettings settings = quiet(SceneKind::board);
    settings.turn = 0.03;
    settings.parallax = 1.5;
    const Burst burst = simulateBurst(settings);
    ASSERT_EQ(burst.turns[1], 0.0);
    const FineScene scene = makeScene(settings.scene, 12);
    for (const std::size_t k : {std::size_t{0}, std::size_t{3}})
        for (const cv::Point at : {cv::Point(0, 0), cv::Point(32, 5), cv::Point(63, 47)}) {
            const cv::Point2d d = burstMotion(settings, burst.shifts[k], burst.turns[k], at.x, at.y);
            const PointF shift{static_cast<float>(d.x), static_cast<float>(d.y)};
            const cv::Mat_<float> moved = sampleFrame(scene, settings.scene.frame, shift, settings.psfSigma);
            EXPECT_NEAR(burst.frames[k](at), moved(at), 1e-4F);
        }
    const cv::Point2d corner = burstMotion(settings, {1.0F, 0.0F}, 0.1, 63, 47);
    EXPECT_NEAR(corner.x, 1.0 - 0.1 * 23.5, 0.01);
    EXPECT_NEAR(corner.y, 0.1 * 31.5, 1e-9);
    EXPECT_NEAR(burstMotion(settings, {1.0F, 0.0F}, 0.0, 32, 0).x, 2.5, 0.01);
    settings.parallax = -1.0;
    EXPECT_THROW(simulateBurst(settings), std::invalid_argument);
}

TEST(Burst, HasASubjectThatMovesWhileTheSceneStaysStill)
{
    BurstSettings settings = quiet(SceneKind::board);
    settings.shifts.assign(5, {0.0F, 0.0F});
    const Burst still = simulateBurst(settings);
    settings.subject = true;
    settings.subjectSpeed = 4.0;
    const Burst burst = simulateBurst(settings);
    EXPECT_GT(cv::norm(burst.frames[0], burst.frames[4], cv::NORM_INF), 5.0);
    EXPECT_TRUE(vxtest::sameBits(burst.frames[0].rowRange(0, 8), still.frames[0].rowRange(0, 8)));
    // The truth shows it where the reference does.
    EXPECT_NEAR(filtered(burst.truth, 30, 32, settings.psfSigma), burst.frames[1](30, 32), 1e-3F);
    EXPECT_GT(std::fabs(burst.frames[1](30, 32) - still.frames[1](30, 32)), 1.0F);
}
