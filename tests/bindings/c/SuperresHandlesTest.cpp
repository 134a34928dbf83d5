// SPDX-License-Identifier: Apache-2.0
// The engines behind handles give the bits of their classes.

#include <cmath>

#include "bindings/c/Handles.h"
#include "enhancement/superresolution/SrFloat.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "enhancement/superresolution/SrLocalMotion.h"
#include "enhancement/superresolution/SrSingleFrame.h"
#include "enhancement/superresolution/TestBursts.h"
#include "enhancement/superresolution/reference/SuperResolution.h"
#include "support/CapturedOutput.h"
#include "support/EngineRuns.h"

using namespace vxtest;
using namespace halvor::vx;
using vxsupport::EngineKind;

namespace {

// The engines take this one as their reference of five.
constexpr int referenceFrame = 1;

vxsupport::Burst testBurst(cv::Size size = smallFrame)
{
    return burstOf(size, gentleShifts());
}

struct EngineCase
{
    const char* kind;
    EngineKind engine;
};

class FloatEngineHandles : public testing::TestWithParam<EngineCase>
{};

TEST_P(FloatEngineHandles, GiveImageStepsAndShiftsOfTheClass)
{
    const vxsupport::Burst burst = testBurst();
    const vxsupport::EngineRun expected =
        vxsupport::runEngine(GetParam().engine, burst.frames, referenceFrame);
    const Handle engine(GetParam().kind);
    const vxkit_burst_report report = addFrames(engine, burst.frames);
    EXPECT_EQ(report.has_image, 1);
    EXPECT_EQ(report.code, 0);
    EXPECT_EQ(report.iterations, expected.iterations);
    EXPECT_EQ(report.factor, static_cast<double>(expected.result));
    EXPECT_TRUE(sameBits(resultOf<float>(engine, "image"), expected.image));
    ASSERT_EQ(report.frames, 5);
    for (int i = 0; i < 5; ++i) {
        vxkit_frame_report frame{};
        ASSERT_EQ(vxkit_frame_report_at(engine, i, &frame), VXKIT_OK);
        const auto place = static_cast<std::size_t>(i);
        EXPECT_EQ(frame.shift_x, static_cast<double>(expected.shifts[place].x));
        EXPECT_EQ(frame.shift_y, static_cast<double>(expected.shifts[place].y));
        EXPECT_EQ(frame.usable, cv::countNonZero(expected.masks[place]) / 6912.0);
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, FloatEngineHandles,
                         testing::Values(EngineCase{"production", EngineKind::production},
                                         EngineCase{"phase", EngineKind::phase},
                                         EngineCase{"reference", EngineKind::reference}));

TEST(EngineHandles, TakeEachSettingToTheEngine)
{
    const vxsupport::Burst burst = testBurst();
    SrFloat<SrFloatRegistration2> expected(smallFrame.width, smallFrame.height, 4, 2.0F);
    expected.setReferenceIndex(2);
    expected.setPsfSigma(0.5F);
    expected.setWeightTV(90.0F);
    expected.setRegError(0.01F);
    expected.setRelativeResidue(0.001F);
    expected.setMaxCGIters(12);
    for (std::size_t i = 0; i < 4; ++i)
        expected.addFrame(burst.frames[i].ptr<float>());
    cv::Mat_<float> image(smallFrame * 2);
    expected.computeSR(image.ptr<float>());

    const Handle engine("production");
    for (const auto& [name, value] : std::vector<std::pair<const char*, double>>{{"window", 4},
                                                                                 {"reference", 2},
                                                                                 {"psf-sigma", 0.5},
                                                                                 {"weight", 90},
                                                                                 {"registration-error", 0.01},
                                                                                 {"relative-residue", 0.001},
                                                                                 {"iterations", 12}})
        engine.set(name, value);
    addFrames(engine, std::vector(burst.frames.begin(), burst.frames.begin() + 4));
    EXPECT_TRUE(sameBits(resultOf<float>(engine, "image"), image));

    // What is not at once waits for a reset, which keeps the settings and forgets the image.
    EXPECT_EQ(vxkit_set_number(engine, "window", 5), VXKIT_FAILED);
    EXPECT_THAT(vxkit_error(engine), testing::HasSubstr("reset"));
    EXPECT_EQ(vxkit_reset(engine), VXKIT_OK);
    vxkit_image shape{};
    EXPECT_EQ(vxkit_result_shape(engine, "image", &shape), VXKIT_NOT_READY);
    EXPECT_EQ(engine.get("window"), 4.0);
    EXPECT_EQ(vxkit_set_text(engine, "camera", "k322 FOV25"), VXKIT_OK);
    EXPECT_EQ(engine.get("psf-sigma"), 0.5);
}

TEST(EngineHandles, TellWhatACameraAndAWindowMeanForWhatNobodyChose)
{
    const Handle engine("production");
    EXPECT_EQ(engine.get("psf-sigma"), 0.683);
    EXPECT_EQ(vxkit_set_text(engine, "camera", "k322 FOV25"), VXKIT_OK);
    EXPECT_EQ(engine.get("psf-sigma"), 0.625);
    engine.set("window", 2);
    EXPECT_EQ(engine.get("reference"), 1.0);
    engine.set("reference", 3);
    const cv::Mat_<float> flat(72, 96, 20.0F);
    const vxkit_image frame = imageOf(flat);
    EXPECT_EQ(vxkit_add_frame(engine, &frame, nullptr), VXKIT_OUT_OF_RANGE);
    EXPECT_THAT(vxkit_error(engine), testing::HasSubstr("reference 3"));
}

TEST(EngineHandles, OfLocalMotionAndOneFrameGiveTheBitsOfTheirClasses)
{
    const vxsupport::Burst burst = testBurst();
    SrLocalMotion expected(smallFrame.width, smallFrame.height, 5);
    expected.setReferenceIndex(3);
    expected.setPsfSigma(0.4F);
    for (const cv::Mat_<float>& frame : burst.frames)
        expected.addFrame(frame);
    cv::Mat_<float> image;
    cv::Mat_<float> confidence;
    expected.computeSR(image);
    expected.getEffectiveFrames(confidence);
    const Handle local("local");
    EXPECT_EQ(addFrames(local, burst.frames).frames, 5);
    EXPECT_TRUE(sameBits(resultOf<float>(local, "image"), image));
    EXPECT_TRUE(sameBits(resultOf<float>(local, "confidence"), confidence));

    SrSingleFrame one(smallFrame.width, smallFrame.height);
    one.setPsfSigma(0.4F);
    one.compute(burst.frames[4], image);
    const Handle single("single");
    EXPECT_EQ(addFrames(single, burst.frames).has_image, 1);
    EXPECT_TRUE(sameBits(resultOf<float>(single, "image"), image));
}

TEST(EngineHandles, TellTheReferenceEnginesQuality)
{
    const vxsupport::Burst burst = testBurst();
    cv::Mat_<float> quality;
    {
        const vxsupport::CapturedOutput dropped;
        SuperResolution expected(smallFrame.width, smallFrame.height, 5, 2.0F);
        expected.setReferenceIndex(3);
        cv::Mat_<float> image(smallFrame * 2);
        for (const cv::Mat_<float>& frame : burst.frames)
            expected.addFrame(frame.ptr<float>());
        expected.computeSR(image.ptr<float>());
        expected.computeQuality();
        expected.getQuality(quality);
    }
    const Handle engine("reference");
    addFrames(engine, burst.frames);
    EXPECT_TRUE(sameBits(resultOf<float>(engine, "quality"), quality));
}

TEST(EngineHandles, CalibrateRawCountsOfTheReferenceEngine)
{
    cv::Mat_<short> cold(72, 96), hot(72, 96);
    cv::randu(cold, 900, 1100);
    cv::randu(hot, 4900, 5100);
    const cv::Mat_<float> coldRadiance(72, 96, 10.0F), hotRadiance(72, 96, 50.0F);
    std::vector<cv::Mat_<short>> frames;
    for (const cv::Mat_<float>& frame : testBurst().frames)
        frames.emplace_back(converted(frame, CV_16S, 100.0));
    cv::Mat_<float> image(smallFrame * 2);
    {
        const vxsupport::CapturedOutput dropped;
        SuperResolution expected(smallFrame.width, smallFrame.height, 5, 2.0F);
        expected.setReferenceIndex(3);
        expected.setNucToRad(cold, coldRadiance, hot, hotRadiance);
        for (const cv::Mat_<short>& frame : frames)
            expected.processFrame2(frame.ptr<short>(), image.ptr<float>());
    }
    const std::array<vxkit_image, 4> scenes{imageOf(cold), imageOf(coldRadiance), imageOf(hot),
                                            imageOf(hotRadiance)};
    const Handle engine("reference");
    const auto calibrate = [&](const vxkit_image* last) {
        return vxkit_calibrate(engine, &scenes[0], &scenes[1], last, &scenes[3]);
    };
    EXPECT_EQ(calibrate(nullptr), VXKIT_NULL_ARGUMENT);
    EXPECT_EQ(calibrate(&scenes[0]), VXKIT_OUT_OF_RANGE);  // no line in any pixel
    EXPECT_EQ(calibrate(&scenes[2]), VXKIT_OK) << vxkit_last_error();
    EXPECT_EQ(vxkit_reset(engine), VXKIT_OK);
    addFrames(engine, frames);
    EXPECT_TRUE(sameBits(resultOf<float>(engine, "image"), image));
    EXPECT_EQ(calibrate(&scenes[2]), VXKIT_FAILED);
    EXPECT_EQ(vxkit_calibrate(Handle("production"), &scenes[0], &scenes[1], &scenes[2], &scenes[3]),
              VXKIT_BAD_HANDLE);
    EXPECT_EQ(vxkit_reset(engine), VXKIT_OK);
    EXPECT_EQ(vxkit_calibrate(engine, nullptr, nullptr, nullptr, nullptr), VXKIT_OK);
    addFrames(engine, testBurst().frames);
    EXPECT_FALSE(sameBits(resultOf<float>(engine, "image"), image));
}

TEST(EngineHandles, InFixedPointTakeCountsAloneAndGiveTheBitsOfTheirClass)
{
    const vxsupport::Burst burst = testBurst({160, 120});
    // This run puts the reference last.
    const std::vector<cv::Mat_<float>> frames{burst.frames[0], burst.frames[2], burst.frames[3],
                                              burst.frames[4], burst.frames[1]};
    const vxsupport::EngineRun expected =
        vxsupport::runEngine(EngineKind::fixed, burst.frames, referenceFrame);
    for (const char* kind : {"fixed-point", "fixed-point-fpga"}) {
        const Handle engine(kind, {160, 120});
        const cv::Mat_<float> halves(120, 160, 20.5F);
        const vxkit_image degrees = imageOf(halves);
        EXPECT_EQ(vxkit_add_frame(engine, &degrees, nullptr), VXKIT_OUT_OF_RANGE);
        std::vector<cv::Mat_<short>> counts(frames.size());
        for (std::size_t i = 0; i < frames.size(); ++i)
            frames[i].convertTo(counts[i], CV_16S, 100.0);
        EXPECT_EQ(addFrames(engine, counts).iterations, expected.iterations) << kind;
        EXPECT_TRUE(
            sameBits(converted(resultOf<float>(engine, "image"), CV_32F, 1.0 / 100.0), expected.image))
            << kind;
    }
    vxkit_object* other = nullptr;
    EXPECT_EQ(vxkit_create("fixed-point-fpga", 96, 72, &other), VXKIT_OUT_OF_RANGE);
    EXPECT_EQ(other, nullptr);
    EXPECT_THAT(vxkit_last_error(), testing::HasSubstr("expected 160x120"));
}

TEST(EngineHandles, TakeFramesOfAnyStrideAndTypeThatHoldsThemExactly)
{
    const Handle floats("production");
    const Handle doubles("production");
    for (const cv::Mat_<float>& frame : testBurst().frames) {
        cv::Mat_<float> wide(72, 101, -1.0F);
        frame.copyTo(wide(cv::Rect(3, 0, 96, 72)));
        cv::Mat_<double> same;
        frame.convertTo(same, CV_64F);
        addFrames(floats, std::vector<cv::Mat>{wide(cv::Rect(3, 0, 96, 72))});
        addFrames(doubles, std::vector{same});
    }
    EXPECT_TRUE(sameBits(resultOf<float>(floats, "image"), resultOf<float>(doubles, "image")));
    EXPECT_NE(resultOf<float>(floats, "image")(10, 10), 0.0F);
    const cv::Mat_<double> tenths(72, 96, 0.1);
    const vxkit_image inexact = imageOf(tenths);
    EXPECT_EQ(vxkit_add_frame(doubles, &inexact, nullptr), VXKIT_OUT_OF_RANGE);
}

TEST(EngineHandles, RefuseCountsThatWouldAllBeBadPixels)
{
    for (const char* kind : {"production", "reference", "local", "single"}) {
        const Handle engine(kind);
        cv::Mat_<std::uint16_t> counts(72, 96, std::uint16_t{29000});
        const vxkit_image frame = imageOf(counts);
        EXPECT_EQ(vxkit_add_frame(engine, &frame, nullptr), VXKIT_OUT_OF_RANGE) << kind;
        EXPECT_THAT(vxkit_error(engine), testing::HasSubstr("5000"));
        counts(71, 95) = 5000;
        EXPECT_EQ(vxkit_add_frame(engine, &frame, nullptr), VXKIT_OK) << kind;
    }
}

void countTrace(void* user, vxkit_level level, const char* /*source*/, const char* /*text*/)
{
    *static_cast<int*>(user) += level == VXKIT_DEBUG ? 1 : 0;
}

TEST(EngineHandles, TraceWhereTheLogWantsThatAndGiveTheSameBits)
{
    for (const std::string kind : {"production", "phase", "reference", "fixed-point", "local"}) {
        std::vector<cv::Mat> frames;
        for (const cv::Mat_<float>& frame : testBurst().frames)
            frames.push_back(kind == "fixed-point" ? converted(frame, CV_16S, 100.0) : cv::Mat(frame));
        const Handle silent(kind);
        int lines = 0;
        EXPECT_EQ(vxkit_set_log(countTrace, &lines, VXKIT_DEBUG), VXKIT_OK);
        addFrames(silent, frames);
        EXPECT_EQ(lines, 0) << kind;
        const Handle traced(kind);
        addFrames(traced, frames);
        EXPECT_GT(lines, 0) << kind;
        EXPECT_EQ(vxkit_set_log(nullptr, nullptr, VXKIT_ERROR), VXKIT_OK);
        EXPECT_TRUE(sameBits(resultOf<float>(traced, "image"), resultOf<float>(silent, "image"))) << kind;
    }
}

TEST(EngineHandles, TellFailuresOfTheEngineWithTheirCode)
{
    const vxsupport::Burst burst = testBurst();
    const Handle engine("production");
    addFrames(engine, std::vector(burst.frames.begin(), burst.frames.begin() + 4));
    // In a flat frame corners are tracked to anywhere.
    const cv::Mat_<float> flatFrame(72, 96, 20.0F);
    const vxkit_image flat = imageOf(flatFrame);
    for (int i = 0; i < 4; ++i) {
        vxkit_burst_report report{};
        const vxkit_status status = vxkit_add_frame(engine, &flat, &report);
        if (status == VXKIT_OK)
            continue;
        EXPECT_EQ(status, VXKIT_NO_RESULT);
        EXPECT_EQ(report.code, -999);
        EXPECT_EQ(report.has_image, 0);
        EXPECT_THAT(vxkit_error(engine), testing::HasSubstr("Too large displacement"));
        return;
    }
    FAIL() << "four flat frames in the window and no failure";
}

}  // namespace
