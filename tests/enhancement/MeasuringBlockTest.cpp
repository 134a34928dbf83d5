#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>
#include <vector>

#include "BlockFrames.h"
#include "PlainHstCmod.h"
#include "enhancement/hst_cmod.h"

using blocktest::makeFrame;
using blocktest::Scene;

namespace {

struct MeasuringParameters
{
    int speedUp, speedDown, holdFrames, minRange, offsetDisable, rangeDisable;
};

std::vector<int> readBlock(HstCmod& block)
{
    std::vector<int> words(static_cast<std::size_t>(std::max(block.BinDataSize(), HstCmod::valueWords)), -1);
    block.GetBinData(words.data());
    return words;
}

// The block after one frame of constant samples on the unsigned scale.
std::vector<int> measureConstant(HstCmod& block, int sample, int pixels)
{
    const std::vector<int> frame(static_cast<std::size_t>(pixels), sample ^ 0x8000);
    block.MeasureFrame(frame.data());
    return readBlock(block);
}

}  // namespace

TEST(MeasuringBlock, EqualsThePlainFormOnEveryKindOfFrame)
{
    const MeasuringParameters sets[] = {{1, 1, 1, 256, 0, 0},
                                        {0, 3, 5, 16, 0, 0},
                                        {2, 1, 0, 1 << 20, 1, 0},
                                        {1, 1, 1, 256, 0, 1},
                                        // Shifts in which the range filter wraps.
                                        {31, 20, 1, 1, 0, 0}};
    for (const MeasuringParameters& p : sets) {
        for (const blocktest::Size size : blocktest::smallSizes) {
            HstCmod fast(size.cols, size.rows, p.speedUp, p.speedDown, p.holdFrames, p.minRange,
                         p.offsetDisable, p.rangeDisable);
            plain::HstCmod slow(size.cols, size.rows, p.speedUp, p.speedDown, p.holdFrames, p.minRange,
                                p.offsetDisable, p.rangeDisable);
            int number = 0;
            for (const Scene scene : {Scene::calm, Scene::steps, Scene::extremes, Scene::wild, Scene::calm,
                                      Scene::calm, Scene::calm}) {
                const std::vector<int> frame = makeFrame(scene, size, ++number);
                fast.MeasureFrame(frame.data());
                slow.MeasureFrame(frame.data());
                const std::vector<int> words = readBlock(fast);
                std::vector<int> expected(words.size(), -1);
                slow.GetBinData(expected.data());
                ASSERT_EQ(words, expected) << blocktest::describe(scene, size, p.minRange, number);
            }
        }
    }
}

TEST(MeasuringBlock, ReportsAFlatHistogramOnTheFirstRead)
{
    HstCmod block(4, 4, 1, 1, 1, 256, 0, 0);
    std::vector<int> words = measureConstant(block, 40000, 16);
    for (int i = 0; i < HstCmod::binCount; ++i) {
        EXPECT_EQ(words[static_cast<std::size_t>(2 * i)], 1);
        EXPECT_EQ(words[static_cast<std::size_t>(2 * i) + 1], 0);
    }
    words = measureConstant(block, 40000, 16);
    int counted = 0;
    for (std::size_t i = 0; i < 512; i += 2)
        counted += words[i] + (words[i + 1] << 16);
    EXPECT_EQ(counted, 16 * 16);
}

TEST(MeasuringBlock, CentresARangeBelowTheSmallest)
{
    HstCmod block(8, 2, 1, 1, 1, 256, 0, 0);
    const std::vector<int> words = measureConstant(block, 40000, 16);
    EXPECT_EQ(words[516], 65279);                        // 65279 levels over 256
    EXPECT_EQ(words[517], (65279 - (65279 >> 8)) >> 1);  // by the range of 1, not of 256
}

TEST(MeasuringBlock, HoldsARangeThatStaysAtTheTopButNotAtTheBottom)
{
    for (const auto& [sample, lo, hi] : {std::tuple{40200, 40100, 40100}, {39800, 39900, 40000}}) {
        HstCmod block(4, 4, 1, 1, 1, 256, 0, 0);
        measureConstant(block, 40000, 16);
        measureConstant(block, 40000, 16);
        const std::vector<int> words = measureConstant(block, sample, 16);
        EXPECT_EQ(words[514], lo);
        EXPECT_EQ(words[515], hi);
    }
}

TEST(MeasuringBlock, ScalesDistancesBeyondThirtyTwoBits)
{
    // The filter's shift of 16 drops the range below 0, and a range of 1 has the largest gain.
    HstCmod block(4, 4, 16, 16, 1, 1, 0, 0);
    measureConstant(block, 40000, 16);
    EXPECT_EQ(measureConstant(block, 40000, 16)[514], 40000 - 65536);
    EXPECT_EQ(measureConstant(block, 40100, 16)[2 * 255], 16 * 16);
}

TEST(MeasuringBlock, CountsNoPixelAtTheEndsOfTheRange)
{
    HstCmod block(6, 2, 1, 1, 1, 256, 0, 0);
    readBlock(block);
    std::vector<int> ends(12, 0x8000);
    std::fill_n(ends.begin(), 6, 0x7FFF);
    block.MeasureFrame(ends.data());
    const std::vector<int> words = readBlock(block);
    EXPECT_EQ(std::count(words.begin(), words.begin() + 512, 0), 512);
    EXPECT_EQ(words[512], 65535);
    EXPECT_EQ(words[513], 0);
}

TEST(MeasuringBlock, FillsWholeImageLines)
{
    for (const auto& [cols, words] :
         {std::pair{160, 640}, {513, 1026}, {517, 1034}, {518, 518}, {1100, 1100}})
        EXPECT_EQ(HstCmod(cols, 1, 1, 1, 1, 256, 0, 0).BinDataSize(), words) << cols;
}

TEST(MeasuringBlock, SurvivesARangeOfNothing)
{
    HstCmod block(3, 1, 1, 1, 1, 0, 0, 0);
    // Without a valid pixel the maximum lies below the minimum, and no smallest range stands in.
    EXPECT_EQ(measureConstant(block, 0, 3)[516], 65535);
}
