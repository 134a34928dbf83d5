#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <opencv2/core.hpp>
#include <random>
#include <string>
#include <vector>

#include "core/base/Exception.h"
#include "enhancement/AllocationCounter.h"
#include "enhancement/superresolution/RegistrationHarness.h"
#include "enhancement/superresolution/SrFloatRegistration1.h"

using namespace halvor::vx;
using namespace vxtest;

namespace {

using Harness = RegistrationHarness<SrFloatRegistration1>;

// Detail of a pixel or two all over the frame.
const Scene& detailedScene()
{
    static const Scene scene(frameSize, 20, 3000, 0.7, 2.0);
    return scene;
}

void addDetailedBurst(Harness& harness)
{
    static const std::vector<cv::Mat_<float>> frames = [] {
        std::vector<cv::Mat_<float>> result;
        result.reserve(burst.size());
        for (const cv::Point2d& d : burst)
            result.push_back(detailedScene().frame(frameSize, d.x, d.y));
        return result;
    }();
    for (const cv::Mat_<float>& frame : frames)
        harness.add(frame);
}

// One gradient step overshoots by up to a tenth of the sub-pixel part on detail this fine.
constexpr float tolerance = 0.06F;

cv::Mat_<float> noise(const cv::Size& size)
{
    std::mt19937 random(11);
    std::uniform_real_distribution<float> values(20.0F, 30.0F);
    cv::Mat_<float> image(size);
    for (float& value : image)
        value = values(random);
    return image;
}

// The image moved right and down, with what leaves at one side coming in at the other.
cv::Mat_<float> rolled(const cv::Mat_<float>& image, int right, int down)
{
    cv::Mat_<float> result(image.size());
    for (int y = 0; y < image.rows; ++y)
        for (int x = 0; x < image.cols; ++x)
            result((y + down + image.rows) % image.rows, (x + right + image.cols) % image.cols) = image(y, x);
    return result;
}

}  // namespace

TEST(PhaseRegistration, RecoversSubPixelDisplacementsWithTheirSigns)
{
    Harness harness(frameSize, 5);
    addDetailedBurst(harness);
    ASSERT_EQ(harness.run(burstReference), 0);
    const std::vector<PointF> complete = harness.complete();
    ASSERT_EQ(complete.size(), burst.size());
    for (std::size_t i = 0; i < burst.size(); ++i) {
        EXPECT_NEAR(complete[i].x, burst[i].x, tolerance) << "frame " << i;
        EXPECT_NEAR(complete[i].y, burst[i].y, tolerance) << "frame " << i;
        EXPECT_NEAR(harness.shifts[i].x, complete[i].x - std::round(complete[i].x), 1e-6) << "frame " << i;
        EXPECT_NEAR(harness.shifts[i].y, complete[i].y - std::round(complete[i].y), 1e-6) << "frame " << i;
    }
    EXPECT_EQ(complete[burstReference].x, 0.0F);
    EXPECT_EQ(complete[burstReference].y, 0.0F);
    EXPECT_EQ(harness.usablePixels(burstReference), harness.area());
    EXPECT_GT(harness.usablePixels(3), harness.area() * 8 / 10);
    const cv::Rect inner(10, 10, frameSize.width - 20, frameSize.height - 20);
    EXPECT_TRUE(
        sameBits(harness.registered[3](inner).clone(), harness.frames[3](inner + cv::Point(4, 2)).clone()));
    EXPECT_EQ(harness.registered[3](frameSize.height - 1, frameSize.width - 1), 0.0F)
        << "a positive offset leaves the end of the array empty";
    EXPECT_EQ(harness.registered[4](0, 0), 0.0F) << "a negative one its start";
}

TEST(PhaseRegistration, FindsIdenticalFramesInPlace)
{
    Harness harness(frameSize, 2);
    const cv::Mat_<float> frame = detailedScene().frame(frameSize, 0.0, 0.0);
    harness.add(frame);
    harness.add(frame);
    ASSERT_EQ(harness.run(0), 0);
    EXPECT_EQ(harness.complete()[1].x, 0.0F);
    EXPECT_EQ(harness.complete()[1].y, 0.0F);
    EXPECT_EQ(harness.usablePixels(1), harness.area());
}

// On frames higher than wide no limit hides a horizontal peak at half the width.
TEST(PhaseRegistration, KeepsAPeakAtHalfTheFramePositiveAndWrapsTheNextOne)
{
    struct Case
    {
        int right;
        int down;
        float expectedX;
        float expectedY;
    };
    constexpr Case cases[] = {{20, 0, 20, 0}, {21, 0, -19, 0},  {-19, 0, -19, 0},
                              {0, 28, 0, 28}, {0, -27, 0, -27}, {5, -7, 5, -7}};
    const cv::Mat_<float> scene = noise({40, 58});
    for (const Case& c : cases) {
        Harness harness(scene.size(), 2);
        harness.add(scene);
        harness.add(rolled(scene, c.right, c.down));
        ASSERT_EQ(harness.run(0), 0) << c.right << ", " << c.down;
        EXPECT_NEAR(harness.complete()[1].x, c.expectedX, 0.1);
        EXPECT_NEAR(harness.complete()[1].y, c.expectedY, 0.1);
    }
}

TEST(PhaseRegistration, RefusesADisplacementOfHalfTheHeightInEitherDirection)
{
    const cv::Mat_<float> scene = noise({96, 44});
    const auto runWith = [&](int right, int down) {
        Harness harness(scene.size(), 2);
        harness.add(scene);
        harness.add(rolled(scene, right, down));
        return harness.run(0);
    };
    EXPECT_EQ(runWith(21, 0), 0);
    EXPECT_EQ(runWith(0, -21), 0);
    for (const int dx : {23, -23, 48}) {
        try {
            runWith(dx, 0);
            ADD_FAILURE() << dx;
        } catch (const Exception& failure) {
            EXPECT_STREQ(failure.what(), "Too large displacement");
            EXPECT_THAT(failure.where(), testing::MatchesRegex(
                                             "modules/.*SrFloatRegistration1\\.cpp:[0-9]+ : "
                                             "halvor::vx::SrFloatRegistration1::doRegistration\\(\\.\\.\\)"));
        }
    }
}

TEST(PhaseRegistration, RefusesADisplacementThatIsNotANumberAndRecovers)
{
    const cv::Mat_<float> flat(frameSize, 20.0F);
    const cv::Mat_<float> zero(frameSize, 0.0F);
    for (const cv::Mat_<float>& second : {flat, zero}) {
        Harness harness(frameSize, 5);
        harness.add(zero);
        harness.add(second);
        EXPECT_THROW(harness.run(0), Exception);
        EXPECT_TRUE(std::isnan(harness.complete()[1].x));
        EXPECT_EQ(harness.usablePixels(1), 0);

        harness.frames.clear();
        addDetailedBurst(harness);
        ASSERT_EQ(harness.run(burstReference), 0);
        EXPECT_NEAR(harness.complete()[3].x, burst[3].x, tolerance);
    }
}

TEST(PhaseRegistration, ClearsTheMasksOfTheFramesInUse)
{
    Harness harness(frameSize, 5);
    addDetailedBurst(harness);
    ASSERT_EQ(harness.run(burstReference), 0);
    harness.frames.resize(3);
    for (cv::Mat_<char>& mask : harness.masks)
        mask.setTo(5);
    ASSERT_EQ(harness.run(burstReference), 0);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(cv::countNonZero(harness.masks[i] == 5), 0) << i;
    for (std::size_t i = 3; i < 5; ++i)
        EXPECT_EQ(cv::countNonZero(harness.masks[i] == 5), harness.area()) << i;
    EXPECT_EQ(harness.complete().size(), 5U);
}

TEST(PhaseRegistration, TurnsTheRingOfSpectraWithTheFrames)
{
    Harness harness(frameSize, 2);
    const Scene& scene = detailedScene();
    for (const double dx : {-2.0, 0.0, 3.0})
        harness.add(scene.frame(frameSize, dx, 0.0));
    harness.frames.erase(harness.frames.begin());
    ASSERT_EQ(harness.run(0), 0);
    EXPECT_NEAR(harness.complete()[1].x, 3.0, tolerance);
    harness.frames[1] = scene.frame(frameSize, 0.5, 0.0);
    harness.registration.prepareFrame(harness.frames[1][0]);
    harness.frames[0] = scene.frame(frameSize, 3.0, 0.0);
    ASSERT_EQ(harness.run(1), 0);
    EXPECT_NEAR(harness.complete()[0].x, 2.5, tolerance);
}

TEST(PhaseRegistration, RefusesAKernelThatDoesNotFitAndKeepsTheOldOne)
{
    Harness harness(frameSize, 5);
    EXPECT_THROW(harness.registration.setGaussRadius(60), Exception);
    EXPECT_THROW(harness.registration.setGaussRadius(-1), Exception);
    EXPECT_EQ(harness.registration.getGaussRadius(), 5);
    harness.registration.setGaussRadius(2);
    addDetailedBurst(harness);
    ASSERT_EQ(harness.run(burstReference), 0);
    EXPECT_NEAR(harness.complete()[3].x, burst[3].x, tolerance);
    EXPECT_THROW(SrFloatRegistration1(10, 40, 5), Exception);
}

TEST(PhaseRegistration, GivesTheSameBitsForAnyNumberOfThreads)
{
    const int before = omp_get_max_threads();
    const auto runWith = [](Harness& harness, int threads) {
        omp_set_num_threads(threads);
        addDetailedBurst(harness);
        return harness.run(burstReference);
    };
    Harness one(frameSize, 5);
    ASSERT_EQ(runWith(one, 1), 0);
    for (const int threads : {2, 7}) {
        Harness many(frameSize, 5);
        ASSERT_EQ(runWith(many, threads), 0);
        for (std::size_t i = 0; i < burst.size(); ++i) {
            EXPECT_EQ(many.complete()[i].x, one.complete()[i].x);
            EXPECT_EQ(many.complete()[i].y, one.complete()[i].y);
            EXPECT_TRUE(sameBits(many.masks[i], one.masks[i]));
            EXPECT_TRUE(sameBits(many.registered[i], one.registered[i]));
        }
    }
    omp_set_num_threads(before);
}

TEST(PhaseRegistration, AllocatesNothingAfterTheFirstRun)
{
    Harness harness(frameSize, 5);
    addDetailedBurst(harness);
    ASSERT_EQ(harness.run(burstReference), 0);
    std::vector<float*> rows;
    for (cv::Mat_<float>& frame : harness.frames)
        rows.push_back(frame[0]);
    std::vector<char*> masks;
    for (cv::Mat_<char>& mask : harness.masks)
        masks.push_back(mask[0]);
    std::vector<float*> registered;
    for (cv::Mat_<float>& frame : harness.registered)
        registered.push_back(frame[0]);

    const blocktest::AllocationCounter allocations;
    harness.registration.prepareFrame(rows[0]);
    harness.registration.doRegistration(5, burstReference, rows.data(), harness.shifts.data(), masks.data(),
                                        registered.data());
    EXPECT_EQ(allocations.count(), 0U);
}
