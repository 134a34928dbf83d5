// SPDX-License-Identifier: Apache-2.0
// What all registrations promise; what one alone knows stands with its class.

#include <gmock/gmock.h>

#include <cmath>
#include <utility>

#include "core/base/Exception.h"
#include "enhancement/superresolution/RegistrationHarness.h"
#include "enhancement/superresolution/SrFloatRegistration1.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "enhancement/superresolution/TestBursts.h"
#include "support/CapturedOutput.h"

using namespace halvor::vx;
using namespace vxtest;

namespace {

struct Corner
{
    using Registration = SrFloatRegistration2;
    static constexpr const char* name = "SrFloatRegistration2";
    static constexpr float tolerance = 0.03F;
    static constexpr bool clearsWholeWindow = true;
    static const Scene& scene()
    {
        static const Scene fine = fineScene();
        return fine;
    }
    // A strip whose scene lies further right.
    static cv::Mat_<float> strip(int dx)
    {
        const cv::Size size(96, 44);
        return Scene(size, 100, 63, 8.0, 8.0).frame(size, dx, 0.0);
    }
};

struct Phase
{
    using Registration = SrFloatRegistration1;
    static constexpr const char* name = "SrFloatRegistration1";
    // One gradient step overshoots by up to a tenth of the sub-pixel part on detail this fine.
    static constexpr float tolerance = 0.06F;
    static constexpr bool clearsWholeWindow = false;
    static const Scene& scene() { return detailedScene(); }
    static cv::Mat_<float> strip(int dx) { return rolled(noise({96, 44}), dx, 0); }
};

struct Serial : Phase
{
    using Registration = SerialRegistration;
    static constexpr const char* name = "SuperResolutionRegistration";
};

template <typename Kind>
class Registration : public testing::Test
{
protected:
    using Harness = RegistrationHarness<typename Kind::Registration>;

private:
    vxsupport::CapturedOutput taps_;  // the serial one writes its kernel
};

using Kinds = testing::Types<Corner, Phase, Serial>;
TYPED_TEST_SUITE(Registration, Kinds);

}  // namespace

TYPED_TEST(Registration, FindsSubPixelDisplacementsAndMovesTheFramesByWholePixels)
{
    typename TestFixture::Harness harness(frameSize, 5);
    addBurst(harness, TypeParam::scene());
    ASSERT_EQ(harness.run(burstReference), 0);
    const std::vector<PointF> complete = harness.complete();
    ASSERT_EQ(complete.size(), burst.size());
    const cv::Rect inner(10, 10, frameSize.width - 20, frameSize.height - 20);
    for (std::size_t i = 0; i < burst.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_NEAR(complete[i].x, burst[i].x, TypeParam::tolerance);
        EXPECT_NEAR(complete[i].y, burst[i].y, TypeParam::tolerance);
        const cv::Point whole(cvRound(complete[i].x), cvRound(complete[i].y));
        EXPECT_NEAR(harness.shifts[i].x, complete[i].x - static_cast<float>(whole.x), 1e-6);
        EXPECT_NEAR(harness.shifts[i].y, complete[i].y - static_cast<float>(whole.y), 1e-6);
        EXPECT_TRUE(sameBits(harness.registered[i](inner), harness.frames[i](inner + whole)));
    }
    EXPECT_EQ(complete[burstReference].x, 0.0F);
    EXPECT_EQ(complete[burstReference].y, 0.0F);
    EXPECT_EQ(harness.registered[3](frameSize.height - 1, frameSize.width - 1), 0.0F)
        << "a positive offset leaves the end of the array empty";
    EXPECT_EQ(harness.registered[4](0, 0), 0.0F) << "a negative one its start";
}

TYPED_TEST(Registration, MarksTheReferenceWhollyAndTheOthersWhereTheyAgree)
{
    typename TestFixture::Harness harness(frameSize, 5);
    for (const cv::Point2d& d : burst) {
        cv::Mat_<float> frame = TypeParam::scene().frame(frameSize, d.x, d.y);
        if (harness.frames.size() == 2)
            frame(cv::Rect(90, 60, 12, 12)) += 6.0F;
        harness.add(frame);
    }
    ASSERT_EQ(harness.run(burstReference), 0);
    EXPECT_EQ(harness.usablePixels(burstReference), harness.area());
    EXPECT_EQ(harness.masks[2](66, 96), 0) << "the object is in this frame alone";
    EXPECT_EQ(harness.masks[2](20, 20), 1);
    EXPECT_EQ(harness.masks[0](66, 96), 1);
    const cv::Rect window(0, 0, frameSize.width - 4, frameSize.height - 2);
    EXPECT_EQ(cv::countNonZero(harness.masks[3]), cv::countNonZero(harness.masks[3](window)))
        << "displaced by (3.7, 2.2)";
    EXPECT_GT(harness.usablePixels(3), harness.area() * 8 / 10);
}

TYPED_TEST(Registration, AShorterRunClearsItsMasksAndKeepsTheShiftsOfALongerOne)
{
    typename TestFixture::Harness harness(frameSize, 5);
    addBurst(harness, TypeParam::scene());
    ASSERT_EQ(harness.run(burstReference), 0);
    harness.frames.resize(3);
    for (cv::Mat_<char>& mask : harness.masks)
        mask.setTo(5);
    ASSERT_EQ(harness.run(0), 0);
    for (std::size_t i = 0; i < 5; ++i)
        EXPECT_EQ(cv::countNonZero(harness.masks[i] == 5),
                  i < 3 || TypeParam::clearsWholeWindow ? 0 : harness.area())
            << i;
    const std::vector<PointF> complete = harness.complete();
    ASSERT_EQ(complete.size(), 5U);
    EXPECT_NEAR(complete[1].x, 1.3, 2.0F * TypeParam::tolerance);
    EXPECT_NEAR(complete[3].x, 3.7, TypeParam::tolerance);
}

TYPED_TEST(Registration, RefusesADisplacementOfHalfTheHeightInEitherDirection)
{
    testing::internal::CaptureStderr();
    const auto runWith = [](int dx) {
        typename TestFixture::Harness harness(cv::Size(96, 44), 2);
        harness.add(TypeParam::strip(0));
        harness.add(TypeParam::strip(dx));
        return harness.run(0);
    };
    EXPECT_EQ(runWith(21), 0);
    for (const int dx : {23, -23}) {
        try {
            runWith(dx);
            ADD_FAILURE() << dx;
        } catch (const Exception& failure) {
            EXPECT_STREQ(failure.what(), "Too large displacement");
            const std::string name = TypeParam::name;
            EXPECT_THAT(failure.where(),
                        testing::MatchesRegex("modules/.*" + name + "\\.cpp:[0-9]+ : halvor::vx::" + name +
                                              "::doRegistration\\(\\.\\.\\)"));
        }
    }
    testing::internal::GetCapturedStderr();
}

TYPED_TEST(Registration, GivesTheSameBitsForAnyNumberOfThreads)
{
    const cv::Size large(640, 480);  // small frames are not shared among threads
    const Scene scene = fineScene(large);
    const auto runWith = [&](auto& harness, int threads) {
        const ThreadCount limit(threads);
        addBurst(harness, scene, large);
        return harness.run(burstReference);
    };
    typename TestFixture::Harness one(large, 5);
    ASSERT_EQ(runWith(one, 1), 0);
    for (const int threads : {2, 7}) {
        typename TestFixture::Harness many(large, 5);
        ASSERT_EQ(runWith(many, threads), 0);
        for (std::size_t i = 0; i < burst.size(); ++i) {
            EXPECT_EQ(many.complete()[i].x, one.complete()[i].x);
            EXPECT_EQ(many.complete()[i].y, one.complete()[i].y);
            EXPECT_TRUE(sameBits(many.masks[i], one.masks[i]));
            EXPECT_TRUE(sameBits(many.registered[i], one.registered[i]));
        }
    }
}

template <typename Kind>
class PhaseCorrelation : public Registration<Kind>
{};
using PhaseKinds = testing::Types<Phase, Serial>;
TYPED_TEST_SUITE(PhaseCorrelation, PhaseKinds);

TYPED_TEST(PhaseCorrelation, RefusesADisplacementThatIsNotANumberAndRecovers)
{
    testing::internal::CaptureStderr();
    for (const float level : {20.0F, 0.0F}) {
        typename TestFixture::Harness harness(frameSize, 5);
        harness.add(cv::Mat_<float>(frameSize, 0.0F));
        harness.add(cv::Mat_<float>(frameSize, level));
        EXPECT_THROW(harness.run(0), Exception);
        EXPECT_TRUE(std::isnan(harness.complete()[1].x));
        EXPECT_EQ(harness.usablePixels(0), harness.area());
        EXPECT_EQ(harness.usablePixels(1), 0);

        harness.frames.clear();
        addBurst(harness, detailedScene());
        ASSERT_EQ(harness.run(burstReference), 0);
        EXPECT_NEAR(harness.complete()[3].x, burst[3].x, TypeParam::tolerance);
    }
    testing::internal::GetCapturedStderr();
}

// On frames higher than wide no limit hides a horizontal peak at half the width.
TYPED_TEST(PhaseCorrelation, KeepsAPeakAtHalfTheFramePositiveAndWrapsTheNextOne)
{
    const std::pair<cv::Point, cv::Point> cases[] = {{{20, 0}, {20, 0}},   {{21, 0}, {-19, 0}},
                                                     {{-19, 0}, {-19, 0}}, {{0, 28}, {0, 28}},
                                                     {{0, -27}, {0, -27}}, {{5, -7}, {5, -7}}};
    const cv::Mat_<float> scene = noise({40, 58});
    for (const auto& [move, expected] : cases) {
        typename TestFixture::Harness harness(scene.size(), 2);
        harness.add(scene);
        harness.add(rolled(scene, move.x, move.y));
        ASSERT_EQ(harness.run(0), 0) << move;
        EXPECT_NEAR(harness.complete()[1].x, expected.x, 0.25);
        EXPECT_NEAR(harness.complete()[1].y, expected.y, 0.25);
    }
}
