// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <vector>

#include "doubles/PlainTemporal.h"
#include "enhancement/BlockHarness.h"
#include "enhancement/tnr_cmod.h"

using namespace blocktest;
using Settings = plain::Temporal::Settings;

namespace {

TnrCmod makeBlock(Size size, Settings& settings, int bypass)
{
    return {size.cols,
            size.rows,
            settings.controlGain,
            settings.globalThreshold,
            settings.feedbackFactor,
            bypass,
            settings.hwUnits ? 1 : 0};
}

template <typename FrameOf>
void compare(Size size, int bypass, const std::vector<Settings>& stream, FrameOf frameOf,
             const std::string& what)
{
    compareStream(
        stream, [=](Settings& settings) { return makeBlock(size, settings, bypass); },
        [=](const Settings& settings) { return plain::Temporal(size.cols, size.rows, settings, bypass); },
        frameOf, what);
}

}  // namespace

TEST(TemporalBlock, EqualsItsPlainFormBitForBit)
{
    const std::vector<std::vector<Settings>> streams = {
        {{10, 15, 60, false},
         {10, 15, 60, false},
         {10, 15, 60, false},
         {3, 100, 95, false},
         {10, 0, 5, false}},
        {{16, 20, 2047, true}, {200, 20, 100, true}, {16, 20000, 1500, true}, {0, 20, 1500, true}},
        {{INT_MAX, INT_MAX, INT_MAX, true}, {-1, INT_MIN, INT_MIN, true}, {INT_MIN, -1, 1 << 30, true}},
        {{INT_MAX, INT_MAX, INT_MAX, false}, {40000, 1 << 20, 0x12345678, false}, {INT_MIN, -5, -70, false}}};
    const auto compareScene = [](Size size, Scene scene, int bypass, const std::vector<Settings>& stream) {
        compare(
            size, bypass, stream, [=](int number) { return makeFrame(scene, size, number); },
            describe(scene, size, bypass, 0));
    };
    for (const Size size : smallSizes)
        for (const Scene scene : allScenes)
            for (const int bypass : {0, 1, 2, -1})
                for (const std::vector<Settings>& stream : streams)
                    compareScene(size, scene, bypass, stream);
    for (const Scene scene : {Scene::steps, Scene::extremes})
        compareScene(sharedSize, scene, 2, streams[0]);
}

// The whole frame jumps, so that one index more or less in the motion decides the next feedback factor.
TEST(TemporalBlock, TakesIndicesAbove50AsMotion)
{
    for (int jump = 48; jump < 54; ++jump) {
        const int levels[] = {0, jump, 30, 60, 20};
        compare(
            {64, 64}, 0, std::vector<Settings>(5, {10, 1, 60, false}),
            [&](int number) { return std::vector<int>(64 * 64, levels[number]); },
            "jump " + std::to_string(jump));
    }
}

TEST(TemporalBlock, ConvertsSettingsToHardwareUnits)
{
    Settings settings{7, 100, 60, false};
    const TnrCmod percent = makeBlock({1, 1}, settings, 0);
    EXPECT_EQ(percent.GetCGainHw(), 11);
    EXPECT_EQ(percent.GetAlphaHw(), 1228);
    EXPECT_EQ(percent.GetGlobalOff(), 1);
    settings.globalThreshold = 15;
    EXPECT_EQ(percent.GetGlobalHw(), 15);
    EXPECT_EQ(percent.GetGlobalOff(), 0);

    Settings hardware{7, 15, 1500, true};
    const TnrCmod block = makeBlock({1, 1}, hardware, 0);
    EXPECT_EQ(block.GetCGainHw(), 7);
    EXPECT_EQ(block.GetAlphaHw(), 1500);
}

// Both forms share the table: its entries are guarded by two sums, one of them by place.
TEST(TemporalBlock, WeighsByTheHardwaresTable)
{
    std::int64_t sum = 0;
    std::int64_t byPlace = 0;
    for (int i = 0; i < 1024; ++i) {
        sum += TnrCmod::mAlphaTab[i];
        byPlace += static_cast<std::int64_t>(i) * i * TnrCmod::mAlphaTab[i];
    }
    EXPECT_EQ(sum, 2294809);
    EXPECT_EQ(byPlace, 181372820106);
}
