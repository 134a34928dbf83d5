// SPDX-License-Identifier: Apache-2.0
#include "support/Stream.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <stdexcept>

#include "doubles/SameBits.h"

using namespace vxsupport;

namespace {

StreamSettings small(SceneKind kind)
{
    StreamSettings settings;
    settings.scene.kind = kind;
    settings.scene.frame = {80, 60};
    return settings;
}

double largestDeviation(const cv::Mat_<float>& a, const cv::Mat_<float>& b)
{
    return cv::norm(a, b, cv::NORM_INF);
}

}  // namespace

TEST(Stream, GivesTheSameFrameWhateverWasAskedBefore)
{
    const StreamSimulator one(small(SceneKind::outdoor));
    const StreamSimulator other(small(SceneKind::outdoor));
    const cv::Mat_<float> frame = one.frame(17);
    other.frame(3);
    EXPECT_EQ(largestDeviation(other.frame(17), frame), 0.0);
    EXPECT_GT(largestDeviation(other.frame(18), frame), 0.0);
    EXPECT_THROW(one.frame(100), std::out_of_range);
}

TEST(Stream, OnlyTheSubjectChangesTheIdealPicture)
{
    for (const SceneKind kind : allSceneKinds()) {
        StreamSettings settings = small(kind);
        const StreamSimulator stream(settings);
        settings.subject = false;
        const StreamSimulator empty(settings);
        const cv::Mat_<float> background = empty.ideal(0);
        for (const int index : {0, 25, 60}) {
            cv::Mat_<float> image = stream.ideal(index);
            const cv::Rect area = stream.subjectArea(index);
            ASSERT_FALSE(area.empty());
            EXPECT_GT(largestDeviation(image(area), background(area)), 5.0) << nameOf(kind);
            background(area).copyTo(image(area));
            EXPECT_EQ(largestDeviation(image, background), 0.0) << nameOf(kind);
        }
        EXPECT_GT(stream.subjectArea(40).x, stream.subjectArea(0).x);
        EXPECT_TRUE(empty.subjectArea(0).empty());
    }
}

TEST(Stream, NoiseAndPatternHaveTheWantedDeviations)
{
    StreamSettings settings = small(SceneKind::board);
    settings.scene.frame = {160, 120};
    settings.netd = 0.06;
    settings.levelDrift = 0.5;
    const StreamSimulator stream(settings);
    cv::Mat_<float> expected = stream.ideal(10);
    expected += stream.pattern(10);
    expected += 5.0;
    EXPECT_NEAR(vxtest::deviationBetween(stream.frame(10), expected), 0.06, 0.001);
    EXPECT_NEAR(cv::mean(stream.frame(10))[0], cv::mean(expected)[0], 0.002);
    EXPECT_EQ(largestDeviation(stream.pattern(0), stream.pattern(90)), 0.0);
    // Column, row and pixel offsets add up.
    EXPECT_NEAR(vxtest::deviationBetween(stream.pattern(0), cv::Mat_<float>(120, 160, 0.0F)), 0.197, 0.02);
}

TEST(Stream, PatternDriftsSlowlyAndComesBack)
{
    StreamSettings settings = small(SceneKind::target);
    settings.patternPeriod = 80.0;
    const StreamSimulator stream(settings);
    const double step = vxtest::deviationBetween(stream.pattern(0), stream.pattern(1));
    const double quarter = vxtest::deviationBetween(stream.pattern(0), stream.pattern(20));
    EXPECT_GT(step, 0.0);
    EXPECT_LT(step, 0.1 * quarter);
    EXPECT_GT(quarter, 0.2);
    EXPECT_NEAR(largestDeviation(stream.pattern(0), stream.pattern(80)), 0.0, 1e-6);
}

TEST(Stream, RefusesSettingsOutOfRange)
{
    const auto refuses = [](void (*spoil)(StreamSettings&)) {
        StreamSettings settings;
        spoil(settings);
        EXPECT_THROW(StreamSimulator{settings}, std::invalid_argument);
    };
    refuses([](StreamSettings& s) { s.frameCount = 0; });
    refuses([](StreamSettings& s) { s.netd = -1.0; });
    refuses([](StreamSettings& s) { s.rowOffset = -1.0; });
    refuses([](StreamSettings& s) { s.patternPeriod = -1.0; });
    refuses([](StreamSettings& s) { s.psfSigma = 5.0; });
}
