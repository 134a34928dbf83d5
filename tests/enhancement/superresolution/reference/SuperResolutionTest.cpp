// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/reference/SuperResolution.h"

#include <gmock/gmock.h>

#include <opencv2/imgproc.hpp>

#include "core/diagnostics/LogFacility.h"
#include "enhancement/superresolution/EngineHarness.h"
#include "enhancement/superresolution/LineRecorder.h"
#include "support/CapturedOutput.h"

using namespace halvor::vx;
using namespace vxtest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using vxsupport::CapturedOutput;

namespace {

std::vector<cv::Mat_<short>> toCounts(const std::vector<cv::Mat_<float>>& frames, double scale, double offset)
{
    std::vector<cv::Mat_<short>> counts(frames.size());
    for (std::size_t i = 0; i < frames.size(); ++i)
        frames[i].convertTo(counts[i], CV_16S, scale, offset);
    return counts;
}

// Takes what the engine writes to the standard output.
class ReferenceEngine : public testing::Test
{
protected:
    CapturedOutput output_;
    const vxsupport::Burst burst_ = burstOf(smallFrame, gentleShifts());
};

}  // namespace

TEST_F(ReferenceEngine, WritesTheTapsOfItsKernelAndTheTimesOfItsStages)
{
    Made<SuperResolution> engine;
    float sum = 0.0F;
    for (const std::string& tap : output_.lines())
        sum += (sum > 0.0F ? 2.0F : 1.0F) * std::stof(tap);
    EXPECT_NEAR(sum, 1.0F, 1e-4F);
    feedAndCompute(engine, burst_.frames);
    std::vector<std::string> lines = output_.lines();
    lines.erase(lines.begin(), lines.begin() + 6);
    const std::string time = "[0-9.e+-]+\\[ms\\]";
    EXPECT_THAT(
        lines,
        ElementsAre("++++++++++ SuperResolution ++++++++++", MatchesRegex(" registration:         " + time),
                    MatchesRegex(" large_displacement:   " + time),
                    MatchesRegex(" minimization:         " + time),
                    MatchesRegex(" save\\+srfactor calc:   " + time), "+++++++++++++++++++++++++++++"));
}

TEST_F(ReferenceEngine, ReportsItsStepsOnItsOwnChannel)
{
    Made<SuperResolution> engine;
    const auto recorder = std::make_shared<LineRecorder>();
    engine.setDebugDevice(recorder);
    engine.setOutputLevel(11);
    engine.addFrame(burst_.frames[0].ptr<float>());
    compute(engine);
    EXPECT_THAT(recorder->textsOf("DBG", 11),
                ElementsAre("start addFrame", "end addFrame", "start computeSR", "end computeSR"));
    EXPECT_EQ(engine.getInternalDebugChannelObjects().size(), 2U);
}

TEST_F(ReferenceEngine, LogsProgressAndProblems)
{
    LogFacility& log = LogFacility::getInstance();
    log.setLogLevel(LogFacility::progress);
    testing::internal::CaptureStderr();
    Made<SuperResolution> engine;
    engine.setReferenceIndex(0);
    engine.setRegError(1e-12F);
    cv::Mat_<float> bad = burst_.frames[0].clone();
    bad(0, 0) = marker(0x84);
    EXPECT_EQ(engine.addFrame(bad.ptr<float>()), -2);
    engine.addFrame(burst_.frames[3].ptr<float>());
    EXPECT_EQ(compute(engine).result, -3.0F);
    log.setLogLevel(LogFacility::off);
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_THAT(text, MatchesRegex("    calling SuperResolution::loadFrame\\(\\)\n"
                                   "BadPixelHandler discovered really bad pixel.\n"
                                   "    calling SuperResolution::loadFrame\\(\\)\n"
                                   "    calling doRegistration\\(2 , 1, ...\\)\n"
                                   "Num masked pixel 0: [0-9.e+]+ ratio: [0-9.e-]+\n"
                                   " shifts 0: -0.[0-9]+ , -0.[0-9]+\n"
                                   "Too many masked pixels!\n"
                                   "Num masked pixel 1: 0 ratio: 0\n"
                                   " shifts 1: 0 , 0\n"
                                   "    calling minimize\\(\\)\n"
                                   "    calling saveFrame\\(\\)\n"));
}

TEST_F(ReferenceEngine, KeepsTheDefectMapsWhenTheWindowIsEmptied)
{
    Made<SuperResolution> engine;
    feedAndCompute(engine, burst_.frames);
    engine.clearFrames();
    engine.addFrame(burst_.frames[0].ptr<float>());
    EXPECT_GT(compute(engine).result, 0.0F) << "the complete shifts do not shrink either";
    Made<SuperResolution> fresh;
    EXPECT_EQ(messageOf([&] { compute(fresh); }), "bad pixel masks not initalized");
}

// The arithmetic up to the result is the same for counts as floats and as shorts.
TEST_F(ReferenceEngine, WrapsAShortImageWhereAFloatImageGoesOn)
{
    double low = 0.0;
    double high = 0.0;
    cv::minMaxLoc(burst_.frames[1], &low, &high);
    const double scale = 65000.0 / (high - low);
    const std::vector<cv::Mat_<short>> counts = toCounts(burst_.frames, scale, -32500.0 - low * scale);
    std::vector<cv::Mat_<float>> floats(counts.size());
    for (std::size_t i = 0; i < counts.size(); ++i)
        counts[i].convertTo(floats[i], CV_32F);
    Made<SuperResolution> shortEngine;
    Made<SuperResolution> floatEngine;
    floatEngine.setDataIsNUC(true);
    for (const cv::Mat_<short>& frame : counts)
        shortEngine.addFrame(frame.ptr<short>());
    cv::Mat_<short> wrapped(smallFrame * 2);
    const float result = shortEngine.computeSR(wrapped.ptr<short>());
    const Outcome exact = feedAndCompute(floatEngine, floats);
    EXPECT_EQ(result, exact.result);
    for (int y = 0; y < exact.image.rows; ++y)
        for (int x = 0; x < exact.image.cols; ++x)
            ASSERT_EQ(wrapped(y, x), static_cast<short>(static_cast<long>(exact.image(y, x))));
    EXPECT_FALSE(cv::checkRange(exact.image, true, nullptr, -32769.0, 32768.0)) << "none is out of range";
}

TEST_F(ReferenceEngine, NeverSearchesShortFramesForBadPixels)
{
    std::vector<cv::Mat_<short>> counts = toCounts(burst_.frames, 100.0, 0.0);
    for (cv::Mat_<short>& frame : counts)
        frame.row(20).setTo(-300);  // below absolute zero, if these were degrees
    Made<SuperResolution> engine;
    for (const cv::Mat_<short>& frame : counts)
        EXPECT_EQ(engine.addFrame(frame.ptr<short>()), 0);

    cv::Mat_<float> asDegrees;
    counts[0].convertTo(asDegrees, CV_32F);
    EXPECT_EQ(messageOf([&] { engine.addFrame(asDegrees.ptr<float>()); }), "nothing was thrown");
    EXPECT_THAT(messageOf([&] { engine.addFrame(ruined(burst_.frames[0]).ptr<float>()); }),
                HasSubstr("Too many defect pixels"));
}

TEST_F(ReferenceEngine, CombinesTheMovedFramesWithoutAnInverseProblem)
{
    Made<SuperResolution> engine;
    feedAndCompute(engine, {burst_.frames[1]});
    engine.simpleCombine();
    cv::Mat_<float> combined;
    engine.getOutputImage(combined);
    ASSERT_EQ(combined.size(), smallFrame * 2);
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(burst_.frames[1], mean, deviation);
    cv::Mat expected;
    cv::resize((burst_.frames[1] - mean) / deviation[0], expected, combined.size(), 0, 0, cv::INTER_NEAREST);
    EXPECT_LT(cv::norm(combined, expected, cv::NORM_INF), 1e-3);
}

TEST_F(ReferenceEngine, RefusesFramesThatItsTransformCantTake)
{
    EXPECT_THAT(messageOf([] { SuperResolution(97, 72, 5, 2.0F); }), HasSubstr("97 x 72"));
    EXPECT_THAT(messageOf([] { SuperResolution(96, 10, 5, 2.0F); }), HasSubstr("96 x 10"));
    EXPECT_THAT(messageOf([] { SuperResolution(96, 72, 5, 0.5F); }), HasSubstr("0.5"));
    Made<SuperResolution> engine;
    EXPECT_TRUE(engine.checkImageStructureQuality(cv::Mat_<short>((cv::Mat_<short>(1, 2) << -2, 1))));
}
