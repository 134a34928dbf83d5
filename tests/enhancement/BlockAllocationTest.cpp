// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "doubles/AllocationCounter.h"
#include "doubles/BlockFrames.h"
#include "enhancement/SpatialNoiseRemover.h"
#include "enhancement/StaticPatternRemover.h"
#include "enhancement/TemporalNoiseReduction.h"
#include "enhancement/snr_cmod.h"
#include "enhancement/spr_cmod.h"
#include "enhancement/tnr_cmod.h"

using namespace blocktest;
using namespace halvor::vx;

TEST(BlockAllocations, TheCounterSeesTheLibraryAndOpenCv)
{
    int setting = 1;
    const vxtest::AllocationCounter counter;
    const auto block = std::make_unique<TnrCmod>(4, 4, setting, setting, setting, 0, 0);
    const std::size_t ofLibrary = counter.count();
    EXPECT_GE(ofLibrary, 2U);
    const cv::Mat_<short> image(4, 4);
    EXPECT_GT(counter.count(), ofLibrary);
}

TEST(BlockAllocations, BlocksTakeNoMemoryForAFrame)
{
    int setting = 15;
    for (const int bypass : {0, 1, 2}) {
        TnrCmod temporal(sharedSize.cols, sharedSize.rows, setting, setting, setting, bypass, 0);
        SprCmod pattern(sharedSize.cols, sharedSize.rows, setting, setting, setting, 1, bypass);
        SnrCmod spatial(sharedSize.cols, sharedSize.rows, setting, bypass);
        const std::vector<int> in = makeFrame(Scene::calm, sharedSize, 0);
        std::vector<int> out(in.size());
        const auto process = [&] {
            temporal.ProcessFrame(in.data(), out.data());
            pattern.ProcessFrame(in.data(), out.data());
            spatial.ProcessFrame(in.data(), out.data());
        };
        process();
        const vxtest::AllocationCounter counter;
        process();
        process();
        EXPECT_EQ(counter.count(), 0U) << "mode " << bypass;
    }
}

TEST(BlockAllocations, FiltersTakeNoMemoryFromTheSecondFrameOn)
{
    TemporalNoiseReduction temporal(10, 15, 60, false);
    StaticPatternRemover pattern(22, 12, 16);
    SpatialNoiseRemover spatial(6);
    const cv::Mat_<short> src = asImage(makeFrame(Scene::calm, sharedSize, 0), sharedSize);
    cv::Mat_<short> first;
    cv::Mat_<short> second;
    cv::Mat_<short> third;
    const auto process = [&] {
        temporal.process(src, first);
        pattern.process(first, second);
        spatial.process(second, third);
    };
    process();
    const vxtest::AllocationCounter counter;
    process();
    process();
    EXPECT_EQ(counter.count(), 0U);
}
