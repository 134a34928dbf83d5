#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "core/base/Exception.h"
#include "enhancement/superresolution/TestBursts.h"
#include "enhancement/superresolution/reference/SuperResolution.h"
#include "support/CapturedOutput.h"

using namespace halvor::vx;
using namespace vxtest;
using testing::HasSubstr;

namespace {

constexpr int window = 5;

// Two flat scenes as a sensor with a line of its own for each pixel sees them.
struct Calibration
{
    explicit Calibration(cv::Size size)
        : gain(size), offset(size), nucA(size), radA(size), nucB(size), radB(size)
    {
        for (int y = 0; y < size.height; ++y) {
            for (int x = 0; x < size.width; ++x) {
                gain(y, x) = 0.004F + 0.0001F * static_cast<float>((3 * x + 5 * y) % 7);
                offset(y, x) = 20.0F + 0.5F * static_cast<float>((x + 2 * y) % 5);
                nucA(y, x) = static_cast<short>(-4000 + 11 * ((x + y) % 13));
                nucB(y, x) = static_cast<short>(6000 - 7 * ((x * y) % 17));
                radA(y, x) = static_cast<float>(nucA(y, x)) * gain(y, x) + offset(y, x);
                radB(y, x) = static_cast<float>(nucB(y, x)) * gain(y, x) + offset(y, x);
            }
        }
    }

    void apply(SuperResolution& engine) const { engine.setNucToRad(nucA, radA, nucB, radB); }

    cv::Mat_<short> countsOf(const cv::Mat_<float>& degrees) const
    {
        cv::Mat_<short> counts(degrees.size());
        for (int y = 0; y < degrees.rows; ++y)
            for (int x = 0; x < degrees.cols; ++x)
                counts(y, x) = cv::saturate_cast<short>((degrees(y, x) - offset(y, x)) / gain(y, x));
        return counts;
    }

    cv::Mat_<float> gain;
    cv::Mat_<float> offset;
    cv::Mat_<short> nucA;
    cv::Mat_<float> radA;
    cv::Mat_<short> nucB;
    cv::Mat_<float> radB;
};

class RadianceEngine : public testing::Test
{
protected:
    vxsupport::CapturedOutput output_;
    SuperResolution engine_{smallFrame.width, smallFrame.height, window, 2.0F};
    SuperResolution expectedEngine_{smallFrame.width, smallFrame.height, window, 2.0F};
    vxsupport::Burst burst_ = burstOf(smallFrame, gentleShifts());
    Calibration calibration_{smallFrame};

    std::string messageOfFrame()
    {
        cv::Mat_<float> image(smallFrame * 2);
        testing::internal::CaptureStderr();
        std::string message = "nothing was thrown";
        try {
            engine_.processFrame2(calibration_.countsOf(burst_.frames[0]).ptr<short>(), image.ptr<float>());
        } catch (const Exception& failure) {
            message = failure.what();
        }
        testing::internal::GetCapturedStderr();
        return message;
    }

    // The image of one frame of counts, and of the same frame converted by hand with the given line.
    void expectLine(const cv::Mat_<short>& counts, const cv::Mat_<float>& gain, const cv::Mat_<float>& offset)
    {
        cv::Mat_<float> radiance(counts.size());
        for (int y = 0; y < counts.rows; ++y)
            for (int x = 0; x < counts.cols; ++x)
                radiance(y, x) = static_cast<float>(counts(y, x)) * gain(y, x) + offset(y, x);
        cv::Mat_<float> image(smallFrame * 2);
        cv::Mat_<float> expected(smallFrame * 2);
        const float result = engine_.processFrame2(counts.ptr<short>(), image.ptr<float>());
        expectedEngine_.addFrame(radiance.ptr<float>());
        EXPECT_EQ(result, expectedEngine_.computeSR(expected.ptr<float>()));
        EXPECT_LT(cv::norm(image, expected, cv::NORM_INF), 1e-3);
    }
};

}  // namespace

TEST_F(RadianceEngine, ConvertsCountsByTheLineOfEachPixel)
{
    calibration_.apply(engine_);
    for (const cv::Mat_<float>& frame : burst_.frames)
        expectLine(calibration_.countsOf(frame), calibration_.gain, calibration_.offset);
}

TEST_F(RadianceEngine, GivesAPixelThatCannotBeCalibratedTheMeanLineOfItsGoodNeighbours)
{
    Calibration broken = calibration_;
    cv::Mat_<float> gain = calibration_.gain.clone();
    cv::Mat_<float> offset = calibration_.offset.clone();
    const auto mean = [](const cv::Mat_<float>& m, const std::vector<cv::Point>& places) {
        float sum = 0.0F;
        for (const cv::Point& place : places)
            sum += m(place);
        return sum / static_cast<float>(places.size());
    };
    broken.nucB(10, 20) = broken.nucA(10, 20);
    broken.nucB(0, 0) = broken.nucA(0, 0);
    broken.radB(30, 40) = 1e9F;  // a slope and an offset beyond the bounds
    // The right one of a pair has a repaired neighbour on its left.
    broken.nucB(50, 60) = broken.nucA(50, 60);
    broken.nucB(50, 61) = broken.nucA(50, 61);
    for (cv::Mat_<float>* m : {&gain, &offset}) {
        (*m)(10, 20) = mean(*m, {{19, 10}, {21, 10}, {20, 9}, {20, 11}});
        (*m)(0, 0) = mean(*m, {{1, 0}, {0, 1}});
        (*m)(30, 40) = mean(*m, {{39, 30}, {41, 30}, {40, 29}, {40, 31}});
        (*m)(50, 60) = mean(*m, {{59, 50}, {60, 49}, {60, 51}});
        (*m)(50, 61) = mean(*m, {{60, 50}, {62, 50}, {61, 49}, {61, 51}});
    }
    broken.apply(engine_);
    expectLine(calibration_.countsOf(burst_.frames[0]), gain, offset);
}

TEST_F(RadianceEngine, TakesAFallingLine)
{
    Calibration falling = calibration_;
    std::swap(falling.nucA, falling.nucB);
    falling.gain = -calibration_.gain;
    for (int y = 0; y < smallFrame.height; ++y) {
        for (int x = 0; x < smallFrame.width; ++x) {
            falling.radA(y, x) = static_cast<float>(falling.nucA(y, x)) * falling.gain(y, x) + 20.0F;
            falling.radB(y, x) = static_cast<float>(falling.nucB(y, x)) * falling.gain(y, x) + 20.0F;
        }
    }
    falling.offset.setTo(20.0F);
    falling.apply(engine_);
    expectLine(falling.countsOf(burst_.frames[0]), falling.gain, falling.offset);
}

TEST_F(RadianceEngine, RefusesFramesWithoutAFittingCalibration)
{
    EXPECT_EQ(messageOfFrame(), "NucToRad() not initialized");
    Calibration({90, 72}).apply(engine_);
    EXPECT_EQ(messageOfFrame(), "NucToRad() not initialized");
    Calibration({96, 70}).apply(engine_);
    EXPECT_EQ(messageOfFrame(), "NucToRad() not initialized");
    calibration_.apply(engine_);
    EXPECT_EQ(messageOfFrame(), "nothing was thrown");

    Calibration mixed = calibration_;
    mixed.radB = cv::Mat_<float>(70, 96, 1.0F);
    testing::internal::CaptureStderr();
    EXPECT_THROW(mixed.apply(engine_), Exception);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(messageOfFrame(), "nothing was thrown") << "the old calibration holds";

    // Without any calibrated pixel no line can be repaired, and no pixel of a frame is good.
    mixed = calibration_;
    mixed.nucB = mixed.nucA;
    mixed.apply(engine_);
    EXPECT_THAT(messageOfFrame(), HasSubstr("Too many defect pixels"));
}

TEST_F(RadianceEngine, MapsTheSubPixelPositionsOfTheLastBurst)
{
    cv::Mat_<float> quality(1, 1, 7.0F);
    engine_.getQuality(quality);
    EXPECT_TRUE(quality.empty());
    testing::internal::CaptureStderr();
    EXPECT_THROW(engine_.computeQuality(), Exception);
    testing::internal::GetCapturedStderr();

    cv::Mat_<float> image(smallFrame * 2);
    engine_.setReferenceIndex(3);
    engine_.addFrame(burst_.frames[0].ptr<float>());
    engine_.computeSR(image.ptr<float>());
    engine_.getQuality(quality);
    EXPECT_TRUE(quality.empty()) << "a map is computed on demand";
    engine_.computeQuality();
    engine_.getQuality(quality);
    EXPECT_EQ(cv::countNonZero(quality), 1);
    EXPECT_EQ(quality(1, 1), 1.0F);

    for (std::size_t i = 1; i < burst_.frames.size(); ++i)
        engine_.addFrame(burst_.frames[i].ptr<float>());
    engine_.computeSR(image.ptr<float>());
    engine_.computeQuality();
    engine_.getQuality(quality);
    cv::Mat_<double> expected(3, 3, 0.0);
    std::vector<PointF> shifts;
    engine_.getCompleteShifts(shifts);
    for (const PointF& shift : shifts) {
        const double x = 1.0 + 2.0 * (shift.x - std::floor(shift.x + 0.5));
        const double y = 1.0 + 2.0 * (shift.y - std::floor(shift.y + 0.5));
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c)
                expected(r, c) += std::max(0.0, 1.0 - std::abs(r - y)) *
                                  std::max(0.0, 1.0 - std::abs(c - x)) / static_cast<double>(window);
    }
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(quality(r, c), expected(r, c), 1e-5) << r << ", " << c;
    EXPECT_NEAR(cv::sum(quality)[0], 1.0, 1e-6);

    // The map is a copy of its own.
    quality.setTo(9.0F);
    cv::Mat_<float> again;
    engine_.getQuality(again);
    EXPECT_NEAR(cv::sum(again)[0], 1.0, 1e-6);
}
