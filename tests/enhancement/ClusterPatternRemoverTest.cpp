#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/core.hpp>
#include <random>
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
void expectException(const char* text, Call&& call)
{
    testing::internal::CaptureStderr();
    try {
        call();
        ADD_FAILURE() << "nothing was raised";
    } catch (const Exception& error) {
        EXPECT_STREQ(error.what(), text);
    }
    testing::internal::GetCapturedStderr();
}

}  // namespace

TEST(ClusterPattern, FlattensAClusterOfBrightPixels)
{
    ClusterPatternRemover remover = openRemover(4, 4);
    const cv::Mat_<float> mean = sceneWithCluster({20, 15, 2, 1}, 1.02F);
    remover.learn(mean, cv::Mat_<float>(mean.size(), 0.5F));
    const cv::Mat_<float> flat(mean.mul(dampingOf(remover)));
    EXPECT_NEAR(flat(15, 20), level, 0.01F);
    EXPECT_NEAR(flat(15, 21), level, 0.01F);
    EXPECT_EQ(dampingOf(remover)(3, 3), 1.0F);
}

TEST(ClusterPattern, LeavesGroupsBeyondTheClusterSizeToTheScene)
{
    const cv::Mat_<float> quiet(40, 50, 0.5F);
    for (const float gain : {0.98F, 1.02F}) {
        const cv::Mat_<float> mean = sceneWithCluster({20, 15, 5, 1}, gain);
        ClusterPatternRemover narrow = openRemover(4, 4);
        narrow.learn(mean, quiet);
        EXPECT_EQ(cv::countNonZero(dampingOf(narrow)(cv::Rect(20, 15, 5, 1)) != 1.0F), 0) << gain;
        ClusterPatternRemover wide = openRemover(5, 1);
        wide.learn(mean, quiet);
        EXPECT_EQ(cv::countNonZero(dampingOf(wide)(cv::Rect(20, 15, 5, 1)) != 1.0F), 5) << gain;
        ClusterPatternRemover low = openRemover(5, 0);
        low.learn(mean, quiet);
        EXPECT_EQ(cv::countNonZero(dampingOf(low)(cv::Rect(20, 15, 5, 1)) != 1.0F), 0) << gain;
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

TEST(ClusterPattern, MovesByTheWeightOfTheNewRatio)
{
    const cv::Mat_<float> mean = sceneWithCluster({20, 15, 1, 1}, 1.25F);
    const cv::Mat_<float> quiet(mean.size(), 0.01F);
    ClusterPatternRemover remover = openRemover(4, 4);
    EXPECT_TRUE(remover.setAlphaDamping(0.5F));
    remover.learn(mean, quiet);
    EXPECT_FLOAT_EQ(dampingOf(remover)(15, 20), 0.9F);
    remover.learn(mean, quiet);
    EXPECT_FLOAT_EQ(dampingOf(remover)(15, 20), 0.85F);
    EXPECT_TRUE(remover.setAlphaDamping(0.0F));
    remover.learn(mean, quiet);
    EXPECT_FLOAT_EQ(dampingOf(remover)(15, 20), 0.85F);
}

TEST(ClusterPattern, CopiesLearnOnTheirOwn)
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
    std::mt19937 random(2);
    std::normal_distribution<float> noise(0.0F, 3.0F);
    const cv::Mat_<float> mean = sceneWithCluster({20, 15, 2, 2}, 1.03F);
    std::vector<cv::Mat> frames;
    for (int i = 0; i < 60; ++i) {
        cv::Mat_<ushort> frame(mean.size());
        for (int y = 0; y < mean.rows; ++y)
            for (int x = 0; x < mean.cols; ++x)
                frame(y, x) = static_cast<ushort>(std::lround(mean(y, x) + noise(random)));
        frames.push_back(frame);
    }
    ClusterPatternRemover remover = openRemover(4, 4);
    remover.learn(frames);
    const cv::Mat_<float> flat(mean.mul(dampingOf(remover)));
    EXPECT_NEAR(flat(15, 20), level, 2.0F);
    EXPECT_NEAR(flat(16, 21), level, 2.0F);
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
