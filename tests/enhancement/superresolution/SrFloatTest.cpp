#include "enhancement/superresolution/SrFloat.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <mutex>
#include <opencv2/imgproc.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/base/Exception.h"
#include "core/diagnostics/DebugSingleton.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "enhancement/superresolution/TestBursts.h"
#include "support/PictureMeasures.h"

using namespace halvor::vx;
using namespace vxtest;

namespace {

using Engine = SrFloat<SrFloatRegistration2>;

constexpr int window = 5;

std::unique_ptr<Engine> engineFor(cv::Size size)
{
    auto engine = std::make_unique<Engine>(size.width, size.height, window, 2.0F);
    engine->setReferenceIndex(3);
    return engine;
}

struct Outcome
{
    float result = 0.0F;
    cv::Mat_<float> image;
    std::vector<PointF> shifts;
    std::vector<cv::Mat_<unsigned char>> masks;
};

Outcome compute(Engine& engine)
{
    Outcome run;
    run.result = engine.computeSR(run.image);
    engine.getCompleteShifts(run.shifts);
    engine.getMasks(run.masks);
    return run;
}

Outcome feedAndCompute(Engine& engine, const std::vector<cv::Mat_<float>>& frames)
{
    for (const cv::Mat_<float>& frame : frames)
        EXPECT_EQ(engine.addFrame(frame), 0);
    return compute(engine);
}

float resultAtShift(PointF shift)
{
    std::vector<PointF> shifts = gentleShifts();
    shifts[3] = shift;
    const vxsupport::Burst burst = burstOf({160, 120}, shifts);
    return feedAndCompute(*engineFor({160, 120}), burst.frames).result;
}

std::string textThrownBy(const std::function<void()>& work)
{
    try {
        work();
    } catch (const char* text) {
        return text;
    }
    return "nothing was thrown";
}

std::string exceptionOf(const std::function<void()>& work)
{
    testing::internal::CaptureStderr();
    std::string message = "nothing was raised";
    try {
        work();
    } catch (const Exception& failure) {
        message = failure.what();
    }
    testing::internal::GetCapturedStderr();
    return message;
}

class RecordingDevice : public DebugDeviceBase
{
public:
    void write(std::string_view channel, std::string_view text, int level) override
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (text.find("Frame") != std::string_view::npos || text.find("computeSR") != std::string_view::npos)
            lines.push_back(std::string(channel) + "|" + std::string(text) + "|" + std::to_string(level));
    }
    std::vector<std::string> lines;

private:
    std::mutex mutex_;
};

}  // namespace

class SuperResolvedScene : public testing::TestWithParam<vxsupport::SceneKind>
{};

// A displacement with the wrong sign anywhere, or frames that are paired wrongly, cost more than 10 dB here.
TEST_P(SuperResolvedScene, ComesCloserToTheTruthThanInterpolation)
{
    vxsupport::BurstSettings settings;
    settings.scene.kind = GetParam();
    settings.scene.frame = {160, 120};
    settings.shifts = gentleShifts();
    const vxsupport::Burst burst = vxsupport::simulateBurst(settings);
    const Outcome run = feedAndCompute(*engineFor(settings.scene.frame), burst.frames);

    cv::Mat_<float> bicubic;
    cv::resize(burst.frames[1], bicubic, run.image.size(), 0, 0, cv::INTER_CUBIC);
    const double gain =
        vxsupport::psnr(run.image, burst.truth, 12) - vxsupport::psnr(bicubic, burst.truth, 12);
    EXPECT_GT(gain, 3.0);
    EXPECT_GT(run.result, 1.8F);
    EXPECT_LE(run.result, 2.0F);
    for (std::size_t i = 0; i < burst.shifts.size(); ++i) {
        EXPECT_NEAR(run.shifts[i].x, burst.shifts[i].x, 0.06F) << i;
        EXPECT_NEAR(run.shifts[i].y, burst.shifts[i].y, 0.06F) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(All, SuperResolvedScene, testing::ValuesIn(vxsupport::allSceneKinds()),
                         [](const auto& scene) { return std::string(vxsupport::nameOf(scene.param)); });

TEST(SrFloatWindow, ReplacesTheOldestFrameAndForgetsIt)
{
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    const auto engine = engineFor(smallFrame);
    const Outcome first = feedAndCompute(*engine, burst.frames);
    ASSERT_GT(first.result, 0.0F);
    for (int i = 0; i < 3; ++i)
        engine->addFrame(burst.frames[static_cast<std::size_t>(i)]);
    const Outcome mixed = compute(*engine);
    EXPECT_FALSE(sameBits(mixed.image, first.image));
    for (int i = 3; i < window; ++i)
        engine->addFrame(burst.frames[static_cast<std::size_t>(i)]);
    const Outcome again = compute(*engine);
    EXPECT_TRUE(sameBits(again.image, first.image));
    EXPECT_EQ(again.result, first.result);
}

TEST(SrFloatWindow, TakesTheReferenceCountedBackFromTheNewestFrameOrTheOldestThereIs)
{
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    const auto engine = engineFor(smallFrame);
    for (int count = 1; count <= window; ++count) {
        engine->addFrame(burst.frames[static_cast<std::size_t>(count - 1)]);
        const Outcome run = compute(*engine);
        ASSERT_EQ(run.shifts.size(), static_cast<std::size_t>(count));
        const std::size_t reference = count == window ? 1 : 0;
        EXPECT_EQ(run.shifts[reference].x, 0.0F) << count;
        EXPECT_EQ(run.shifts[reference].y, 0.0F) << count;
        EXPECT_EQ(cv::countNonZero(run.masks[reference]), smallFrame.area()) << count;
    }
    engine->setReferenceIndex(0);
    EXPECT_EQ(compute(*engine).shifts[4].x, 0.0F);
}

TEST(SrFloatResult, CountsTheFramesThatCoverAPixel)
{
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    const auto engine = engineFor(smallFrame);
    for (const float expected : {1.0F, 1.25F, 1.5F, 1.75F, 2.0F, 2.0F}) {
        engine->addFrame(burst.frames[0]);
        EXPECT_EQ(compute(*engine).result, expected);
    }
}

TEST(SrFloatResult, CountsNoFurtherThanTheFirstEngineOfTheProcessDoes)
{
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    feedAndCompute(*engineFor(smallFrame), burst.frames);
    Engine large(smallFrame.width, smallFrame.height, 7, 3.0F);
    EXPECT_EQ(large.getOutputSize(), 9 * smallFrame.area());
    for (int i = 0; i < 7; ++i)
        large.addFrame(burst.frames[0]);
    const Outcome run = compute(large);
    EXPECT_EQ(run.image.size(), smallFrame * 3);
    EXPECT_EQ(run.result, 2.0F);
}

TEST(SrFloatResult, WarnsOfLargeDisplacementsButOfNoneUpwards)
{
    // A tenth of the height of 120 is 12.
    EXPECT_EQ(resultAtShift({13.2F, 0.0F}), -6.0F);
    EXPECT_EQ(resultAtShift({-13.2F, 0.0F}), -6.0F);
    EXPECT_EQ(resultAtShift({0.0F, 13.2F}), -6.0F);
    EXPECT_GT(resultAtShift({0.0F, -13.2F}), 1.0F);
    EXPECT_GT(resultAtShift({11.0F, 11.0F}), 1.0F);
}

TEST(SrFloatResult, WarnsOfAPoorFrameUnlessADisplacementIsLarge)
{
    const vxsupport::Burst gentle = burstOf(smallFrame, gentleShifts());
    auto engine = engineFor(smallFrame);
    engine->setRegError(1e-12F);
    const Outcome poor = feedAndCompute(*engine, gentle.frames);
    EXPECT_EQ(poor.result, -3.0F);
    // The image is written all the same: from the reference frame alone it is an enlargement.
    EXPECT_TRUE(cv::checkRange(poor.image));
    EXPECT_GT(vxsupport::psnr(poor.image, gentle.truth, 12), 15.0);

    std::vector<PointF> shifts = gentleShifts();
    shifts[3] = {9.0F, 0.0F};
    const vxsupport::Burst wide = burstOf(smallFrame, shifts);
    engine = engineFor(smallFrame);
    engine->setRegError(1e-12F);
    EXPECT_EQ(feedAndCompute(*engine, wide.frames).result, -6.0F);
}

TEST(SrFloatResult, TellsThatNoCornerWasFoundAndLeavesTheImageAlone)
{
    const auto engine = engineFor(smallFrame);
    const cv::Mat_<float> flat(smallFrame, 21.0F);
    for (int i = 0; i < window; ++i)
        engine->addFrame(flat);
    cv::Mat_<float> image(smallFrame * 2, 3.0F);
    const float* memory = image.ptr<float>();
    EXPECT_EQ(engine->computeSR(image), -9.0F);
    EXPECT_EQ(image.ptr<float>(), memory);
    EXPECT_EQ(cv::norm(image, cv::NORM_INF), 3.0);
    EXPECT_EQ(cv::countNonZero(image == 3.0F), 4 * smallFrame.area());
}

TEST(SrFloatRecovery, AFlatFirstFrameSpoilsNothingThatFollows)
{
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    const auto engine = engineFor(smallFrame);
    engine->addFrame(cv::Mat_<float>(smallFrame, 21.0F));
    const Outcome run = feedAndCompute(*engine, burst.frames);
    EXPECT_GT(run.result, 1.8F);
    EXPECT_TRUE(cv::checkRange(run.image));
}

TEST(SrFloatRecovery, RunsOnAfterFramesThatLeaveTheWindowsOutOfStep)
{
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    const auto engine = engineFor(smallFrame);
    const Outcome expected = feedAndCompute(*engine, burst.frames);

    engine->clearFrames();
    EXPECT_LT(exceptionOf([&] { compute(*engine); }).size(), 100U);
    for (const cv::Mat_<float>& frame : burst.frames) {
        engine->addFrame(frame);
        exceptionOf([&] { compute(*engine); });
    }
    EXPECT_TRUE(sameBits(compute(*engine).image, expected.image));

    // A frame beyond repair is in the window, but was not prepared for registration.
    EXPECT_EQ(exceptionOf([&] { engine->addFrame(ruined(burst.frames[0])); }),
              "Too many defect pixels. No processing possible.");
    exceptionOf([&] { compute(*engine); });
    EXPECT_TRUE(sameBits(feedAndCompute(*engine, burst.frames).image, expected.image));
}

TEST(SrFloatRecovery, SurvivesFramesBeyondRepairAndQueriesBeforeTheFirstFrame)
{
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    const auto engine = engineFor(smallFrame);
    exceptionOf([&] { compute(*engine); });
    for (int i = 0; i < window; ++i) {
        exceptionOf([&] { engine->addFrame(ruined(burst.frames[0])); });
        exceptionOf([&] { compute(*engine); });
    }
    EXPECT_GT(feedAndCompute(*engine, burst.frames).result, 1.8F);
}

TEST(SrFloatRecovery, RefusesADisplacementOfHalfTheHeight)
{
    const cv::Size strip{128, 24};
    std::vector<PointF> shifts = gentleShifts();
    shifts[4] = {13.0F, 0.0F};
    const vxsupport::Burst burst = burstOf(strip, shifts);
    const auto engine = engineFor(strip);
    for (const cv::Mat_<float>& frame : burst.frames)
        engine->addFrame(frame);
    EXPECT_EQ(exceptionOf([&] { compute(*engine); }), "Too large displacement");
}

TEST(SrFloatBadPixels, LeaveNoTraceInTheImage)
{
    vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    const Outcome clean = feedAndCompute(*engineFor(smallFrame), burst.frames);
    const auto engine = engineFor(smallFrame);
    for (cv::Mat_<float>& frame : burst.frames) {
        frame(30, 40) = marker(0x81);
        frame(50, 20) = std::numeric_limits<float>::quiet_NaN();
    }
    const Outcome repaired = feedAndCompute(*engine, burst.frames);
    EXPECT_TRUE(cv::checkRange(repaired.image));
    EXPECT_LT(cv::norm(repaired.image, clean.image, cv::NORM_INF), 6.0);
    // Where every frame's pixel is good the refill is a mean of them; a marker would read as 0.
    cv::Mat_<float> around = repaired.image(cv::Rect(74, 54, 13, 13));
    double low = 0.0;
    cv::minMaxLoc(around, &low, nullptr);
    double expectedLow = 0.0;
    cv::minMaxLoc(clean.image(cv::Rect(74, 54, 13, 13)), &expectedLow, nullptr);
    EXPECT_NEAR(low, expectedLow, 3.0);

    cv::Mat_<float> corner = burst.frames[0].clone();
    corner(0, 0) = marker(0x84);
    EXPECT_EQ(engine->addFrame(corner), -2);
}

TEST(SrFloatThreads, ChangeNoBitOfTheResult)
{
    const cv::Size size{131, 97};
    const vxsupport::Burst burst = burstOf(size, gentleShifts());
    std::vector<Outcome> runs;
    for (const int threads : {1, 2, 7}) {
        const ThreadCount count(threads);
        runs.push_back(feedAndCompute(*engineFor(size), burst.frames));
    }
    for (const Outcome& run : runs) {
        EXPECT_EQ(run.result, runs[0].result);
        EXPECT_TRUE(sameBits(run.image, runs[0].image));
        for (std::size_t i = 0; i < run.shifts.size(); ++i) {
            EXPECT_EQ(run.shifts[i].x, runs[0].shifts[i].x);
            EXPECT_EQ(run.shifts[i].y, runs[0].shifts[i].y);
            EXPECT_EQ(cv::norm(run.masks[i], runs[0].masks[i], cv::NORM_INF), 0.0);
        }
    }
    EXPECT_GT(runs[0].result, 1.8F);
}

TEST(SrFloatStructure, IsTheSpanOfTheFrameWithTheThresholdIncluded)
{
    const auto engine = engineFor({8, 6});
    cv::Mat_<float> frame(6, 8, 20.0F);
    frame(2, 3) = 22.0F;
    EXPECT_TRUE(engine->checkImageStructureQuality(frame));
    frame(2, 3) = 21.875F;
    EXPECT_FALSE(engine->checkImageStructureQuality(frame));
    engine->setMinStructureThreshold(1.875F);
    EXPECT_TRUE(engine->checkImageStructureQuality(frame));
    engine->setMinStructureThreshold(-1.0F);
    EXPECT_TRUE(engine->checkImageStructureQuality(cv::Mat_<float>(6, 8, 20.0F)));
}

TEST(SrFloatSettings, StartAtTheirDefaults)
{
    const Engine engine(10, 8, window, 2.0F);
    EXPECT_EQ(engine.getInputSize(), 80);
    EXPECT_EQ(engine.getOutputSize(), 320);
    EXPECT_EQ(engine.getWindowSize(), 5);
    EXPECT_EQ(engine.getReferenceIndex(), 0);
    EXPECT_EQ(engine.getPsfSigma(), 0.683F);
    EXPECT_EQ(engine.getWeightTV(), 400.0F);
    EXPECT_EQ(engine.getRegError(), 0.0001F);
    EXPECT_EQ(engine.getRelativeResidue(), 0.007F);
    EXPECT_EQ(engine.getMaxCGIters(), 8);
    // Both directions are cut off, each for itself.
    EXPECT_EQ(Engine(5, 3, 1, 1.5F).getOutputSize(), 7 * 4);
}

TEST(SrFloatSettings, KeepWhatIsInTheirRangeAndRefuseTheRest)
{
    Engine engine(10, 8, window, 2.0F);
    constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
    const std::string index = "Invalid reference index specified.";
    const std::string sigma = "Invalid standard deviation of the sensor psf specified.";
    const std::string weight = "Invalid total-variation term weight specified.";
    const std::string error = "Invalid maximum registration error specified.";
    const std::string iterations = "Invalid maximum number of iterations specified.";

    engine.setReferenceIndex(4);
    EXPECT_EQ(textThrownBy([&] { engine.setReferenceIndex(5); }), index);
    EXPECT_EQ(textThrownBy([&] { engine.setReferenceIndex(-1); }), index);
    EXPECT_EQ(engine.getReferenceIndex(), 4);

    engine.setPsfSigma(0.01F);
    for (const float refused : {0.0F, -0.5F, notANumber})
        EXPECT_EQ(textThrownBy([&] { engine.setPsfSigma(refused); }), sigma);
    EXPECT_EQ(engine.getPsfSigma(), 0.01F);

    engine.setWeightTV(1.0F);
    for (const float refused : {0.5F, -3.0F, notANumber})
        EXPECT_EQ(textThrownBy([&] { engine.setWeightTV(refused); }), weight);
    EXPECT_EQ(engine.getWeightTV(), 1.0F);

    engine.setRegError(1.0F);
    for (const float refused : {0.0F, -0.1F, 1.0001F, notANumber})
        EXPECT_EQ(textThrownBy([&] { engine.setRegError(refused); }), error);
    EXPECT_EQ(engine.getRegError(), 1.0F);

    // The float nearest to 1e-6 lies below it; the next one is accepted.
    const float residue = std::nextafter(1e-6F, 1.0F);
    engine.setRelativeResidue(residue);
    for (const float refused : {1e-6F, 1e-7F, 0.0F, notANumber})
        EXPECT_EQ(textThrownBy([&] { engine.setRelativeResidue(refused); }), weight);
    EXPECT_EQ(engine.getRelativeResidue(), residue);

    engine.setMaxCGIters(1);
    for (const int refused : {0, -1})
        EXPECT_EQ(textThrownBy([&] { engine.setMaxCGIters(refused); }), iterations);
    EXPECT_EQ(engine.getMaxCGIters(), 1);
}

TEST(SrFloatSizes, RefuseWhatNoImageCanHave)
{
    EXPECT_EQ(textThrownBy([] { Engine(10, 8, 0, 2.0F); }), "Invalid reference index specified.");
    EXPECT_EQ(textThrownBy([] { Engine(10, 8, -1, 2.0F); }), "Invalid reference index specified.");
    EXPECT_EQ(exceptionOf([] { Engine(-1, 8, 5, 2.0F); }), "Invalid image size: -1 x 8");
    EXPECT_EQ(exceptionOf([] { Engine(65536, 65536, 5, 2.0F); }), "Invalid image size: 65536 x 65536");
    EXPECT_EQ(exceptionOf([] { Engine(40000, 40000, 5, 2.0F); }), "Invalid image size: 80000 x 80000");
    EXPECT_THAT(exceptionOf([] { Engine(10, 8, 5, -2.0F); }), testing::HasSubstr("Invalid enlargement"));
    EXPECT_THAT(exceptionOf([] { Engine(10, 8, 5, std::numeric_limits<float>::quiet_NaN()); }),
                testing::HasSubstr("Invalid enlargement"));

    const auto engine = engineFor({10, 8});
    EXPECT_EQ(exceptionOf([&] { engine->addFrame(cv::Mat_<float>(10, 8, 1.0F)); }),
              "addFrame(): expected a continuous matrix of 8 rows and 10 columns, got 10 and 8");
    const cv::Mat_<float> sheet(20, 20, 1.0F);
    EXPECT_NE(exceptionOf([&] { engine->addFrame(sheet(cv::Rect(0, 0, 10, 8))); }), "nothing was raised");
}

TEST(SrFloatSizes, LeaveTheSurroundingsOfARegionOfInterestAlone)
{
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    const auto engine = engineFor(smallFrame);
    const Outcome expected = feedAndCompute(*engine, burst.frames);
    cv::Mat_<float> sheet(smallFrame.height * 2 + 4, smallFrame.width * 2 + 6, -1.0F);
    cv::Mat_<float> part = sheet(cv::Rect({3, 2}, smallFrame * 2));
    EXPECT_EQ(engine->computeSR(part), expected.result);
    EXPECT_EQ(cv::norm(part, expected.image, cv::NORM_INF), 0.0);
    part.setTo(-1.0F);
    EXPECT_EQ(cv::countNonZero(sheet != -1.0F), 0);
}

TEST(SrFloatDiagnostics, ReportsStepsOnItsChannelWhileItLives)
{
    DebugSingletonInterface& registry = DebugSingleton::getInstance("");
    const int before = registry.channelCount();
    const auto device = std::make_shared<RecordingDevice>();
    {
        const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
        const auto engine = engineFor(smallFrame);
        EXPECT_GT(registry.channelCount(), before);
        registry.setDebugDevice(device);
        registry.setOutputLevel(11);
        feedAndCompute(*engine, {burst.frames[0]});
        registry.setOutputLevel(0);
        feedAndCompute(*engine, {burst.frames[1]});
        registry.setDebugDevice(nullptr);
    }
    EXPECT_EQ(registry.channelCount(), before);
    EXPECT_THAT(device->lines, testing::ElementsAre("SrFloat|start addFrame|11", "SrFloat|end addFrame|11",
                                                    "SrFloat|end computeSR|11"));
    EXPECT_EQ(textThrownBy([] { Engine(10, 8, 0, 2.0F); }), "Invalid reference index specified.");
    EXPECT_EQ(registry.channelCount(), before);
}
