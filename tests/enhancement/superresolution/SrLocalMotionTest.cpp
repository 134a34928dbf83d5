// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrLocalMotion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "doubles/AllocationCounter.h"
#include "doubles/SameBits.h"
#include "doubles/ThreadCount.h"
#include "enhancement/superresolution/EngineHarness.h"
#include "enhancement/superresolution/SrSingleFrame.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "support/Burst.h"
#include "support/PictureMeasures.h"

using namespace halvor::vx;
using namespace vxtest;
using vxsupport::Burst;
using vxsupport::BurstSettings;
using vxsupport::SceneKind;

namespace {

constexpr int edge = 12;  // of the picture, left out of scores
constexpr float simulatedSpread = 0.683F;

BurstSettings settingsOf(SceneKind scene, std::uint64_t seed)
{
    BurstSettings settings;
    settings.scene.kind = scene;
    settings.scene.seed = seed;
    settings.seed = seed;
    return settings;
}

struct Pictures
{
    int code = 0;
    cv::Mat_<float> local;
    cv::Mat_<float> single;
    cv::Mat_<float> bicubic;
    cv::Mat_<float> effective;
    LocalMotionReport report;
};

cv::Mat_<float> singleOf(const cv::Mat_<float>& frame)
{
    SrSingleFrame engine(frame.cols, frame.rows);
    engine.setPsfSigma(simulatedSpread);
    cv::Mat_<float> picture;
    engine.compute(frame, picture);
    return picture;
}

Pictures picturesOf(const std::vector<cv::Mat_<float>>& frames, int reference = 1)
{
    Pictures pictures;
    const int count = static_cast<int>(frames.size());
    SrLocalMotion engine(frames[0].cols, frames[0].rows, count);
    engine.setPsfSigma(simulatedSpread);
    engine.setReferenceIndex(count - 1 - reference);
    for (const cv::Mat_<float>& frame : frames)
        engine.addFrame(frame);
    pictures.code = engine.computeSR(pictures.local);
    pictures.report = engine.getReport();
    engine.getEffectiveFrames(pictures.effective);
    const cv::Mat_<float>& base = frames[static_cast<std::size_t>(reference)];
    pictures.single = singleOf(base);
    cv::resize(base, pictures.bicubic, {}, 2.0, 2.0, cv::INTER_CUBIC);
    return pictures;
}

double gainOf(const cv::Mat_<float>& picture, const cv::Mat_<float>& over, const cv::Mat_<float>& truth)
{
    return vxsupport::psnr(picture, truth, edge) - vxsupport::psnr(over, truth, edge);
}

bool allFinite(const cv::Mat_<float>& image)
{
    return cv::checkRange(image);
}

}  // namespace

TEST(SrLocalMotion, GainsOnBurstsOfEveryScene)
{
    double sum = 0.0;
    for (const SceneKind scene : vxsupport::allSceneKinds()) {
        SCOPED_TRACE(vxsupport::nameOf(scene));
        const Burst burst = vxsupport::simulateBurst(settingsOf(scene, 3));
        const Pictures pictures = picturesOf(burst.frames);
        EXPECT_EQ(pictures.code, SuperResolution_success);
        EXPECT_GT(gainOf(pictures.local, pictures.single, burst.truth), 5.0);
        sum += gainOf(pictures.local, pictures.bicubic, burst.truth);
        EXPECT_NEAR(static_cast<double>(pictures.report.noise), 0.06, 0.02);
        for (std::size_t k = 0; k < burst.frames.size(); ++k) {
            EXPECT_NEAR(pictures.report.frames[k].shift.x, burst.shifts[k].x, 0.03F);
            EXPECT_NEAR(pictures.report.frames[k].shift.y, burst.shifts[k].y, 0.03F);
        }
    }
    EXPECT_GT(sum / 4.0, 8.5);
}

// One shift for each frame loses decibels here.
TEST(SrLocalMotion, FollowsATurnedCameraAndASceneWithDepth)
{
    BurstSettings settings = settingsOf(SceneKind::board, 3);
    settings.turn = 0.01;
    settings.parallax = 1.0;
    const Burst burst = vxsupport::simulateBurst(settings);
    const Pictures pictures = picturesOf(burst.frames);
    EXPECT_GT(gainOf(pictures.local, pictures.bicubic, burst.truth), 8.0);
    EXPECT_GT(pictures.report.frames[4].largestLocal, 0.3F);
}

TEST(SrLocalMotion, LeavesNoGhostOfAMovingSubject)
{
    BurstSettings settings = settingsOf(SceneKind::board, 3);
    settings.subject = true;
    settings.subjectSpeed = 6.0;
    const Burst burst = vxsupport::simulateBurst(settings);
    const Pictures pictures = picturesOf(burst.frames);
    EXPECT_GT(gainOf(pictures.local, pictures.single, burst.truth), 1.0);
    // Where the single frame errs little, the burst must not err by a part of the subject's contrast.
    double worst = 0.0;
    for (int y = edge; y < burst.truth.rows - edge; ++y)
        for (int x = edge; x < burst.truth.cols - edge; ++x)
            if (std::fabs(pictures.single(y, x) - burst.truth(y, x)) < 0.2F)
                worst =
                    std::max(worst, static_cast<double>(std::fabs(pictures.local(y, x) - burst.truth(y, x))));
    EXPECT_LT(worst, 1.5);
}

TEST(SrLocalMotion, IsTheSingleFrameWhereABurstAddsNothing)
{
    BurstSettings settings = settingsOf(SceneKind::board, 2);
    settings.scene.frame = {96, 72};
    const std::vector<cv::Mat_<float>> frames = vxsupport::simulateBurst(settings).frames;
    settings.motion.deviationX = settings.motion.deviationY = 0.0;
    const std::vector<cv::Mat_<float>> tripod = vxsupport::simulateBurst(settings).frames;
    settings.scene.kind = SceneKind::outdoor;
    settings.scene.seed = 9;
    const std::vector<cv::Mat_<float>> elsewhere = vxsupport::simulateBurst(settings).frames;
    const cv::Mat_<float> flat(72, 96, 20.0F);

    struct Case
    {
        const char* name;
        std::vector<cv::Mat_<float>> frames;
        BurstOutcome outcome;
    };
    for (const Case& c : {Case{"tripod", tripod, BurstOutcome::onePosition},
                          Case{"another scene", {elsewhere[0], frames[1]}, BurstOutcome::noFrameFits},
                          Case{"no structure", {flat, flat}, BurstOutcome::noFrameFits},
                          Case{"structure and none", {flat, frames[1]}, BurstOutcome::noFrameFits}}) {
        SCOPED_TRACE(c.name);
        const Pictures pictures = picturesOf(c.frames);
        EXPECT_EQ(pictures.report.outcome, c.outcome);
        EXPECT_EQ(pictures.report.predictedGain, 0.0F);
        EXPECT_TRUE(allFinite(pictures.local));
        EXPECT_NEAR(cv::mean(pictures.effective)[0], 1.0, 0.02);
        if (c.outcome == BurstOutcome::noFrameFits) {
            EXPECT_EQ(pictures.code, SuperResolution_poorFrame);
        }
        // The noise of a burst is the median of its frames'.
        EXPECT_LT(deviationBetween(pictures.local, pictures.single), 0.05);
    }
    SrLocalMotion engine(96, 72, 3);
    EXPECT_NE(messageOf([&] {
                  cv::Mat_<float> out;
                  engine.computeSR(out);
              }).find("No frame"),
              std::string::npos);
    engine.setPsfSigma(simulatedSpread);
    engine.addFrame(frames[1]);
    cv::Mat_<float> alone;
    EXPECT_EQ(engine.computeSR(alone), SuperResolution_success);
    EXPECT_EQ(engine.getReport().outcome, BurstOutcome::oneFrame);
    EXPECT_TRUE(sameBits(alone, singleOf(frames[1])));
}

TEST(SrLocalMotion, TellsAFrameThatDoesNotFitAndWorksWithTheOthers)
{
    const Burst burst = vxsupport::simulateBurst(settingsOf(SceneKind::board, 3));
    std::vector<cv::Mat_<float>> frames = burst.frames;
    frames[2] = vxsupport::simulateBurst(settingsOf(SceneKind::outdoor, 8)).frames[2];
    const Pictures pictures = picturesOf(frames);
    EXPECT_EQ(pictures.code, SuperResolution_poorFrame);
    EXPECT_LT(pictures.report.frames[2].weight, 0.05F);
    EXPECT_GT(pictures.report.frames[3].weight, 0.9F);
    EXPECT_GT(gainOf(pictures.local, pictures.single, burst.truth), 4.0);
}

TEST(SrLocalMotion, GivesTheSameBitsForAnyNumberOfThreadsAndWhateverItDidBefore)
{
    BurstSettings settings = settingsOf(SceneKind::outdoor, 5);
    settings.turn = 0.02;
    const Burst burst = vxsupport::simulateBurst(settings);
    cv::Mat_<float> expected;
    SrLocalMotion engine(160, 120, 4);
    for (const int threads : {1, 2, 3, 7}) {
        const ThreadCount count(threads);
        engine.clearFrames();
        for (std::size_t k = threads % 2 == 0 ? 1 : 0; k < 5; ++k)  // frame 0 slides out of the window
            engine.addFrame(burst.frames[k]);
        cv::Mat_<float> picture;
        engine.computeSR(picture);
        if (expected.empty())
            expected = picture.clone();
        EXPECT_TRUE(sameBits(picture, expected)) << threads;
    }
}

TEST(SrLocalMotion, TakesNoPixelMemoryAfterTheFirstRun)
{
    const Burst burst = burstOf(smallFrame, gentleShifts());
    SrLocalMotion engine(smallFrame.width, smallFrame.height, 3);
    cv::Mat_<float> picture;
    const auto feed = [&](int i) {
        engine.addFrame(burst.frames[static_cast<std::size_t>(i % 5)]);
        engine.computeSR(picture);
    };
    for (int i = 0; i < 3; ++i)
        feed(i);
    const AllocationCounter counter(static_cast<std::size_t>(smallFrame.area()) / 2);
    for (int i = 3; i < 8; ++i)
        feed(i);
    EXPECT_EQ(counter.count(), 0U);
}

TEST(SrLocalMotion, LetsBadPixelsHaveNoPartAndMarksWhatNobodySees)
{
    BurstSettings settings = settingsOf(SceneKind::board, 3);
    const Burst burst = vxsupport::simulateBurst(settings);
    std::vector<cv::Mat_<float>> frames;
    for (std::size_t k = 0; k < burst.frames.size(); ++k) {
        cv::Mat_<float> frame = burst.frames[k].clone();
        frame(40, 50) = std::numeric_limits<float>::quiet_NaN();  // mended from its neighbours
        frame(90, 30 + static_cast<int>(k)) = 4000.0F;            // hot: within the limits
        for (int i = 0; i < 25; ++i)
            frame(60 + i / 5, 100 + i % 5) = marker(0x81);
        frames.push_back(frame);
    }
    const Pictures pictures = picturesOf(frames);
    EXPECT_EQ(pictures.local(2 * 62, 2 * 102), marker(0x81));
    EXPECT_EQ(pictures.single(2 * 62 + 1, 2 * 102 + 1), marker(0x81));
    for (int y = 76; y < 86; ++y)
        for (int x = 96; x < 106; ++x)
            EXPECT_NEAR(pictures.local(y, x), burst.truth(y, x), 3.0F);
}

TEST(SrLocalMotion, RefusesWhatItCannotTake)
{
    for (const cv::Size size :
         {cv::Size(7, 100), cv::Size(100, 7), cv::Size(-1, 8), cv::Size(40000, 40000)}) {
        EXPECT_NE(messageOf([&] { SrLocalMotion(size.width, size.height, 5); }).find("Invalid image size"),
                  std::string::npos);
        EXPECT_NE(messageOf([&] { SrSingleFrame(size.width, size.height); }).find("Invalid image size"),
                  std::string::npos);
    }
    EXPECT_NE(messageOf([] { SrLocalMotion(16, 16, 1); }).find("at least 2"), std::string::npos);
    SrLocalMotion engine(16, 12, 2);
    for (const float sigma : {0.0F, -1.0F, 4.5F, std::numeric_limits<float>::quiet_NaN()})
        EXPECT_NE(messageOf([&] { engine.setPsfSigma(sigma); }), "nothing was thrown") << sigma;
    EXPECT_NE(messageOf([&] { engine.setReferenceIndex(2); }), "nothing was thrown");
    EXPECT_NE(
        messageOf([&] { engine.addFrame(cv::Mat_<float>(16, 12, 0.0F)); }).find("expected a continuous"),
        std::string::npos);
    EXPECT_NE(
        messageOf([&] { engine.addFrame(ruined(cv::Mat_<float>(12, 16, 1.0F))); }).find("Too many defect"),
        std::string::npos);
    engine.addFrame(cv::Mat_<float>(12, 16, 1.0F));
    cv::Mat_<float> picture;
    engine.computeSR(picture);  // a frame in ruins is still in the window
    EXPECT_EQ(picture.size(), cv::Size(32, 24));
}
