// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SuperResolutionCAdapter.h"

#include <gmock/gmock.h>

#include <cmath>
#include <functional>
#include <limits>

#include "enhancement/superresolution/EngineHarness.h"
#include "enhancement/superresolution/FlatContext.h"
#include "enhancement/superresolution/SrFloat.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"

using namespace vxtest;
using testing::ElementsAre;

TEST_F(FlatInterface, GivesWhatTheEngineWithTheSameSettingsGivesBesideOtherContexts)
{
    Made<halvor::vx::SrFloat<halvor::vx::SrFloatRegistration2>> engine;
    engine.setPsfSigma(0.625F);
    const Outcome expected = feedAndCompute(engine, burst_.frames);
    EXPECT_GT(expected.result, 1.8F);

    const Context context(smallFrame);
    EXPECT_EQ(SuperResolution_setCameraAndLensType(context.number(), "k322 FOV25"), 0);
    const Context other({64, 48});
    const vxsupport::Burst otherBurst = burstOf({64, 48}, gentleShifts());
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(context.add(burst_.frames[i]), 0);
        EXPECT_EQ(other.add(otherBurst.frames[4 - i]), 0);
    }
    // The table has grown meanwhile, which moves every record.
    std::vector<int> more(20);
    for (int& number : more)
        number = SuperResolution_init(16, 16);
    cv::Size size;
    EXPECT_EQ(context.query(size), 0);
    EXPECT_EQ(size, smallFrame * 2);
    EXPECT_EQ(context.image(image_), 0);
    EXPECT_TRUE(sameBits(image_, expected.image));
    for (const int number : more)
        EXPECT_EQ(SuperResolution_release(number), 0);
}

TEST_F(FlatInterface, GivesOutTheLowestFreeNumberWithAFreshCount)
{
    const Context kept(smallFrame);
    const int first = SuperResolution_init(smallFrame.width, smallFrame.height);
    const Context second(smallFrame);
    EXPECT_GT(first, kept.number());
    EXPECT_GT(second.number(), first);
    for (const cv::Mat_<float>& frame : burst_.frames)
        EXPECT_EQ(SuperResolution_addImage(first, frame.ptr<float>()), 0);
    EXPECT_EQ(SuperResolution_release(first), 0);
    EXPECT_EQ(SuperResolution_release(first), failure);

    const Context again({100, 80});
    EXPECT_EQ(again.number(), first);
    cv::Size size;
    EXPECT_EQ(again.query(size), -5);
    EXPECT_EQ(size, cv::Size(200, 160));
}

TEST_F(FlatInterface, RefusesNumbersOfNoOpenContext)
{
    const int released = Context(smallFrame).number();
    std::vector<float> frame(static_cast<std::size_t>(smallFrame.area()) * 4);
    int width = -7;
    int height = -7;
    for (const int number : {released, -1, std::numeric_limits<int>::min(), 1000000}) {
        const std::vector<std::function<int()>> calls{
            [&] { return SuperResolution_addImage(number, frame.data()); },
            [&] { return SuperResolution_addImage(number, nullptr); },
            [&] { return SuperResolution_queryOutputImageSize(number, &width, &height); },
            [&] { return SuperResolution_getSuperresolutionImage(number, frame.data()); },
            [&] { return SuperResolution_setReferenceFrame(number, 99); },
            [&] { return SuperResolution_release(number); }};
        for (const auto& call : calls) {
            const Context other(cv::Size(0, 0));
            SuperResolution_addImage(other.number(), frame.data());
            EXPECT_EQ(message(), "Size of expected Ir images unknown");
            SuperResolution_release(other.number());
            EXPECT_EQ(call(), failure);
            EXPECT_EQ(message(), "Context invalid.");
        }
        EXPECT_EQ(SuperResolution_setCameraAndLensType(number, "k310 FOV20"), 0);
    }
    EXPECT_EQ(width, -7);
    EXPECT_EQ(height, -7);
}

TEST_F(FlatInterface, OpensSizesThatCantTakeFramesAndTellsSoLater)
{
    for (const cv::Size size : {cv::Size(0, 8), cv::Size(8, 0), cv::Size(0, 0)}) {
        const Context context(size);
        ASSERT_GE(context.number(), 0);
        const float pixel = 20.0F;
        EXPECT_EQ(SuperResolution_addImage(context.number(), &pixel), failure);
        EXPECT_EQ(message(), "Size of expected Ir images unknown");
        cv::Size out(-1, -1);
        EXPECT_NE(context.query(out), 0);
        EXPECT_EQ(out, size * 2);
    }
    EXPECT_EQ(SuperResolution_init(-1, 8), -1);
    EXPECT_EQ(message(), "Invalid image size: -1 x 8");
}

TEST_F(FlatInterface, GivesAPreviewBeforeTheFifthFrameAndRefusesANullFrameWithoutCountingIt)
{
    const Context context(smallFrame);
    cv::Size size;
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(context.add(burst_.frames[i]), 0);
        EXPECT_EQ(context.query(size), -5);
        EXPECT_EQ(message(), "Not enough input images (<5)");
        EXPECT_EQ(size, smallFrame * 2);
        EXPECT_EQ(context.image(image_), -5);
        EXPECT_NEAR(cv::mean(image_)[0], cv::mean(burst_.frames[0])[0], 0.5);
    }
    EXPECT_EQ(SuperResolution_addImage(context.number(), nullptr), failure);
    EXPECT_EQ(message(), "ir image data pointer is NULL");
    EXPECT_EQ(context.query(size), -5);
    EXPECT_EQ(context.add(burst_.frames[4]), 0);
    EXPECT_EQ(context.query(size), 0);
    EXPECT_EQ(message(), "Not enough input images (<5)") << "a success clears nothing";
}

TEST_F(FlatInterface, TellsAFrameWithoutStructureButTakesIt)
{
    const Context context(smallFrame);
    EXPECT_EQ(context.add(cv::Mat_<float>(smallFrame, 20.0F)), -4);
    EXPECT_EQ(message(), "  image has not enough structure");
    EXPECT_THAT(context.addAll(burst_.frames, 3), ElementsAre(0, 0, 0));
    // It was counted: this one is the fifth. What is tracked into the flat frame is open.
    context.add(burst_.frames[3]);
    cv::Size size;
    EXPECT_EQ(context.query(size), 0);
    EXPECT_EQ(context.add(burst_.frames[4]), 0);
}

TEST_F(FlatInterface, RanksItsCodes)
{
    const Context context(smallFrame);
    cv::Mat_<float> flat(smallFrame, 0.0F);
    flat(0, 0) = marker(0x84);  // becomes 0, so the frame has neither structure nor a corner
    EXPECT_THAT(context.addAll(std::vector(5, flat)), ElementsAre(-2, -2, -2, -2, -9));
    EXPECT_EQ(message(), "  image has not enough structure");

    const Context good(smallFrame);
    good.addAll(burst_.frames, 4);
    cv::Mat_<float> last = burst_.frames[4].clone();
    last(0, 0) = marker(0x85);
    EXPECT_EQ(good.add(last), -2);
    EXPECT_EQ(good.image(image_), 0);
    EXPECT_GT(cv::mean(image_)[0], 0.0);
}

TEST_F(FlatInterface, TellsAFrameThatDoesNotFitTheOthersButNoLargeDisplacement)
{
    std::vector<PointF> shifts = gentleShifts();
    shifts[4] = {9.0F, 0.0F};
    EXPECT_THAT(Context(smallFrame).addAll(burstOf(smallFrame, shifts).frames), ElementsAre(0, 0, 0, 0, 0));

    cv::Mat_<float> last = burst_.frames[4].clone();
    // The tracker finds the scene, but its temperatures disagree in soft patches everywhere.
    for (int y = 0; y < smallFrame.height; ++y)
        for (int x = 0; x < smallFrame.width; ++x)
            last(y, x) +=
                5.0F * std::sin(0.26F * static_cast<float>(x)) * std::sin(0.26F * static_cast<float>(y));
    const Context context(smallFrame);
    EXPECT_THAT(context.addAll(burst_.frames, 4), ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(context.add(last), -3);
}

TEST_F(FlatInterface, TurnsExceptionsIntoACodeAndAMessage)
{
    const Context context(smallFrame);
    EXPECT_THAT(context.addAll(burst_.frames, 4), ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(context.add(ruined(burst_.frames[4])), failure);
    EXPECT_EQ(message(), "Too many defect pixels. No processing possible.");
    // Not counted, and no obstacle to what follows.
    cv::Size size;
    EXPECT_NE(context.query(size), 0);
    EXPECT_EQ(size, smallFrame * 2);
    for (int i = 0; i < 2; ++i)
        context.addAll(burst_.frames);
    EXPECT_EQ(context.add(burst_.frames[0]), 0);

    const cv::Size strip{128, 24};
    std::vector<PointF> shifts = gentleShifts();
    shifts[4] = {13.0F, 0.0F};
    const Context narrow(strip);
    EXPECT_THAT(narrow.addAll(burstOf(strip, shifts).frames), ElementsAre(0, 0, 0, 0, failure));
    EXPECT_EQ(message(), "Too large displacement");
    EXPECT_EQ(narrow.query(size), 0);  // counted, as the frame itself was taken
}

TEST_F(FlatInterface, MovesTheImageWithTheReferenceAndLetsTheEnginesRefusalPass)
{
    std::vector<cv::Mat_<float>> images;
    for (const int index : {3, 0}) {
        const Context context(smallFrame);
        EXPECT_EQ(SuperResolution_setReferenceFrame(context.number(), index), 0);
        context.addAll(burst_.frames);
        images.emplace_back(smallFrame * 2, -1.0F);
        context.image(images.back());
        for (const int refused : {5, -1})
            EXPECT_THROW(SuperResolution_setReferenceFrame(context.number(), refused), const char*);
    }
    // The newest frame sees the scene 1.7 pixels higher than the second: about three of the large image's.
    const cv::Rect inner(20, 20, 152, 104);
    const cv::Rect lower(20, 23, 152, 104);
    EXPECT_LT(cv::norm(images[1](inner), images[0](lower)),
              0.5 * cv::norm(images[1](inner), images[0](inner)));
}

TEST_F(FlatInterface, CopiesTheMessageAsFarAsItFits)
{
    SuperResolution_release(-1);
    std::array<char, 24> buffer{};
    buffer.fill('#');
    EXPECT_EQ(SuperResolution_getErrorMessage(buffer.data(), 7), 0);
    EXPECT_EQ(std::string(buffer.data(), 9), "Context##");
    EXPECT_EQ(SuperResolution_getErrorMessage(buffer.data(), 20), 0);
    EXPECT_EQ(std::string(buffer.data(), 22), std::string("Context invalid.\0\0\0\0##", 22));
    for (const int size : {0, -1})
        EXPECT_EQ(SuperResolution_getErrorMessage(buffer.data(), size), 0);
    EXPECT_EQ(buffer[0], 'C');
}
