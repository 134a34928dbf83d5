// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrFloatRegistration1.h"

#include <gtest/gtest.h>

#include "core/base/Exception.h"
#include "doubles/AllocationCounter.h"
#include "enhancement/superresolution/RegistrationHarness.h"

using namespace halvor::vx;
using namespace vxtest;

using Harness = RegistrationHarness<SrFloatRegistration1>;

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

TEST(PhaseRegistration, RefusesAKernelThatDoesNotFitAndKeepsTheOldOne)
{
    Harness harness(frameSize, 5);
    EXPECT_THROW(harness.registration.setGaussRadius(60), Exception);
    EXPECT_THROW(harness.registration.setGaussRadius(-1), Exception);
    EXPECT_EQ(harness.registration.getGaussRadius(), 5);
    harness.registration.setGaussRadius(2);
    addBurst(harness, detailedScene());
    ASSERT_EQ(harness.run(burstReference), 0);
    EXPECT_NEAR(harness.complete()[3].x, burst[3].x, 0.06);
    EXPECT_THROW(SrFloatRegistration1(10, 40, 5), Exception);
}

TEST(PhaseRegistration, AllocatesNothingAfterTheFirstRun)
{
    Harness harness(frameSize, 5);
    addBurst(harness, detailedScene());
    ASSERT_EQ(harness.run(burstReference), 0);
    const AllocationCounter allocations;
    harness.registration.prepareFrame(harness.frames[0][0]);
    harness.run(burstReference);
    EXPECT_EQ(allocations.count(), 0U);
}
