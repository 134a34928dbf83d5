// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrFloat.h"

#include <gtest/gtest.h>

#include "enhancement/superresolution/EngineHarness.h"
#include "enhancement/superresolution/LineRecorder.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"

using namespace halvor::vx;
using namespace vxtest;

using Engine = Made<SrFloat<SrFloatRegistration2>>;

TEST(SrFloatResult, TellsThatNoCornerWasFoundAndLeavesTheImageAlone)
{
    Engine engine(smallFrame);
    const cv::Mat_<float> flat(smallFrame, 21.0F);
    for (int i = 0; i < windowLength; ++i)
        engine.addFrame(flat);
    cv::Mat_<float> image(smallFrame * 2, 3.0F);
    const float* memory = image.ptr<float>();
    EXPECT_EQ(engine.computeSR(image), -9.0F);
    EXPECT_EQ(image.ptr<float>(), memory);
    EXPECT_EQ(cv::countNonZero(image == 3.0F), 4 * smallFrame.area());
}

TEST(SrFloatThreads, ChangeNoBitOfTheResult)
{
    const cv::Size size{131, 97};
    const vxsupport::Burst burst = burstOf(size, gentleShifts());
    std::vector<Outcome> runs;
    for (const int threads : {1, 2, 7}) {
        const ThreadCount count(threads);
        Engine engine(size);
        runs.push_back(feedAndCompute(engine, burst.frames));
    }
    for (const Outcome& run : runs) {
        EXPECT_EQ(run.result, runs[0].result);
        EXPECT_TRUE(sameBits(run.image, runs[0].image));
    }
    EXPECT_GT(runs[0].result, 1.8F);
}

TEST(SrFloatSizes, LeaveTheSurroundingsOfARegionOfInterestAlone)
{
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    Engine engine(smallFrame);
    const Outcome expected = feedAndCompute(engine, burst.frames);
    cv::Mat_<float> sheet(smallFrame.height * 2 + 4, smallFrame.width * 2 + 6, -1.0F);
    cv::Mat_<float> part = sheet(cv::Rect({3, 2}, smallFrame * 2));
    EXPECT_EQ(engine.computeSR(part), expected.result);
    EXPECT_EQ(cv::norm(part, expected.image, cv::NORM_INF), 0.0);
    part.setTo(-1.0F);
    EXPECT_EQ(cv::countNonZero(sheet != -1.0F), 0);
}

TEST(SrFloatSizes, AreCutOffInEachDirectionForItself)
{
    EXPECT_EQ(SrFloat<SrFloatRegistration2>(5, 3, 1, 1.5F).getOutputSize(), 7 * 4);
    Engine engine(cv::Size(10, 8));
    EXPECT_EQ(messageOf([&] { engine.addFrame(cv::Mat_<float>(10, 8, 1.0F)); }),
              "addFrame(): expected a continuous matrix of 8 rows and 10 columns, got 10 and 8");
    const cv::Mat_<float> sheet(20, 20, 1.0F);
    EXPECT_NE(messageOf([&] { engine.addFrame(sheet(cv::Rect(0, 0, 10, 8))); }), "nothing was thrown");
}

TEST(SrFloatDiagnostics, ReportsStepsOnItsChannelWhileItLives)
{
    DebugSingletonInterface& registry = DebugSingleton::getInstance("");
    const int before = registry.channelCount();
    std::vector<std::string> lines;
    {
        const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
        Engine engine(smallFrame);
        EXPECT_GT(registry.channelCount(), before);
        {
            const HeardProcess heard;
            feedAndCompute(engine, {burst.frames[0]});
            lines = heard.recorder->textsOf("SrFloat", 11);
        }
        feedAndCompute(engine, {burst.frames[1]});
    }
    EXPECT_EQ(registry.channelCount(), before);
    ASSERT_GT(lines.size(), 3U);
    EXPECT_EQ(lines[0], "start addFrame");
    EXPECT_EQ(lines[1], "end addFrame");
    EXPECT_EQ(lines.back(), "end computeSR");
    EXPECT_EQ(messageOf([] { SrFloat<SrFloatRegistration2>(10, 8, 0, 2.0F); }),
              "Invalid reference index specified.");
    EXPECT_EQ(registry.channelCount(), before);
}
