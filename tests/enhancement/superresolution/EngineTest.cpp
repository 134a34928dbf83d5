// SPDX-License-Identifier: Apache-2.0
// What all engines promise; what one alone knows stands with its class.

#include <gmock/gmock.h>

#include <cmath>

#include "enhancement/superresolution/EngineHarness.h"
#include "enhancement/superresolution/SrFloat.h"
#include "enhancement/superresolution/SrFloatRegistration1.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "enhancement/superresolution/reference/SuperResolution.h"
#include "support/CapturedOutput.h"
#include "support/PictureMeasures.h"

using namespace halvor::vx;
using namespace vxtest;

namespace {

template <typename Kind>
class Engine : public testing::Test
{
protected:
    // A burst whose fourth frame is displaced.
    static float resultAtShift(PointF shift, float regError = 1e-4F, cv::Size size = {160, 120})
    {
        std::vector<PointF> shifts = gentleShifts();
        shifts[3] = shift;
        Made<Kind> engine(size);
        engine.setRegError(regError);
        return feedAndCompute(engine, burstOf(size, shifts).frames).result;
    }

    const vxsupport::Burst burst_ = burstOf(smallFrame, gentleShifts());

private:
    vxsupport::CapturedOutput lines_;  // of the reference engine
};

using Kinds = testing::Types<SrFloat<SrFloatRegistration2>, SrFloat<SrFloatRegistration1>, SuperResolution>;
TYPED_TEST_SUITE(Engine, Kinds);

}  // namespace

TYPED_TEST(Engine, ReplacesTheOldestFrameAndForgetsIt)
{
    const std::vector<cv::Mat_<float>>& frames = this->burst_.frames;
    Made<TypeParam> engine;
    const Outcome first = feedAndCompute(engine, frames);
    ASSERT_GT(first.result, 1.8F);
    EXPECT_TRUE(sameBits(compute(engine).image, first.image)) << "may be repeated";
    for (int i = 0; i < 3; ++i)
        engine.addFrame(frames[i].template ptr<float>());
    EXPECT_FALSE(sameBits(compute(engine).image, first.image));
    for (int i = 3; i < windowLength; ++i)
        engine.addFrame(frames[i].template ptr<float>());
    const Outcome again = compute(engine);
    EXPECT_TRUE(sameBits(again.image, first.image));
    EXPECT_EQ(again.result, first.result);
}

TYPED_TEST(Engine, TakesTheReferenceCountedBackFromTheNewestFrameOrTheOldestThereIs)
{
    Made<TypeParam> engine;
    for (int count = 1; count <= windowLength; ++count) {
        engine.addFrame(this->burst_.frames[count - 1].template ptr<float>());
        const Outcome run = compute(engine);
        ASSERT_EQ(run.shifts.size(), static_cast<std::size_t>(count));
        const int reference = count == windowLength ? 1 : 0;
        EXPECT_EQ(run.shifts[reference].x, 0.0F) << count;
        EXPECT_EQ(run.shifts[reference].y, 0.0F) << count;
        EXPECT_EQ(cv::countNonZero(run.masks[reference]), smallFrame.area()) << count;
    }
    engine.setReferenceIndex(0);
    EXPECT_EQ(compute(engine).shifts[4].x, 0.0F);
}

TYPED_TEST(Engine, CountsTheFramesThatCoverAPixel)
{
    Made<TypeParam> engine;
    for (const float expected : {1.0F, 1.25F, 1.5F, 1.75F, 2.0F, 2.0F}) {
        engine.addFrame(this->burst_.frames[0].template ptr<float>());
        EXPECT_EQ(compute(engine).result, expected);
    }
}

// Hosts know the figure of factor 2, so the first engine of a type in the process counts for all.
TYPED_TEST(Engine, CountsNoFurtherThanTheFirstEngineOfTheProcessDoes)
{
    Made<TypeParam> first;
    feedAndCompute(first, this->burst_.frames);
    TypeParam large(smallFrame.width, smallFrame.height, 7, 3.0F);
    EXPECT_EQ(large.getOutputSize(), 9 * smallFrame.area());
    for (int i = 0; i < 7; ++i)
        large.addFrame(this->burst_.frames[0].template ptr<float>());
    const Outcome run = compute(large, smallFrame * 3);
    EXPECT_EQ(run.result, 2.0F);
    double low = 0.0;
    double high = 0.0;
    cv::minMaxLoc(this->burst_.frames[0], &low, &high);
    EXPECT_TRUE(cv::checkRange(run.image, true, nullptr, low - 5.0, high + 5.0));
}

TYPED_TEST(Engine, WarnsOfLargeDisplacementsButOfNoneUpwards)
{
    // A tenth of the height of 120 is 12.
    EXPECT_EQ(this->resultAtShift({13.2F, 0.0F}), -6.0F);
    EXPECT_EQ(this->resultAtShift({-13.2F, 0.0F}), -6.0F);
    EXPECT_EQ(this->resultAtShift({0.0F, 13.2F}), -6.0F);
    EXPECT_GT(this->resultAtShift({0.0F, -13.2F}), 1.0F);
    EXPECT_GT(this->resultAtShift({11.0F, 11.0F}), 1.0F);
}

TYPED_TEST(Engine, WarnsOfAPoorFrameUnlessADisplacementIsLarge)
{
    EXPECT_EQ(this->resultAtShift({0.0F, 13.2F}, 1e-12F), -6.0F);
    Made<TypeParam> engine;
    engine.setRegError(1e-12F);
    const Outcome poor = feedAndCompute(engine, this->burst_.frames);
    EXPECT_EQ(poor.result, -3.0F);
    // The image is written all the same: from the reference frame alone it is an enlargement.
    EXPECT_TRUE(cv::checkRange(poor.image));
    EXPECT_GT(vxsupport::psnr(poor.image, this->burst_.truth, 12), 15.0);
}

TYPED_TEST(Engine, LeavesNoTraceOfBadPixelsInTheImage)
{
    Made<TypeParam> clean;
    const Outcome expected = feedAndCompute(clean, this->burst_.frames);
    Made<TypeParam> engine;
    std::vector<cv::Mat_<float>> frames;
    for (const cv::Mat_<float>& frame : this->burst_.frames) {
        frames.push_back(frame.clone());
        frames.back()(30, 40) = marker(0x81);
        frames.back()(50, 20) = std::numeric_limits<float>::quiet_NaN();
    }
    const Outcome repaired = feedAndCompute(engine, frames);
    EXPECT_TRUE(cv::checkRange(repaired.image));
    EXPECT_FALSE(sameBits(repaired.image, expected.image));
    EXPECT_LT(cv::norm(repaired.image, expected.image, cv::NORM_INF), 6.0);
    frames[0](0, 0) = marker(0x84);
    EXPECT_EQ(engine.addFrame(frames[0].template ptr<float>()), -2);
}

TYPED_TEST(Engine, SurvivesQueriesWithoutFramesAndFramesBeyondRepair)
{
    const std::vector<cv::Mat_<float>>& frames = this->burst_.frames;
    Made<TypeParam> engine;
    messageOf([&] { compute(engine); });  // an exception or a code
    EXPECT_EQ(messageOf([&] { engine.addFrame(ruined(frames[0]).template ptr<float>()); }),
              "Too many defect pixels. No processing possible.");
    messageOf([&] { compute(engine); });
    engine.clearFrames();
    messageOf([&] { compute(engine); });
    for (int pass = 0; pass < 2; ++pass)
        for (const cv::Mat_<float>& frame : frames)
            engine.addFrame(frame.template ptr<float>());
    Made<TypeParam> fresh;
    EXPECT_TRUE(sameBits(compute(engine).image, feedAndCompute(fresh, frames).image));
}

// What frames, masks, spectra and defects an engine keeps slides in step again.
TYPED_TEST(Engine, GivesTheBitsOfANewOneAWindowAfterItWasEmptied)
{
    Made<TypeParam> fresh;
    const Outcome expected = feedAndCompute(fresh, this->burst_.frames);
    for (int kept = 1; kept <= windowLength; ++kept) {
        Made<TypeParam> engine;
        for (int i = 0; i < kept; ++i)
            engine.addFrame(this->burst_.frames[windowLength - 1 - i].template ptr<float>());
        engine.clearFrames();
        EXPECT_TRUE(sameBits(feedAndCompute(engine, this->burst_.frames).image, expected.image)) << kept;
    }
}

TYPED_TEST(Engine, ComparesTheSpanOfAFrameWithTheThresholdIncluded)
{
    Made<TypeParam> engine;
    cv::Mat_<float> frame(6, 8, 20.0F);
    frame(2, 3) = 22.0F;
    EXPECT_TRUE(engine.checkImageStructureQuality(frame));
    frame(2, 3) = 21.875F;
    EXPECT_FALSE(engine.checkImageStructureQuality(frame));
    engine.setMinStructureThreshold(1.875F);
    EXPECT_TRUE(engine.checkImageStructureQuality(frame));
    engine.setMinStructureThreshold(-1.0F);
    EXPECT_TRUE(engine.checkImageStructureQuality(cv::Mat_<float>(6, 8, 20.0F)));
}

TYPED_TEST(Engine, KeepsSettingsInTheirRangeAndRefusesTheRest)
{
    using E = TypeParam;
    Made<E> engine;
    EXPECT_EQ(engine.getInputSize(), smallFrame.area());
    EXPECT_EQ(engine.getOutputSize(), 4 * smallFrame.area());
    EXPECT_EQ(engine.getWindowSize(), windowLength);
    EXPECT_EQ(engine.getReferenceIndex(), 3);
    const auto expectInt = [&engine](void (E::*set)(int), int (E::*get)() const, int accepted,
                                     std::initializer_list<int> refused, const std::string& text) {
        (engine.*set)(accepted);
        for (const int value : refused)
            EXPECT_EQ(messageOf([&] { (engine.*set)(value); }), text);
        EXPECT_EQ((engine.*get)(), accepted);
    };
    const auto expectFloat = [&engine](void (E::*set)(float), float (E::*get)() const, float standard,
                                       float accepted, std::vector<float> refused, const std::string& text) {
        EXPECT_EQ((engine.*get)(), standard);
        (engine.*set)(accepted);
        refused.push_back(std::numeric_limits<float>::quiet_NaN());
        for (const float value : refused)
            EXPECT_EQ(messageOf([&] { (engine.*set)(value); }), text) << value;
        EXPECT_EQ((engine.*get)(), accepted);
    };
    EXPECT_EQ(engine.getMaxCGIters(), 8);
    expectInt(&E::setReferenceIndex, &E::getReferenceIndex, 4, {5, -1}, "Invalid reference index specified.");
    expectInt(&E::setMaxCGIters, &E::getMaxCGIters, 1, {0, -1},
              "Invalid maximum number of iterations specified.");
    const std::string weight = "Invalid total-variation term weight specified.";
    expectFloat(&E::setPsfSigma, &E::getPsfSigma, 0.683F, 0.01F, {0.0F, -0.5F},
                "Invalid standard deviation of the sensor psf specified.");
    expectFloat(&E::setWeightTV, &E::getWeightTV, 400.0F, 1.0F, {0.5F, -3.0F}, weight);
    expectFloat(&E::setRegError, &E::getRegError, 0.0001F, 1.0F, {0.0F, -0.1F, 1.0001F},
                "Invalid maximum registration error specified.");
    // The float nearest to 1e-6 lies below it; the next one is accepted.
    expectFloat(&E::setRelativeResidue, &E::getRelativeResidue, 0.007F, std::nextafter(1e-6F, 1.0F),
                {1e-6F, 1e-7F, 0.0F}, weight);
}

TYPED_TEST(Engine, RefusesSizesThatNoImageCanHave)
{
    const auto refusal = [](int width, int height, int frames, float factor) {
        return messageOf([=] { TypeParam(width, height, frames, factor); });
    };
    EXPECT_EQ(refusal(96, 72, 0, 2.0F), "Invalid reference index specified.");
    EXPECT_EQ(refusal(96, 72, -1, 2.0F), "Invalid reference index specified.");
    EXPECT_EQ(refusal(-2, 8, 5, 2.0F), "Invalid image size: -2 x 8");
    EXPECT_EQ(refusal(65536, 65536, 5, 2.0F), "Invalid image size: 65536 x 65536");
    EXPECT_EQ(refusal(40000, 40000, 5, 2.0F), "Invalid image size: 80000 x 80000");
    EXPECT_THAT(refusal(96, 72, 5, -2.0F), testing::HasSubstr("Invalid enlargement"));
    EXPECT_THAT(refusal(96, 72, 5, std::numeric_limits<float>::quiet_NaN()),
                testing::HasSubstr("Invalid enlargement"));
}
