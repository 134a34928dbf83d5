#include "enhancement/superresolution/reference/SuperResolution.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "core/base/Exception.h"
#include "core/diagnostics/LogFacility.h"
#include "enhancement/superresolution/LineRecorder.h"
#include "enhancement/superresolution/TestBursts.h"
#include "support/CapturedOutput.h"

using namespace halvor::vx;
using namespace vxtest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using vxsupport::CapturedOutput;

namespace {

constexpr int window = 5;

std::string messageOf(const std::function<void()>& work)
{
    testing::internal::CaptureStderr();
    std::string message = "nothing was thrown";
    try {
        work();
    } catch (const Exception& failure) {
        message = failure.what();
    } catch (const char* text) {
        message = text;
    }
    testing::internal::GetCapturedStderr();
    return message;
}

template <typename Pixel>
struct Outcome
{
    float result = 0.0F;
    cv::Mat_<Pixel> image;
};

template <typename Pixel>
Outcome<Pixel> compute(SuperResolution& engine, cv::Size frame)
{
    Outcome<Pixel> run;
    run.image.create(frame * 2);
    run.result = engine.computeSR(run.image.template ptr<Pixel>());
    return run;
}

template <typename Pixel>
Outcome<Pixel> feedAndCompute(SuperResolution& engine, const std::vector<cv::Mat_<Pixel>>& frames)
{
    for (const cv::Mat_<Pixel>& frame : frames)
        EXPECT_EQ(engine.addFrame(frame.template ptr<Pixel>()), 0);
    return compute<Pixel>(engine, frames[0].size());
}

std::vector<cv::Mat_<short>> toCounts(const std::vector<cv::Mat_<float>>& frames, double scale, double offset)
{
    std::vector<cv::Mat_<short>> counts(frames.size());
    for (std::size_t i = 0; i < frames.size(); ++i)
        frames[i].convertTo(counts[i], CV_16S, scale, offset);
    return counts;
}

// The engine with the flat interface's reference frame, and what it writes to the standard output.
class ReferenceEngine : public testing::Test
{
protected:
    SuperResolution makeEngine(cv::Size size = smallFrame) const
    {
        return {size.width, size.height, window, 2.0F};
    }

    CapturedOutput output_;
    const vxsupport::Burst burst_ = burstOf(smallFrame, gentleShifts());
};

}  // namespace

TEST_F(ReferenceEngine, WritesTheTapsOfItsKernelAndTheTimesOfItsStages)
{
    SuperResolution engine = makeEngine();
    const std::vector<std::string> taps = output_.lines();
    ASSERT_EQ(taps.size(), 6U);
    float sum = std::stof(taps[0]);
    for (std::size_t i = 1; i < taps.size(); ++i)
        sum += 2.0F * std::stof(taps[i]);
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
    SuperResolution engine = makeEngine();
    const auto recorder = std::make_shared<LineRecorder>();
    engine.setDebugDevice(recorder);
    engine.setOutputLevel(11);
    engine.addFrame(burst_.frames[0].ptr<float>());
    compute<float>(engine, smallFrame);
    std::vector<std::string> texts;
    for (const LineRecorder::Line& line : recorder->lines)
        texts.push_back(line.channel + "|" + line.text + "|" + std::to_string(line.level));
    EXPECT_THAT(texts, ElementsAre("DBG|start addFrame|11", "DBG|end addFrame|11", "DBG|start computeSR|11",
                                   "DBG|end computeSR|11"));
    EXPECT_EQ(engine.getInternalDebugChannelObjects().size(), 2U);
}

TEST_F(ReferenceEngine, LogsProgressAndProblems)
{
    LogFacility& log = LogFacility::getInstance();
    log.setLogLevel(LogFacility::progress);
    testing::internal::CaptureStderr();
    SuperResolution engine = makeEngine();
    engine.setRegError(1e-12F);
    cv::Mat_<float> bad = burst_.frames[0].clone();
    bad(0, 0) = marker(0x84);
    EXPECT_EQ(engine.addFrame(bad.ptr<float>()), -2);
    engine.addFrame(burst_.frames[3].ptr<float>());
    EXPECT_EQ(compute<float>(engine, smallFrame).result, -3.0F);
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

TEST_F(ReferenceEngine, GivesTheCodesOfTheFastEngine)
{
    const auto resultAt = [](cv::Size size, PointF shift, float regError) {
        std::vector<PointF> shifts = gentleShifts();
        shifts[3] = shift;
        SuperResolution engine(size.width, size.height, window, 2.0F);
        engine.setReferenceIndex(3);
        engine.setRegError(regError);
        return feedAndCompute(engine, burstOf(size, shifts).frames).result;
    };
    // A tenth of the height of 120 is 12.
    const cv::Size size{160, 120};
    EXPECT_EQ(resultAt(size, {13.2F, 0.0F}, 1e-4F), -6.0F);
    EXPECT_EQ(resultAt(size, {-13.2F, 0.0F}, 1e-4F), -6.0F);
    EXPECT_EQ(resultAt(size, {0.0F, 13.2F}, 1e-12F), -6.0F) << "wins over masked frames";
    EXPECT_GT(resultAt(size, {0.0F, -13.2F}, 1e-4F), 1.0F);
    EXPECT_EQ(resultAt(smallFrame, {0.6F, 0.4F}, 1e-12F), -3.0F);
}

TEST_F(ReferenceEngine, CountsTheFramesThatCoverAPixel)
{
    SuperResolution engine = makeEngine();
    for (const float expected : {1.0F, 1.25F, 1.5F, 1.75F, 2.0F, 2.0F}) {
        engine.addFrame(burst_.frames[0].ptr<float>());
        EXPECT_EQ(compute<float>(engine, smallFrame).result, expected);
    }
    std::vector<cv::Mat_<unsigned char>> masks;
    engine.getMasks(masks);
    ASSERT_EQ(masks.size(), static_cast<std::size_t>(window));
    for (const cv::Mat_<unsigned char>& mask : masks)
        EXPECT_EQ(cv::countNonZero(mask), smallFrame.area());
}

TEST_F(ReferenceEngine, ReplacesTheOldestFrameWithItsSpectrum)
{
    SuperResolution engine = makeEngine();
    engine.setReferenceIndex(3);
    const Outcome<float> first = feedAndCompute(engine, burst_.frames);
    ASSERT_GT(first.result, 1.8F);
    EXPECT_TRUE(sameBits(compute<float>(engine, smallFrame).image, first.image)) << "may be repeated";
    for (int i = 0; i < 3; ++i)
        engine.addFrame(burst_.frames[static_cast<std::size_t>(i)].ptr<float>());
    EXPECT_FALSE(sameBits(compute<float>(engine, smallFrame).image, first.image));
    engine.addFrame(burst_.frames[3].ptr<float>());
    engine.addFrame(burst_.frames[4].ptr<float>());
    EXPECT_TRUE(sameBits(compute<float>(engine, smallFrame).image, first.image));
}

TEST_F(ReferenceEngine, TakesTheOldestFrameAsReferenceWhileTheWindowFills)
{
    SuperResolution engine = makeEngine();
    engine.setReferenceIndex(4);
    std::vector<PointF> shifts;
    for (const cv::Mat_<float>& frame : burst_.frames) {
        engine.addFrame(frame.ptr<float>());
        compute<float>(engine, smallFrame);
        engine.getCompleteShifts(shifts);
        EXPECT_EQ(shifts[0].x, 0.0F);
        EXPECT_EQ(shifts[0].y, 0.0F);
    }
    ASSERT_EQ(shifts.size(), burst_.shifts.size());
    EXPECT_NEAR(shifts[4].x, burst_.shifts[4].x - burst_.shifts[0].x, 0.1F);
}

TEST_F(ReferenceEngine, KeepsTheDefectMapsWhenTheWindowIsEmptied)
{
    SuperResolution engine = makeEngine();
    feedAndCompute(engine, burst_.frames);
    engine.clearFrames();
    engine.addFrame(burst_.frames[0].ptr<float>());
    EXPECT_GT(compute<float>(engine, smallFrame).result, 0.0F) << "the complete shifts do not shrink either";
    SuperResolution fresh = makeEngine();
    EXPECT_EQ(messageOf([&] { compute<float>(fresh, smallFrame); }), "bad pixel masks not initalized");
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
    SuperResolution shortEngine = makeEngine();
    SuperResolution floatEngine = makeEngine();
    floatEngine.setDataIsNUC(true);
    const Outcome<short> wrapped = feedAndCompute(shortEngine, counts);
    const Outcome<float> exact = feedAndCompute(floatEngine, floats);
    EXPECT_EQ(wrapped.result, exact.result);
    int beyond = 0;
    for (int y = 0; y < exact.image.rows; ++y) {
        for (int x = 0; x < exact.image.cols; ++x) {
            const auto truncated = static_cast<long>(exact.image(y, x));
            beyond += truncated > 32767 || truncated < -32768 ? 1 : 0;
            ASSERT_EQ(wrapped.image(y, x), static_cast<short>(truncated)) << x << ", " << y;
        }
    }
    EXPECT_GT(beyond, 0) << "the scene does not reach the end of the range";
}

TEST_F(ReferenceEngine, NeverSearchesShortFramesForBadPixels)
{
    std::vector<cv::Mat_<short>> counts = toCounts(burst_.frames, 100.0, 0.0);
    for (cv::Mat_<short>& frame : counts)
        frame.row(20).setTo(-300);  // below absolute zero, if these were degrees
    SuperResolution engine = makeEngine();
    engine.setReferenceIndex(3);
    EXPECT_NO_THROW(feedAndCompute(engine, counts));

    cv::Mat_<float> asDegrees;
    counts[0].convertTo(asDegrees, CV_32F);
    EXPECT_EQ(messageOf([&] { engine.addFrame(asDegrees.ptr<float>()); }), "nothing was thrown");
    EXPECT_THAT(messageOf([&] { engine.addFrame(ruined(burst_.frames[0]).ptr<float>()); }),
                HasSubstr("Too many defect pixels"));
}

TEST_F(ReferenceEngine, RefillsBadPixelsOfFloatFrames)
{
    SuperResolution clean = makeEngine();
    SuperResolution repaired = makeEngine();
    const Outcome<float> expected = feedAndCompute(clean, burst_.frames);
    std::vector<cv::Mat_<float>> frames;
    for (const cv::Mat_<float>& frame : burst_.frames) {
        frames.push_back(frame.clone());
        frames.back()(30, 40) = marker(0x81);
    }
    const Outcome<float> run = feedAndCompute(repaired, frames);
    EXPECT_TRUE(cv::checkRange(run.image));
    EXPECT_FALSE(sameBits(run.image, expected.image));
    EXPECT_LT(cv::norm(run.image, expected.image, cv::NORM_INF), 6.0);
}

TEST_F(ReferenceEngine, RefusesBadSettingsAndKeepsTheOldOnes)
{
    SuperResolution engine = makeEngine();
    EXPECT_EQ(messageOf([&] { engine.setReferenceIndex(window); }), "Invalid reference index specified.");
    EXPECT_EQ(messageOf([&] { engine.setRegError(0.0F); }), "Invalid maximum registration error specified.");
    EXPECT_EQ(messageOf([&] { engine.setPsfSigma(0.0F); }),
              "Invalid standard deviation of the sensor psf specified.");
    EXPECT_EQ(messageOf([&] { engine.setWeightTV(0.5F); }), "Invalid total-variation term weight specified.");
    EXPECT_EQ(messageOf([&] { engine.setRelativeResidue(1e-7F); }),
              "Invalid total-variation term weight specified.");
    EXPECT_EQ(messageOf([&] { engine.setMaxCGIters(0); }), "Invalid maximum number of iterations specified.");
    EXPECT_EQ(engine.getReferenceIndex(), 0);
    EXPECT_EQ(engine.getRegError(), 0.0001F);
    EXPECT_EQ(engine.getPsfSigma(), 0.683F);
    EXPECT_EQ(engine.getWeightTV(), 400.0F);
    EXPECT_EQ(engine.getRelativeResidue(), 0.007F);
    EXPECT_EQ(engine.getMaxCGIters(), 8);

    engine.setReferenceIndex(window - 1);
    engine.setRegError(1.0F);
    engine.setPsfSigma(0.35F);
    engine.setWeightTV(1.0F);
    engine.setRelativeResidue(0.002F);
    engine.setMaxCGIters(1);
    EXPECT_EQ(engine.getReferenceIndex(), window - 1);
    EXPECT_EQ(engine.getRegError(), 1.0F);
    EXPECT_EQ(engine.getPsfSigma(), 0.35F);
    EXPECT_EQ(engine.getWeightTV(), 1.0F);
    EXPECT_EQ(engine.getRelativeResidue(), 0.002F);
    EXPECT_EQ(engine.getMaxCGIters(), 1);
    EXPECT_EQ(engine.getInputSize(), smallFrame.area());
    EXPECT_EQ(engine.getOutputSize(), 4 * smallFrame.area());
    EXPECT_EQ(engine.getWindowSize(), window);
}

TEST_F(ReferenceEngine, RefusesSizesThatItCannotProcess)
{
    EXPECT_EQ(messageOf([] { SuperResolution(96, 72, 0, 2.0F); }), "Invalid reference index specified.");
    EXPECT_THAT(messageOf([] { SuperResolution(97, 72, 5, 2.0F); }), HasSubstr("97 x 72"));
    EXPECT_THAT(messageOf([] { SuperResolution(96, 10, 5, 2.0F); }), HasSubstr("96 x 10"));
    EXPECT_THAT(messageOf([] { SuperResolution(96, 72, 5, 0.5F); }), HasSubstr("0.5"));
    EXPECT_THAT(messageOf([] { SuperResolution(1 << 20, 1 << 20, 5, 2.0F); }), HasSubstr("1048576"));
}

TEST_F(ReferenceEngine, ComparesTheSpanOfAFrameWithTheThreshold)
{
    SuperResolution engine = makeEngine();
    const cv::Mat_<float> ramp = (cv::Mat_<float>(1, 2) << 20.0F, 22.0F);
    EXPECT_TRUE(engine.checkImageStructureQuality(ramp));
    engine.setMinStructureThreshold(2.5F);
    EXPECT_FALSE(engine.checkImageStructureQuality(ramp));
    EXPECT_TRUE(engine.checkImageStructureQuality(cv::Mat_<short>((cv::Mat_<short>(1, 2) << -2, 1))));
}

TEST_F(ReferenceEngine, CombinesTheMovedFramesWithoutAnInverseProblem)
{
    SuperResolution engine = makeEngine();
    feedAndCompute<float>(engine, {burst_.frames[1]});
    engine.simpleCombine();
    cv::Mat_<float> combined;
    engine.getOutputImage(combined);
    ASSERT_EQ(combined.size(), smallFrame * 2);
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(burst_.frames[1], mean, deviation);
    for (int y = 0; y < combined.rows; ++y)
        for (int x = 0; x < combined.cols; ++x)
            ASSERT_NEAR(combined(y, x), (burst_.frames[1](y / 2, x / 2) - mean[0]) / deviation[0], 1e-3);
}

TEST_F(ReferenceEngine, RunsWithAFactorOfThree)
{
    SuperResolution engine(96, 72, window, 3.0F);
    for (const cv::Mat_<float>& frame : burst_.frames)
        engine.addFrame(frame.ptr<float>());
    cv::Mat_<float> image(72 * 3, 96 * 3);
    EXPECT_GT(engine.computeSR(image.ptr<float>()), 1.5F);
    double low = 0.0;
    double high = 0.0;
    cv::minMaxLoc(burst_.frames[0], &low, &high);
    EXPECT_TRUE(cv::checkRange(image, true, nullptr, low - 5.0, high + 5.0));
    engine.simpleCombine();
}
