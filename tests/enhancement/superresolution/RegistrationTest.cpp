#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>
#include <random>
#include <string>
#include <vector>

#include "core/base/Exception.h"
#include "core/diagnostics/LogFacility.h"
#include "enhancement/superresolution/RegistrationHarness.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"

using namespace halvor::vx;
using namespace vxtest;

namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();

using Harness = RegistrationHarness<SrFloatRegistration2>;

}  // namespace

TEST(CornerRegistration, RecoversSubPixelDisplacementsWithTheirSigns)
{
    Harness harness(frameSize, 5);
    addBurst(harness);
    ASSERT_EQ(harness.run(burstReference), 0);
    const std::vector<PointF> complete = harness.complete();
    ASSERT_EQ(complete.size(), burst.size());
    for (std::size_t i = 0; i < burst.size(); ++i) {
        EXPECT_NEAR(complete[i].x, burst[i].x, 0.03) << "frame " << i;
        EXPECT_NEAR(complete[i].y, burst[i].y, 0.03) << "frame " << i;
    }
    EXPECT_EQ(complete[burstReference].x, 0.0F);
    EXPECT_EQ(complete[burstReference].y, 0.0F);
}

TEST(CornerRegistration, MovesTheRawFramesAndKeepsTheSubPixelRemainder)
{
    Harness harness(frameSize, 5);
    addBurst(harness);
    ASSERT_EQ(harness.run(burstReference), 0);
    const std::vector<PointF> complete = harness.complete();
    const std::vector<cv::Point> whole = {{-1, 1}, {0, 0}, {0, 0}, {4, 2}, {-5, -5}};
    for (std::size_t i = 0; i < burst.size(); ++i) {
        EXPECT_NEAR(harness.shifts[i].x, complete[i].x - static_cast<float>(whole[i].x), 1e-6)
            << "frame " << i;
        EXPECT_NEAR(harness.shifts[i].y, complete[i].y - static_cast<float>(whole[i].y), 1e-6)
            << "frame " << i;
        const cv::Rect inner(10, 10, frameSize.width - 20, frameSize.height - 20);
        EXPECT_TRUE(
            sameBits(harness.registered[i](inner).clone(), harness.frames[i](inner + whole[i]).clone()))
            << "frame " << i;
    }
    EXPECT_EQ(harness.registered[3](frameSize.height - 1, frameSize.width - 1), 0.0F);
    EXPECT_EQ(harness.registered[4](0, 0), 0.0F);
}

TEST(CornerRegistration, MarksTheReferenceWhollyAndTheOthersWhereTheyAgree)
{
    Harness harness(frameSize, 5);
    addBurst(harness);
    const cv::Rect object(90, 60, 12, 12);
    harness.frames[2](object) += 3.0F;  // in the ring too late: prepared frames are not looked at again
    cv::Mat_<float> disturbed = harness.frames[2].clone();
    harness.add(disturbed);  // replaces the oldest
    harness.frames.erase(harness.frames.begin());
    ASSERT_EQ(harness.run(0), 0);
    EXPECT_EQ(harness.usablePixels(0), harness.area());
    EXPECT_EQ(harness.masks[4](66, 96), 0) << "the object is in this frame alone";
    EXPECT_EQ(harness.masks[1](66, 96), 1) << "this one was prepared before the object came";
    EXPECT_EQ(harness.masks[4](20, 20), 1);
    const cv::Rect window(0, 0, frameSize.width - 4, frameSize.height - 2);
    EXPECT_EQ(cv::countNonZero(harness.masks[2]), cv::countNonZero(harness.masks[2](window)))
        << "displaced by (3.7, 2.2)";
    EXPECT_GT(harness.usablePixels(2), harness.area() * 8 / 10);
}

TEST(CornerRegistration, ClearsTheMasksOfTheWholeWindow)
{
    Harness harness(frameSize, 5);
    const Scene scene = fineScene();
    harness.add(scene.frame(frameSize, 0.0, 0.0));
    harness.add(scene.frame(frameSize, 0.5, 0.5));
    ASSERT_EQ(harness.run(0), 0);
    for (std::size_t i = 2; i < 5; ++i)
        EXPECT_EQ(cv::countNonZero(harness.masks[i]), 0);
}

TEST(CornerRegistration, KeepsTheCompleteShiftsOfALongerRunBehindThoseOfAShorterOne)
{
    Harness harness(frameSize, 5);
    addBurst(harness);
    ASSERT_EQ(harness.run(burstReference), 0);
    harness.frames.resize(2);
    ASSERT_EQ(harness.run(0), 0);
    const std::vector<PointF> complete = harness.complete();
    ASSERT_EQ(complete.size(), 5U);
    EXPECT_NEAR(complete[1].x, 1.3, 0.03);
    EXPECT_NEAR(complete[3].x, 3.7, 0.03);
}

TEST(CornerRegistration, WithoutACornerInTheReferenceAnswersUnlessItIsAlone)
{
    const Scene scene = fineScene();
    const cv::Mat_<float> flat(frameSize, 20.0F);
    Harness alone(frameSize, 5);
    alone.add(flat);
    EXPECT_EQ(alone.run(0), 0);
    EXPECT_EQ(alone.usablePixels(0), alone.area());

    Harness pair(frameSize, 5);
    pair.add(flat);
    pair.add(scene.frame(frameSize, 0.0, 0.0));
    EXPECT_EQ(pair.run(0), -9);
    EXPECT_EQ(pair.registered[0](0, 0), -1.0F) << "nothing is moved";
    EXPECT_TRUE(pair.complete().empty());
}

TEST(CornerRegistration, AnswersForFramesThatWereNeverPrepared)
{
    const Scene scene = fineScene();
    Harness harness(frameSize, 3);
    EXPECT_EQ(harness.run(0), -9);
    harness.add(scene.frame(frameSize, 0.0, 0.0));
    harness.addUnprepared(scene.frame(frameSize, 0.5, 0.5));
    EXPECT_EQ(harness.run(0), -9);
    EXPECT_EQ(harness.run(1), -9);
    EXPECT_EQ(cv::countNonZero(harness.masks[2]), 0);

    harness.registration.prepareFrame(harness.frames[1][0]);
    EXPECT_EQ(harness.run(0), 0);
}

// Down to sizes below the smoothing kernel, the search window and the error filter.
TEST(CornerRegistration, TakesFramesOfAnySize)
{
    for (const cv::Size size : {cv::Size(1, 1), cv::Size(2, 3), cv::Size(40, 5), cv::Size(5, 40),
                                cv::Size(12, 9), cv::Size(22, 22)}) {
        const Scene scene(size, 10, 20, 1.5, 3.0);
        Harness harness(size, 3);
        harness.registration.setRegErrBlurRadius(30);
        for (const double d : {0.0, 0.3, -0.4})
            harness.add(scene.frame(size, d, d));
        try {
            const int result = harness.run(0);
            EXPECT_TRUE(result == 0 || result == -9) << result;
        } catch (const Exception& failure) {
            EXPECT_STREQ(failure.what(), "Too large displacement");
        }
        EXPECT_EQ(harness.usablePixels(0), harness.area()) << size;
    }
}

TEST(CornerRegistration, RefusesADisplacementOfHalfTheHeightInEitherDirection)
{
    const cv::Size wide(96, 44);
    const Scene scene(wide, 100, 63, 8.0, 8.0);
    const auto runWith = [&](double dx) {
        Harness harness(wide, 2);
        harness.add(scene.frame(wide, 0.0, 0.0));
        harness.add(scene.frame(wide, dx, 0.0));
        return harness.run(0);
    };
    EXPECT_EQ(runWith(21.0), 0);
    for (const double dx : {23.0, -23.0}) {
        try {
            runWith(dx);
            ADD_FAILURE() << dx;
        } catch (const Exception& failure) {
            EXPECT_STREQ(failure.what(), "Too large displacement");
            EXPECT_THAT(failure.where(), testing::MatchesRegex(
                                             "modules/.*SrFloatRegistration2\\.cpp:[0-9]+ : "
                                             "halvor::vx::SrFloatRegistration2::doRegistration\\(\\.\\.\\)"));
        }
    }
}

// Three equal patches go three ways, so that each flow differs from one median or the other.
TEST(CornerRegistration, RefusesADisplacementThatIsNotANumber)
{
    const cv::Size size(200, 200);
    const auto patchesAt = [&](const std::vector<cv::Point>& corners) {
        cv::Mat_<float> frame(size, 20.0F);
        for (const cv::Point& corner : corners)
            frame(cv::Rect(corner, cv::Size(14, 14))) = 30.0F;
        return frame;
    };
    Harness harness(size, 2);
    harness.add(patchesAt({{30, 30}, {140, 30}, {30, 140}}));
    harness.add(patchesAt({{30, 35}, {145, 30}, {40, 150}}));
    EXPECT_THROW(harness.run(0), Exception);
    const std::vector<PointF> complete = harness.complete();
    ASSERT_EQ(complete.size(), 2U);
    EXPECT_TRUE(std::isnan(complete[1].x));
    EXPECT_EQ(harness.usablePixels(1), 0);
}

TEST(CornerRegistration, RecoversFromFlatAndInfiniteFrames)
{
    cv::Mat_<float> hot(frameSize, 20.0F);
    hot(5, 5) = infinity;
    for (const cv::Mat_<float>& first : {cv::Mat_<float>(frameSize, 20.0F), hot}) {
        Harness harness(frameSize, 5);
        harness.registration.prepareFrame(first.clone()[0]);
        addBurst(harness);
        ASSERT_EQ(harness.run(burstReference), 0);
        EXPECT_NEAR(harness.complete()[3].x, burst[3].x, 0.03);
        EXPECT_NEAR(harness.complete()[3].y, burst[3].y, 0.03);
    }
}

TEST(CornerRegistration, LogsTheNumberOfCorners)
{
    LogFacility& log = LogFacility::getInstance();
    log.setLogLevel(LogFacility::progress);
    testing::internal::CaptureStderr();
    Harness harness(frameSize, 2);
    harness.add(cv::Mat_<float>(frameSize, 20.0F));
    harness.run(0);
    log.setLogLevel(LogFacility::off);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Num corners: 0\n");
}

TEST(CornerRegistration, GivesTheSameBitsForAnyNumberOfThreads)
{
    const int ompThreads = omp_get_max_threads();
    const int cvThreads = cv::getNumThreads();
    const cv::Size large(640, 480);  // small frames are not shared among threads
    const auto runWith = [&large](Harness& harness, int threads) {
        omp_set_num_threads(threads);
        cv::setNumThreads(threads);
        addBurst(harness, large);
        return harness.run(burstReference);
    };
    Harness one(large, 5);
    ASSERT_EQ(runWith(one, 1), 0);
    for (const int threads : {2, 7}) {
        Harness many(large, 5);
        ASSERT_EQ(runWith(many, threads), 0);
        for (std::size_t i = 0; i < burst.size(); ++i) {
            EXPECT_EQ(many.complete()[i].x, one.complete()[i].x);
            EXPECT_EQ(many.complete()[i].y, one.complete()[i].y);
            EXPECT_TRUE(sameBits(many.masks[i], one.masks[i]));
            EXPECT_TRUE(sameBits(many.registered[i], one.registered[i]));
        }
    }
    omp_set_num_threads(ompThreads);
    cv::setNumThreads(cvThreads);
}

namespace {

// Counts the matrices that are allocated while it lives.
class AllocationCount : public cv::MatAllocator
{
public:
    AllocationCount() : standard_(cv::Mat::getDefaultAllocator()) { cv::Mat::setDefaultAllocator(this); }
    ~AllocationCount() override { cv::Mat::setDefaultAllocator(standard_); }
    AllocationCount(const AllocationCount&) = delete;
    AllocationCount& operator=(const AllocationCount&) = delete;

    cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, size_t* step,
                           cv::AccessFlag flags, cv::UMatUsageFlags usage) const override
    {
        ++count_;
        return standard_->allocate(dims, sizes, type, data, step, flags, usage);
    }
    bool allocate(cv::UMatData* data, cv::AccessFlag flags, cv::UMatUsageFlags usage) const override
    {
        return standard_->allocate(data, flags, usage);
    }
    void deallocate(cv::UMatData* data) const override { standard_->deallocate(data); }

    int count() const { return count_; }

private:
    cv::MatAllocator* standard_;
    mutable std::atomic<int> count_ = 0;
};

}  // namespace

TEST(CornerRegistration, AllocatesNoImagesBeyondTheTemporariesOfOpenCV)
{
    Harness harness(frameSize, 5);
    addBurst(harness);
    ASSERT_EQ(harness.run(burstReference), 0);
    const cv::Mat_<float> next = harness.frames[0].clone();

    // The same library calls on buffers that exist already.
    const cv::Size trackingWindow(21, 21);
    cv::Mat_<float> smoothed;
    cv::Mat_<unsigned char> gray;
    std::vector<cv::Mat> pyramid;
    std::vector<cv::Point2f> corners;
    std::vector<cv::Point2f> tracked;
    std::vector<unsigned char> status;
    std::vector<float> errors;
    int temporaries = 0;
    for (int pass = 0; pass < 2; ++pass) {
        const AllocationCount allocations;
        cv::GaussianBlur(next, smoothed, cv::Size(11, 11), std::sqrt(3.0), 0.0);
        smoothed.convertTo(gray, CV_8U, 4.0);
        cv::buildOpticalFlowPyramid(gray, pyramid, trackingWindow, 3);
        cv::goodFeaturesToTrack(smoothed, corners, 100, 0.1, 2.0);
        for (int i = 0; i < 4; ++i)
            cv::calcOpticalFlowPyrLK(pyramid, pyramid, corners, tracked, status, errors, trackingWindow, 3);
        temporaries = allocations.count();
    }

    const AllocationCount allocations;
    for (int i = 0; i < 5; ++i)
        harness.registration.prepareFrame(harness.frames[static_cast<std::size_t>(i)][0]);
    const int preparation = allocations.count();
    ASSERT_EQ(harness.run(burstReference), 0);
    EXPECT_EQ(preparation / 5 + allocations.count() - preparation, temporaries);
}
