// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "doubles/PlainPattern.h"
#include "enhancement/BlockHarness.h"
#include "enhancement/spr_cmod.h"

using namespace blocktest;
using Settings = plain::Pattern::Settings;

namespace {

SprCmod makeBlock(Size size, Settings& settings, int delay, int bypass)
{
    return {size.cols, size.rows, settings.threshold, settings.lineLimit, settings.frameLimit, delay, bypass};
}

void compare(Size size, Scene scene, int delay, int bypass, const std::vector<Settings>& stream)
{
    compareStream(
        stream, [=](Settings& settings) { return makeBlock(size, settings, delay, bypass); },
        [=](const Settings& settings) {
            return plain::Pattern(size.cols, size.rows, settings, delay, bypass);
        },
        [=](int number) { return makeFrame(scene, size, number); },
        describe(scene, size, bypass, 0) + ", delay " + std::to_string(delay));
}

}  // namespace

TEST(PatternBlock, EqualsItsPlainFormBitForBit)
{
    const std::vector<std::vector<Settings>> streams = {
        {{22, 12, 16}, {22, 12, 16}, {22, 12, 16}, {90, 1, 2}, {0, 0, 0}, {60, 31, 31}},
        {{70000, 1 << 17, 1 << 22}, {70000, 1 << 17, 1 << 22}, {70000, INT_MAX, INT_MAX}, {70000, -1, -1}},
        {{INT_MAX, INT_MAX, INT_MAX}, {INT_MAX, INT_MIN, INT_MIN}, {INT_MAX, 3, 3}, {INT_MIN, -9, -9}},
        {{90000, 1 << 18, 1 << 23}, {90000, (1 << 18) - 1, (1 << 23) - 1}, {90000, -(1 << 18), -(1 << 23)}}};
    for (const Size size : smallSizes)
        for (const Scene scene : allScenes)
            for (const int delay : {0, 1, 2})
                for (const int bypass : {0, 1, 2})
                    for (const std::vector<Settings>& stream : streams)
                        compare(size, scene, delay, bypass, stream);
}

TEST(PatternBlock, EqualsItsPlainFormOverManyFrames)
{
    for (const int delay : {1, 2}) {
        compare({64, 40}, Scene::calm, delay, 0, std::vector<Settings>(60, Settings{60, 12, 16}));
        compare({23, 50}, Scene::wild, delay, 2,
                std::vector<Settings>(60, Settings{70000, INT_MAX, INT_MAX}));
        // Below a threshold of 4 no two deviations are similar, not even equal ones.
        compare({64, 40}, Scene::faint, delay, 0, std::vector<Settings>(60, Settings{3, 12, 16}));
    }
}

TEST(PatternBlock, TakesSevenTenthsOfTheThresholdInDoublePrecision)
{
    Settings settings;
    const SprCmod block = makeBlock({2, 2}, settings, 1, 0);
    for (const auto& [threshold, expected] : {std::pair{22, 15}, {90, 62}, {100, 70}, {-3, -2}}) {
        settings.threshold = threshold;
        EXPECT_EQ(block.Th07(), expected);
    }
}

TEST(PatternBlockDeathTest, AnIllegalDelayEndsTheProcess)
{
    // The message goes to the standard output, where only a redirection lets the death test see it.
    const auto build = [](int delay) {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        Settings settings;
        makeBlock({2, 2}, settings, delay, 0);
    };
    EXPECT_EXIT(build(3), testing::KilledBySignal(SIGABRT), "ERROR: illegal delay value\n");
    EXPECT_EXIT(build(-1), testing::KilledBySignal(SIGABRT), "ERROR: illegal delay value\n");
}
