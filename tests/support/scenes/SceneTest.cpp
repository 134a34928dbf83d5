// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <vector>

#include "support/HandMotion.h"
#include "support/PortableMath.h"
#include "support/Random.h"
#include "support/Sensor.h"
#include "support/scenes/Scenes.h"

using namespace vxsupport;

TEST(Scenes, HaveNamesThatLeadBackToThem)
{
    EXPECT_EQ(allSceneKinds().size(), 4U);
    for (const SceneKind kind : allSceneKinds())
        EXPECT_EQ(sceneKindFrom(nameOf(kind)), kind);
    EXPECT_FALSE(sceneKindFrom("kitchen"));
}

TEST(Scenes, DoNotDependOnTheMargin)
{
    const cv::Size frame(90, 70);
    for (const SceneKind kind : allSceneKinds()) {
        const cv::Mat_<float> narrow = sampleTruth(makeScene({.kind = kind, .frame = frame}, 3), frame);
        const cv::Mat_<float> wide = sampleTruth(makeScene({.kind = kind, .frame = frame}, 14), frame);
        EXPECT_EQ(cv::norm(narrow, wide, cv::NORM_INF), 0.0) << nameOf(kind);
    }
}

TEST(Sensor, RefusesDisplacementsBeyondTheMargin)
{
    const cv::Size frame(20, 16);
    const FineScene scene = makeScene({.frame = frame}, requiredMargin(2.0, 0.683));
    EXPECT_NO_THROW(sampleFrame(scene, frame, {-2.0F, 2.0F}, 0.683));
    EXPECT_THROW(sampleFrame(scene, frame, {0.0F, 9.0F}, 0.683), std::invalid_argument);
}

TEST(HandMotion, HasTheMeasuredStatistics)
{
    const std::vector<PointF> positions = drawMotion({}, 20000, Random(3));
    double squares = 0.0;
    double products = 0.0;
    for (std::size_t i = 1; i < positions.size(); ++i) {
        squares += static_cast<double>(positions[i].x) * static_cast<double>(positions[i].x);
        products += static_cast<double>(positions[i].x) * static_cast<double>(positions[i - 1].x);
    }
    EXPECT_NEAR(std::sqrt(squares / 20000), 0.30, 0.01);
    EXPECT_NEAR(products / squares, 0.51, 0.02);
}

TEST(HandMotion, DriftsByWholePixels)
{
    HandMotion still{.deviationX = 0.0, .deviationY = 0.0, .drift = 2.0};
    float travelled = 0.0F;
    for (const PointF& position : drawMotion(still, 30, Random(5))) {
        EXPECT_EQ(position.x, std::floor(position.x));
        EXPECT_EQ(position.y, std::floor(position.y));
        travelled = std::max(travelled, std::hypot(position.x, position.y));
    }
    EXPECT_GT(travelled, 3.0F);
}

TEST(Random, GivesThePublishedSequence)
{
    // First outputs of SplitMix64 for the seed 1234567.
    Random random(1234567);
    EXPECT_EQ(random.next(), 6457827717110365317U);
    EXPECT_EQ(random.next(), 3203168211198807973U);
    EXPECT_EQ(random.next(), 9817491932198370423U);
}

TEST(Random, NormalNumbersFollowTheirDistribution)
{
    constexpr int count = 400000;
    Random random(8);
    double sums[4] = {};
    for (int i = 0; i < count; ++i) {
        const double value = random.normal();
        double power = 1.0;
        for (double& sum : sums)
            sum += (power *= value) / count;
    }
    EXPECT_NEAR(sums[0], 0.0, 0.006);
    EXPECT_NEAR(sums[1], 1.0, 0.01);
    EXPECT_NEAR(sums[2], 0.0, 0.02);
    EXPECT_NEAR(sums[3], 3.0, 0.05);
}

TEST(Random, SplitsGiveOtherNumbers)
{
    const Random root(1);
    EXPECT_NE(root.split(0).next(), root.split(1).next());
    EXPECT_NE(root.split(0).next(), Random(2).split(0).next());
    EXPECT_NE(root.split(0).split(1).next(), root.split(1).split(0).next());
    EXPECT_EQ(root.split(7).next(), root.split(7).next());
}

TEST(PortableMath, AgreesWithTheLibrary)
{
    for (double x = -30.0; x < 30.0; x += 0.37) {
        EXPECT_NEAR(portableExp(x) / std::exp(x), 1.0, 1e-13) << x;
        EXPECT_NEAR(sineOfTurns(x), std::sin(2.0 * M_PI * x), 1e-12) << x;
        EXPECT_NEAR(cosineOfTurns(x), std::cos(2.0 * M_PI * x), 1e-12) << x;
    }
    for (double x = 1e-9; x < 1e9; x *= 3.3)
        EXPECT_NEAR(portableLog(x), std::log(x), 1e-13 * std::max(1.0, std::fabs(std::log(x)))) << x;
    for (double x = 0.05; x < 7.0; x += 0.31)
        EXPECT_NEAR(gaussianShare(-x, x, 1.0), std::erf(x / std::sqrt(2.0)), 1e-13) << x;
    EXPECT_EQ(portableExp(-1000.0), 0.0);
    EXPECT_EQ(cosineOfTurns(0.25), 0.0);
}
