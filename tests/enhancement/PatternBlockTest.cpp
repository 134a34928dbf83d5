#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <utility>
#include <vector>

#include "BlockFrames.h"
#include "PlainPattern.h"
#include "enhancement/spr_cmod.h"

using namespace blocktest;
using Settings = plain::Pattern::Settings;

namespace {

SprCmod makeBlock(Size size, Settings& settings, int delay, int bypass)
{
    return {size.cols, size.rows, settings.threshold, settings.lineLimit, settings.frameLimit, delay, bypass};
}

void compareStream(Size size, Scene scene, int delay, int bypass, const std::vector<Settings>& stream)
{
    Settings settings = stream.front();
    SprCmod block = makeBlock(size, settings, delay, bypass);
    plain::Pattern plain(size.cols, size.rows, settings, delay, bypass);
    std::vector<int> out(static_cast<std::size_t>(pixelCount(size)));
    std::vector<int> expected(out.size());
    for (int number = 0; number < static_cast<int>(stream.size()); ++number) {
        settings = stream[static_cast<std::size_t>(number)];
        const std::vector<int> in = makeFrame(scene, size, number);
        block.ProcessFrame(in.data(), out.data());
        plain.process(in.data(), expected.data());
        ASSERT_EQ(out, expected) << describe(scene, size, bypass, number) << ", delay " << delay;
    }
}

std::vector<int> lastOf(SprCmod&& block, const std::vector<int>& in, int frames)
{
    std::vector<int> out(in.size());
    for (int i = 0; i < frames; ++i)
        block.ProcessFrame(in.data(), out.data());
    return out;
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
                        compareStream(size, scene, delay, bypass, stream);
}

TEST(PatternBlock, EqualsItsPlainFormOverManyFrames)
{
    for (const int delay : {1, 2}) {
        compareStream({64, 40}, Scene::calm, delay, 0, std::vector<Settings>(60, Settings{60, 12, 16}));
        compareStream({23, 50}, Scene::wild, delay, 2,
                      std::vector<Settings>(60, Settings{70000, INT_MAX, INT_MAX}));
        // Below a threshold of 4 no two deviations are similar, not even equal ones.
        compareStream({64, 40}, Scene::faint, delay, 0, std::vector<Settings>(60, Settings{3, 12, 16}));
    }
}

TEST(PatternBlock, CorrectsInPlace)
{
    const Size size{37, 9};
    Settings settings{60, 12, 16};
    SprCmod apart = makeBlock(size, settings, 1, 2);
    SprCmod inPlace = makeBlock(size, settings, 1, 2);
    std::vector<int> out(static_cast<std::size_t>(pixelCount(size)));
    for (int number = 0; number < 4; ++number) {
        std::vector<int> frame = makeFrame(Scene::calm, size, number);
        apart.ProcessFrame(frame.data(), out.data());
        inPlace.ProcessFrame(frame.data(), frame.data());
        EXPECT_EQ(frame, out);
    }
}

TEST(PatternBlock, PassesTheFirstRowAndLearnsWithinTheFirstFrame)
{
    const Size size{32, 24};
    Settings settings{200, 12, 16};
    const std::vector<int> in = makeFrame(Scene::steps, size, 0);
    const std::vector<int> out = lastOf(makeBlock(size, settings, 1, 0), in, 1);
    EXPECT_TRUE(std::equal(in.begin(), in.begin() + size.cols, out.begin()));
    EXPECT_NE(in, out);
}

TEST(PatternBlock, DelaysOfZeroAndTwoActAlikeAndOneDiffers)
{
    const Size size{32, 24};
    Settings settings{70000, 1000, 10000};  // far out of range, so that line values swing from row to row
    const std::vector<int> in = makeFrame(Scene::wild, size, 0);
    const std::vector<int> two = lastOf(makeBlock(size, settings, 2, 0), in, 4);
    EXPECT_EQ(lastOf(makeBlock(size, settings, 0, 0), in, 4), two);
    EXPECT_NE(lastOf(makeBlock(size, settings, 1, 0), in, 4), two);
}

TEST(PatternBlock, RemovesAColumnOffsetFromAFlatScene)
{
    const Size size{40, 40};
    std::vector<int> in(static_cast<std::size_t>(pixelCount(size)), 500);
    for (int y = 0; y < size.rows; ++y)
        in[static_cast<std::size_t>(y * size.cols + 20)] = 508;
    Settings settings{22, 12, 0};  // no frame correction: the line correction must do it alone
    const std::vector<int> out = lastOf(makeBlock(size, settings, 1, 0), in, 200);
    EXPECT_NEAR(out[20], 500, 1);
    EXPECT_NEAR(out[5], 500, 1);
}

TEST(PatternBlock, ForgetsWhenItMayNotLearn)
{
    const Size size{40, 40};
    const std::vector<int> in = makeFrame(Scene::steps, size, 0);
    Settings settings{200, 12, 16};
    SprCmod block = makeBlock(size, settings, 1, 0);
    std::vector<int> out(in.size());
    for (int i = 0; i < 20; ++i)
        block.ProcessFrame(in.data(), out.data());
    ASSERT_NE(out, in);
    settings.threshold = 0;
    for (int i = 0; i < 5000; ++i)
        block.ProcessFrame(in.data(), out.data());
    EXPECT_EQ(out, in);
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

TEST(PatternBlock, CopiesRawBitsWhenBypassedAndPassesMarkedPixels)
{
    const Size size{4, 1};
    Settings settings{200, 12, 16};
    const std::vector<int> in = {INT_MIN | 5, 0x12348000, 0xFFFF, 7};
    EXPECT_EQ(lastOf(makeBlock(size, settings, 1, 1), in, 3), in);
    const std::vector<int> marked = lastOf(makeBlock(size, settings, 1, 2), in, 1);
    EXPECT_EQ(marked, (std::vector<int>{INT_MIN | 5, 0x8000, 0xFFFF, 7}));
    const std::vector<int> signedResult = lastOf(makeBlock(size, settings, 1, 0), in, 1);
    EXPECT_EQ(signedResult, (std::vector<int>{5, -32768, -1, 7}));
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
