// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrFloatRegistration2.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>

#include "core/base/Exception.h"
#include "core/diagnostics/LogFacility.h"
#include "enhancement/superresolution/RegistrationHarness.h"

using namespace halvor::vx;
using namespace vxtest;

namespace {

using Harness = RegistrationHarness<SrFloatRegistration2>;

}  // namespace

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

// Three equal patches go three ways, so that each flow differs from one median or the other.
TEST(CornerRegistration, RefusesADisplacementThatIsNotANumber)
{
    Harness harness({200, 200}, 2);
    for (const auto& corners :
         {std::vector<cv::Point>{{30, 30}, {140, 30}, {30, 140}}, {{30, 35}, {145, 30}, {40, 150}}}) {
        cv::Mat_<float> frame(200, 200, 20.0F);
        for (const cv::Point& corner : corners)
            frame(cv::Rect(corner, cv::Size(14, 14))) = 30.0F;
        harness.add(frame);
    }
    EXPECT_THROW(harness.run(0), Exception);
    const std::vector<PointF> complete = harness.complete();
    ASSERT_EQ(complete.size(), 2U);
    EXPECT_TRUE(std::isnan(complete[1].x));
    EXPECT_EQ(harness.usablePixels(1), 0);
}

TEST(CornerRegistration, RecoversFromFlatAndInfiniteFrames)
{
    cv::Mat_<float> hot(frameSize, 20.0F);
    hot(5, 5) = std::numeric_limits<float>::infinity();
    for (const cv::Mat_<float>& first : {cv::Mat_<float>(frameSize, 20.0F), hot}) {
        Harness harness(frameSize, 5);
        harness.registration.prepareFrame(first.clone()[0]);
        addBurst(harness, fineScene());
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

TEST(CornerRegistration, AllocatesNoImagesOnceTheWindowIsFull)
{
    Harness harness(frameSize, 5);
    addBurst(harness, fineScene());
    ASSERT_EQ(harness.run(burstReference), 0);

    const AllocationCount allocations;
    for (const cv::Mat_<float>& frame : harness.frames)
        harness.registration.prepareFrame(const_cast<float*>(frame[0]));
    ASSERT_EQ(harness.run(burstReference), 0);
    EXPECT_EQ(allocations.count(), 0);
}
