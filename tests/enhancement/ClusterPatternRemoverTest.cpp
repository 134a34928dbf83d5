// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/core.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "core/base/Exception.h"
#include "enhancement/ClusterPatternRemover.h"
#include "enhancement/PixelStatistics.h"

using halvor::vx::ClusterPatternRemover;
using halvor::vx::Exception;
using halvor::vx::PixelStatistics;

namespace {

constexpr float level = 1000.0F;

cv::Mat_<float> sceneWithCluster(const cv::Rect& cluster, float gain)
{
    cv::Mat_<float> scene(40, 50, level);
    scene(cluster).setTo(level * gain);
    return scene;
}

cv::Mat_<float> dampingOf(const ClusterPatternRemover& remover)
{
    cv::Mat damping;
    remover.getDamping(damping, true);
    return damping;
}

// With limits that accept every pixel and a new ratio that replaces the old.
ClusterPatternRemover openRemover(unsigned int width, unsigned int height)
{
    ClusterPatternRemover remover(width, height, 1.0F, 0.0F, 1e6F);
    remover.setStdDevLimit(10.0F);
    return remover;
}

template <typename Call>
void expectException(const std::string& text, Call call)
{
    testing::internal::CaptureStderr();
    EXPECT_THROW(call(), Exception);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr('"' + text + '"'));
}

}  // namespace

TEST(ClusterPattern, LeavesGroupsBeyondTheClusterSizeToTheScene)
{
    for (const float gain : {0.98F, 1.02F}) {
        const cv::Mat_<float> mean = sceneWithCluster({20, 15, 5, 1}, gain);
        for (const auto& [width, height, learned] : {std::tuple(4U, 4U, 0), {5U, 1U, 5}, {5U, 0U, 0}}) {
            ClusterPatternRemover remover = openRemover(width, height);
            remover.learn(mean, cv::Mat_<float>(mean.size(), 0.5F));
            const cv::Mat_<float> damping = dampingOf(remover);
            EXPECT_EQ(cv::countNonZero(damping != 1.0F), learned) << gain;
            EXPECT_NEAR(damping(15, 22), learned == 0 ? 1.0F : 1.0F / gain, 1e-6F) << gain;
        }
    }
}

TEST(ClusterPattern, LearnsOnlyWhereThePixelIsSteadyAndItsNeighboursAreClose)
{
    ClusterPatternRemover remover = openRemover(4, 4);
    remover.setMeanLimit(50.0F);
    cv::Mat_<float> mean = sceneWithCluster({20, 15, 1, 1}, 1.02F);
    mean(30, 30) = level * 1.02F;  // unsteady
    mean(5, 5) = level * 1.2F;     // steep
    mean(10, 40) = 0.0F;
    cv::Mat_<float> stdDev(mean.size(), 0.5F);
    stdDev(30, 30) = -10.0F;
    remover.learn(mean, stdDev);
    const cv::Mat_<float> damping = dampingOf(remover);
    EXPECT_NEAR(damping(15, 20), 1.0F / 1.02F, 1e-6F);
    EXPECT_EQ(damping(30, 30), 1.0F);
    EXPECT_EQ(damping(5, 5), 1.0F);
    EXPECT_EQ(damping(10, 40), 1.0F);
}

TEST(ClusterPattern, MovesByTheWeightOfTheNewRatioAndCopiesLearnOnTheirOwn)
{
    const cv::Mat_<float> mean = sceneWithCluster({20, 15, 1, 1}, 1.25F);
    const cv::Mat_<float> quiet(mean.size(), 0.01F);
    ClusterPatternRemover remover = openRemover(4, 4);
    EXPECT_TRUE(remover.setAlphaDamping(0.5F));
    remover.learn(mean, quiet);
    ClusterPatternRemover copy = remover;
    ClusterPatternRemover assigned = openRemover(1, 1);
    assigned = remover;
    for (ClusterPatternRemover* other : {&copy, &assigned}) {
        other->learn(mean, quiet);
        EXPECT_FLOAT_EQ(dampingOf(*other)(15, 20), 0.85F);
        EXPECT_FLOAT_EQ(dampingOf(remover)(15, 20), 0.9F);
    }
    EXPECT_TRUE(remover.setAlphaDamping(0.0F));
    remover.learn(mean, quiet);
    EXPECT_FLOAT_EQ(dampingOf(remover)(15, 20), 0.9F);
}

TEST(ClusterPattern, SmoothsByMedianOrGaussian)
{
    const cv::Mat_<float> mean = sceneWithCluster({20, 15, 1, 1}, 1.25F);
    const cv::Mat_<float> quiet(mean.size(), 0.01F);
    ClusterPatternRemover remover = openRemover(4, 4);
    remover.learn(mean, quiet, ClusterPatternRemover::GAUSSIAN);
    EXPECT_FLOAT_EQ(dampingOf(remover)(15, 20), (1250.0F * 0.25F + 1000.0F * 0.75F) / 1250.0F);
    const cv::Mat_<float> before = dampingOf(remover);
    expectException("unsupported mode", [&] {
        remover.learn(cv::Mat_<float>(3, 3, 1.0F), cv::Mat_<float>(3, 3, 0.0F),
                      static_cast<ClusterPatternRemover::FILTERMODE>(2));
    });
    EXPECT_EQ(dampingOf(remover).size(), before.size());
}

TEST(ClusterPattern, LearnsFromFramesOfAUniformScene)
{
    std::vector<cv::Mat> frames;
    for (const float flicker : {-3.0F, 0.0F, 3.0F}) {
        cv::Mat_<ushort> frame(sceneWithCluster({20, 15, 2, 2}, 1.03F) + flicker);
        frames.push_back(frame);
    }
    ClusterPatternRemover remover = openRemover(4, 4);
    remover.learn(frames);
    EXPECT_FLOAT_EQ(dampingOf(remover)(15, 20), level / 1030.0F);
    EXPECT_FLOAT_EQ(dampingOf(remover)(16, 21), level / 1030.0F);
}

TEST(ClusterPattern, NamesWhatItCannotLearnFrom)
{
    ClusterPatternRemover remover = openRemover(4, 4);
    const cv::Mat_<float> image(5, 5, 1.0F);
    expectException("mean and standard deviation must be images of one size",
                    [&] { remover.learn(image, cv::Mat_<float>(5, 4, 0.0F)); });
    expectException("mean and standard deviation must be images of one size",
                    [&] { remover.learn(cv::Mat_<float>(), cv::Mat_<float>()); });
    expectException("a standard deviation needs at least two frames",
                    [&] { remover.learn(std::vector<cv::Mat>{image}); });
    expectException("the frames differ in size", [&] {
        remover.learn(std::vector<cv::Mat>{image, cv::Mat_<float>(5, 4, 0.0F)});
    });
    expectException("a frame must be an image of one channel", [&] {
        remover.learn(std::vector<cv::Mat>{image, cv::Mat(5, 5, CV_8UC3)});
    });
    EXPECT_TRUE(dampingOf(remover).empty());
}

TEST(ClusterPattern, KeepsItsSettingsAndForgetsWithAnotherClusterSize)
{
    ClusterPatternRemover remover(3, 2, 0.25F, 9.0F, 7.0F);
    EXPECT_EQ(remover.getStdDevLimit(), 0.25F);
    EXPECT_EQ(remover.getAlphaDamping(), 0.25F);
    EXPECT_EQ(remover.getMeanLimit(), 7.0F);
    EXPECT_FALSE(remover.setAlphaDamping(1.01F));
    EXPECT_FALSE(remover.setAlphaDamping(std::nanf("")));
    EXPECT_EQ(remover.getAlphaDamping(), 0.25F);
    EXPECT_TRUE(remover.setAlphaDamping(1.0F));

    const cv::Mat_<float> image(5, 5, 1.0F);
    remover.learn(image, cv::Mat_<float>(5, 5, 0.0F));
    cv::Mat shared;
    remover.getDamping(shared, false);
    shared.at<float>(0, 0) = 3.0F;
    EXPECT_EQ(dampingOf(remover)(0, 0), 3.0F);
    remover.setClusterSize(3, 2);
    remover.setClusterWidth(4);
    remover.setClusterHeight(6);
    EXPECT_FALSE(dampingOf(remover).empty());
    EXPECT_EQ(remover.getClusterWidth(), 4U);
    EXPECT_EQ(remover.getClusterHeight(), 6U);
    remover.setClusterSize(4, 5);
    EXPECT_TRUE(dampingOf(remover).empty());
}

TEST(PixelStatistics, GathersMeanAndStandardDeviationInTime)
{
    PixelStatistics statistics;
    EXPECT_TRUE(statistics.mean().empty());
    for (const double value : {1.0, 2.0, 6.0})
        statistics.add((cv::Mat_<double>(1, 2) << value, 5.0));
    EXPECT_EQ(statistics.count(), 3);
    EXPECT_FLOAT_EQ(statistics.mean()(0, 0), 3.0F);
    EXPECT_FLOAT_EQ(statistics.stdDev()(0, 0), std::sqrt(7.0F));
    EXPECT_EQ(statistics.stdDev()(0, 1), 0.0F);
}
