#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "BlockFrames.h"
#include "PlainSpatial.h"
#include "enhancement/snr_cmod.h"

using namespace blocktest;

namespace {

std::vector<int> filter(Size size, int gain, int bypass, const std::vector<int>& in)
{
    std::vector<int> out(in.size());
    SnrCmod(size.cols, size.rows, gain, bypass).ProcessFrame(in.data(), out.data());
    return out;
}

void compareFrame(Size size, Scene scene, int bypass, int gain)
{
    const std::vector<int> in = makeFrame(scene, size, 1);
    std::vector<int> expected(in.size());
    plain::Spatial(size.cols, size.rows, gain, bypass).process(in.data(), expected.data());
    ASSERT_EQ(filter(size, gain, bypass, in), expected) << describe(scene, size, bypass, gain);
}

}  // namespace

TEST(SpatialBlock, EqualsItsPlainFormBitForBit)
{
    for (const Scene scene : allScenes)
        for (const int bypass : {0, 1, 2}) {
            for (const Size size : smallSizes)
                for (const int gain : {0, 1, 6, 31, 1000, 200000, INT_MAX, -1, -7, INT_MIN})
                    compareFrame(size, scene, bypass, gain);
        }
    compareFrame(sharedSize, Scene::wild, 2, 6);
}

TEST(SpatialBlock, KeepsFlatFramesOfEverySample)
{
    for (int sample = -32768; sample < 32768; ++sample) {
        const std::vector<int> in(9, sample);
        ASSERT_EQ(filter({3, 3}, 31, 0, in), in);
    }
}

TEST(SpatialBlock, ChangesNothingAtGainZero)
{
    for (const Scene scene : allScenes) {
        const std::vector<int> in = makeFrame(scene, {61, 7}, 3);
        const cv::Mat_<short> samples = asImage(in, {61, 7});
        EXPECT_EQ(filter({61, 7}, 0, 0, in), std::vector<int>(samples.begin(), samples.end()));
    }
}

TEST(SpatialBlock, LeavesEdgesAndSmoothsFlatRegions)
{
    // Deviation of 9 in the middle: mean 1, activity 16, k = 16 / 6 + 13 = 15, (8 * 15 + 16) >> 5 = 4.
    std::vector<int> in(9, 0);
    in[4] = 9;
    EXPECT_EQ(filter({3, 3}, 6, 0, in)[4], 5);
    // Of 900: mean 100, activity 1600, so the detail stays.
    in[4] = 900;
    EXPECT_EQ(filter({3, 3}, 6, 0, in)[4], 900);
}

TEST(SpatialBlock, ReadsTheGainThroughItsReference)
{
    int gain = 0;
    SnrCmod block(3, 1, gain, 0);
    const std::vector<int> in = {0, 9, 0};
    std::vector<int> out(3);
    block.ProcessFrame(in.data(), out.data());
    EXPECT_EQ(out, in);
    gain = 31;
    block.ProcessFrame(in.data(), out.data());
    EXPECT_NE(out, in);
}

TEST(SpatialBlock, PassesMarkedPixelsButCountsThemInTheirNeighboursWindows)
{
    std::vector<int> in(9, 0);
    in[4] = INT_MIN | 9;
    const std::vector<int> out = filter({3, 3}, 31, 2, in);
    EXPECT_EQ(out[4], in[4]);
    EXPECT_EQ(out[0], 1);
    in[4] = 0xFFFF;
    EXPECT_EQ(filter({3, 3}, 0, 2, in)[4], 0xFFFF);
    EXPECT_EQ(filter({3, 3}, 0, 0, in)[4], -1);
}
