// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <cmath>

#include "enhancement/superresolution/EngineHarness.h"
#include "enhancement/superresolution/reference/SuperResolution.h"
#include "support/CapturedOutput.h"

using namespace halvor::vx;
using namespace vxtest;
using testing::HasSubstr;

namespace {

cv::Mat_<float> line(const cv::Mat& counts, const cv::Mat_<float>& gain, const cv::Mat_<float>& offset)
{
    cv::Mat_<float> result;
    counts.convertTo(result, CV_32F);
    cv::multiply(result, gain, result);
    result += offset;
    return result;
}

// Two flat scenes as a sensor with a line of its own for each pixel sees them.
struct Calibration
{
    explicit Calibration(cv::Size size) : gain(size), offset(size), nucA(size), nucB(size)
    {
        for (int y = 0; y < size.height; ++y) {
            for (int x = 0; x < size.width; ++x) {
                gain(y, x) = 0.004F + 0.0001F * static_cast<float>((3 * x + 5 * y) % 7);
                offset(y, x) = 20.0F + 0.5F * static_cast<float>((x + 2 * y) % 5);
                nucA(y, x) = static_cast<short>(-4000 + 11 * ((x + y) % 13));
                nucB(y, x) = static_cast<short>(6000 - 7 * ((x * y) % 17));
            }
        }
        takeRadiances();
    }

    void takeRadiances()
    {
        radA = line(nucA, gain, offset);
        radB = line(nucB, gain, offset);
    }

    void apply(SuperResolution& engine) const { engine.setNucToRad(nucA, radA, nucB, radB); }

    cv::Mat_<short> countsOf(const cv::Mat_<float>& degrees) const
    {
        cv::Mat_<short> counts;
        cv::Mat((degrees - offset) / gain).convertTo(counts, CV_16S);
        return counts;
    }

    cv::Mat_<float> gain, offset, radA, radB;
    cv::Mat_<short> nucA, nucB;
};

class RadianceEngine : public testing::Test
{
protected:
    vxsupport::CapturedOutput output_;
    Made<SuperResolution> engine_;
    Made<SuperResolution> expectedEngine_;
    vxsupport::Burst burst_ = burstOf(smallFrame, gentleShifts());
    Calibration calibration_{smallFrame};

    std::string messageOfFrame()
    {
        cv::Mat_<float> image(smallFrame * 2);
        return messageOf([&] {
            engine_.processFrame2(calibration_.countsOf(burst_.frames[0]).ptr<short>(), image.ptr<float>());
        });
    }

    // The image of one frame of counts, and of the same frame converted by hand with the given line.
    void expectLine(const cv::Mat_<short>& counts, const cv::Mat_<float>& gain, const cv::Mat_<float>& offset)
    {
        cv::Mat_<float> image(smallFrame * 2);
        const float result = engine_.processFrame2(counts.ptr<short>(), image.ptr<float>());
        const Outcome expected = feedAndCompute(expectedEngine_, {line(counts, gain, offset)});
        EXPECT_EQ(result, expected.result);
        EXPECT_LT(cv::norm(image, expected.image, cv::NORM_INF), 1e-3);
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
    broken.radB(10, 20) = broken.radA(10, 20);
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
    falling.offset = cv::Mat_<float>(smallFrame, 20.0F);
    falling.takeRadiances();
    falling.apply(engine_);
    expectLine(falling.countsOf(burst_.frames[0]), falling.gain, falling.offset);
}

TEST_F(RadianceEngine, RefusesFramesWithoutAFittingCalibration)
{
    EXPECT_EQ(messageOfFrame(), "NucToRad() not initialized");
    for (const cv::Size size : {cv::Size(90, 72), cv::Size(96, 70)}) {
        Calibration(size).apply(engine_);
        EXPECT_EQ(messageOfFrame(), "NucToRad() not initialized");
    }
    calibration_.apply(engine_);
    EXPECT_EQ(messageOfFrame(), "nothing was thrown");

    Calibration mixed = calibration_;
    mixed.radB = cv::Mat_<float>(70, 96, 1.0F);
    EXPECT_NE(messageOf([&] { mixed.apply(engine_); }), "nothing was thrown");
    EXPECT_EQ(messageOfFrame(), "nothing was thrown") << "the old calibration holds";

    // Without any calibrated pixel no line can be repaired, and no pixel of a frame is good.
    mixed = calibration_;
    mixed.nucB = mixed.nucA;
    mixed.apply(engine_);
    EXPECT_THAT(messageOfFrame(), HasSubstr("Too many defect pixels"));
}

TEST_F(RadianceEngine, MapsTheSubPixelPositionsOfTheLastBurst)
{
    const auto map = [this] {
        cv::Mat_<float> quality(1, 1, 7.0F);
        engine_.getQuality(quality);
        return quality;
    };
    EXPECT_TRUE(map().empty());
    EXPECT_NE(messageOf([&] { engine_.computeQuality(); }), "nothing was thrown");
    feedAndCompute(engine_, {burst_.frames[0]});
    EXPECT_TRUE(map().empty()) << "a map is computed on demand";
    engine_.computeQuality();
    EXPECT_EQ(cv::countNonZero(map()), 1);
    EXPECT_EQ(map()(1, 1), 1.0F);

    const Outcome run = feedAndCompute(engine_, burst_.frames);
    engine_.computeQuality();
    cv::Mat_<float> expected(3, 3, 0.0F);
    for (const PointF& shift : run.shifts) {
        const float x = 1.0F + 2.0F * (shift.x - std::floor(shift.x + 0.5F));
        const float y = 1.0F + 2.0F * (shift.y - std::floor(shift.y + 0.5F));
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c)
                expected(r, c) += std::max(0.0F, 1.0F - std::abs(static_cast<float>(r) - y)) *
                                  std::max(0.0F, 1.0F - std::abs(static_cast<float>(c) - x)) / 5.0F;
    }
    EXPECT_LT(cv::norm(map(), expected, cv::NORM_INF), 1e-5);
    EXPECT_NEAR(cv::sum(map())[0], 1.0, 1e-6);
    map().setTo(9.0F);
    EXPECT_NEAR(cv::sum(map())[0], 1.0, 1e-6) << "the map is a copy of its own";
}
