// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>
#include <vector>

#include "doubles/BlockFrames.h"
#include "doubles/PlainHstCmod.h"
#include "enhancement/hst_cmod.h"

using blocktest::makeFrame;
using blocktest::Scene;

namespace {

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
    const plain::HstCmod::Settings sets[] = {{1, 1, 1, 256, 0, 0},
                                             {0, 3, 5, 16, 0, 0},
                                             {2, 1, 0, 1 << 20, 1, 0},
                                             {1, 1, 1, 1 << 17, 0, 0},
                                             {1, 1, 1, 256, 0, 1},
                                             // Shifts in which the range filter wraps, to a range of 1, too.
                                             {31, 20, 1, 1, 0, 0},
                                             {16, 16, 1, 1, 0, 0}};
    for (const plain::HstCmod::Settings& p : sets) {
        for (const blocktest::Size size : blocktest::smallSizes) {
            HstCmod fast(size.cols, size.rows, p.speedUp, p.speedDown, p.holdFrames, p.minRange,
                         p.offsetDisable, p.rangeDisable);
            plain::HstCmod slow(size.cols, size.rows, p);
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

TEST(MeasuringBlock, SurvivesARangeOfNothing)
{
    HstCmod block(3, 1, 1, 1, 1, 0, 0, 0);
    // Without a valid pixel the maximum lies below the minimum, and no smallest range stands in.
    EXPECT_EQ(measureConstant(block, 0, 3)[516], 65535);
}
