// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <vector>

#include "doubles/AllocationCounter.h"
#include "enhancement/superresolution/EngineHarness.h"
#include "enhancement/superresolution/SrFloat.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "enhancement/superresolution/SrInt.h"
#include "enhancement/superresolution/VideoHarness.h"

using namespace halvor::vx;
using namespace vxtest;

namespace {

/// @param feed  gives an engine the frame of a number, and lets it compute
template <typename Feed>
void expectNoPixelMemoryAfterTheFirstRun(Feed feed)
{
    for (int i = 0; i < 6; ++i)
        feed(i % 5);
    // A row of the smallest picture would pass; a picture of bytes would not.
    const AllocationCounter counter(static_cast<std::size_t>(smallFrame.area()) / 2);
    for (int i = 0; i < 10; ++i)
        feed(i % 5);
    EXPECT_EQ(counter.count(), 0U);
    const std::vector<char> probe(static_cast<std::size_t>(smallFrame.area()));
    EXPECT_EQ(counter.count(), 1U) << "the counter is blind to " << probe.size() << " bytes";
}

}  // namespace

TEST(EngineMemory, OfTheFloatEngineIsTakenBeforeTheFirstRunEnds)
{
    const vxsupport::Burst burst = burstOf(smallFrame, gentleShifts());
    Made<SrFloat<SrFloatRegistration2>> engine;
    cv::Mat_<float> image;
    expectNoPixelMemoryAfterTheFirstRun([&](int i) {
        ASSERT_EQ(engine.addFrame(burst.frames[static_cast<std::size_t>(i)]), 0);
        engine.computeSR(image);
    });
}

TEST(EngineMemory, OfTheFixedPointEngineIsTakenBeforeTheFirstRunEnds)
{
    const auto frames = countsOf(burstOf(smallFrame, gentleShifts()).frames);
    SrInt<SrIntRegistration, SrIntMinimization> engine(smallFrame.width, smallFrame.height, 5, 2.0F);
    cv::Mat_<short> image;
    expectNoPixelMemoryAfterTheFirstRun([&](int i) {
        ASSERT_EQ(engine.addFrame(frames[static_cast<std::size_t>(i)]), 0);
        ASSERT_EQ(engine.computeSr(image), 0);
    });
}
