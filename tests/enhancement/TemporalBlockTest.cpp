#include <gtest/gtest.h>

#include <climits>
#include <iterator>
#include <numeric>
#include <vector>

#include "BlockFrames.h"
#include "PlainTemporal.h"
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

// Runs a stream whose settings change with every frame through the block and its plain form.
void compareStream(Size size, Scene scene, int bypass, const std::vector<Settings>& stream)
{
    Settings settings = stream.front();
    TnrCmod block = makeBlock(size, settings, bypass);
    plain::Temporal plain(size.cols, size.rows, settings, bypass);
    std::vector<int> out(static_cast<std::size_t>(pixelCount(size)));
    std::vector<int> expected(out.size());
    for (int number = 0; number < static_cast<int>(stream.size()); ++number) {
        settings = stream[static_cast<std::size_t>(number)];
        const std::vector<int> in = makeFrame(scene, size, number);
        block.ProcessFrame(in.data(), out.data());
        plain.process(in.data(), expected.data());
        ASSERT_EQ(out, expected) << describe(scene, size, bypass, number);
    }
}

// One pixel seen through a block in hardware units.
struct OnePixel
{
    Settings settings{16, 15, 1024, true};
    TnrCmod block = makeBlock({1, 1}, settings, 0);

    int operator()(int in)
    {
        int out = 0;
        block.ProcessFrame(&in, &out);
        return out;
    }
};

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
    for (const Size size : smallSizes)
        for (const Scene scene : allScenes)
            for (const int bypass : {0, 1, 2, -1})
                for (const std::vector<Settings>& stream : streams)
                    compareStream(size, scene, bypass, stream);
    for (const Scene scene : {Scene::steps, Scene::extremes})
        compareStream(sharedSize, scene, 2, streams[0]);
}

// The whole frame jumps, so that one index more or less in the motion decides the next feedback factor.
TEST(TemporalBlock, TakesIndicesAbove50AsMotion)
{
    const Size size{64, 64};
    Settings settings{10, 1, 60, false};
    for (int jump = 48; jump < 54; ++jump) {
        TnrCmod block = makeBlock(size, settings, 0);
        plain::Temporal plain(size.cols, size.rows, settings, 0);
        std::vector<int> out(static_cast<std::size_t>(pixelCount(size)));
        std::vector<int> expected(out.size());
        for (const int level : {0, jump, 30, 60, 20}) {
            const std::vector<int> in(out.size(), level);
            block.ProcessFrame(in.data(), out.data());
            plain.process(in.data(), expected.data());
            EXPECT_EQ(out, expected) << jump;
        }
    }
}

TEST(TemporalBlock, FiltersInPlace)
{
    const Size size{37, 5};
    Settings settings;
    TnrCmod apart = makeBlock(size, settings, 2);
    TnrCmod inPlace = makeBlock(size, settings, 2);
    std::vector<int> out(static_cast<std::size_t>(pixelCount(size)));
    for (int number = 0; number < 3; ++number) {
        std::vector<int> frame = makeFrame(Scene::steps, size, number);
        apart.ProcessFrame(frame.data(), out.data());
        inPlace.ProcessFrame(frame.data(), frame.data());
        EXPECT_EQ(frame, out);
    }
}

TEST(TemporalBlock, ConvertsSettingsToHardwareUnits)
{
    Settings settings{10, 15, 60, false};
    const TnrCmod percent = makeBlock({1, 1}, settings, 0);
    EXPECT_EQ(percent.GetCGainHw(), 16);
    EXPECT_EQ(percent.GetGlobalHw(), 15);
    EXPECT_EQ(percent.GetAlphaHw(), 1228);
    EXPECT_EQ(percent.GetGlobalOff(), 0);
    settings = {7, 100, 100, false};
    EXPECT_EQ(percent.GetCGainHw(), 11);
    EXPECT_EQ(percent.GetAlphaHw(), 2048);
    EXPECT_EQ(percent.GetGlobalOff(), 1);

    Settings hardware{7, 15, 1500, true};
    const TnrCmod block = makeBlock({1, 1}, hardware, 0);
    EXPECT_EQ(block.GetCGainHw(), 7);
    EXPECT_EQ(block.GetAlphaHw(), 1500);
}

TEST(TemporalBlock, PassesTheFirstFrameSignExtended)
{
    Settings settings;
    TnrCmod block = makeBlock({4, 1}, settings, 0);
    const std::vector<int> in = {0x8000, 0x7FFF, 0xFFFF, 0x12340005};
    std::vector<int> out(4);
    block.ProcessFrame(in.data(), out.data());
    EXPECT_EQ(out, (std::vector<int>{-32768, 32767, -1, 5}));
}

TEST(TemporalBlock, MovesTowardTheHistoryByTheFeedbackFactor)
{
    OnePixel pixel;
    EXPECT_EQ(pixel(100), 100);
    // Factor 1028 of 2048 after the first quiet frame would need motion below the threshold of one pixel,
    // which truncates to 0: the factor falls by 102 to 922. k = 32768 * 922 >> 11 = 14752; d = -40 quarter
    // steps.
    EXPECT_EQ(pixel(110), 105);  // 440 + (-40 * 14752 >> 15) = 421 quarters
}

TEST(TemporalBlock, RestartsThePixelWhenTheSampleJumpsByHalfTheRange)
{
    OnePixel pixel;
    pixel(-20000);
    EXPECT_EQ(pixel(12768), 12768);  // 32768 steps
    EXPECT_EQ(pixel(12768), 12768);
    OnePixel other;
    other.settings.controlGain = 0;  // full weight at any difference
    other(-20000);
    EXPECT_LT(other(12767), 12767);  // one step less is filtered
}

TEST(TemporalBlock, PassesMarkedPixelsAndKeepsACoarseHistory)
{
    Settings settings{0, 100, 1024, true};
    TnrCmod block = makeBlock({1, 1}, settings, 2);
    int out = 0;
    int in = INT_MIN | 0x00BF;
    block.ProcessFrame(&in, &out);
    EXPECT_EQ(out, in);
    in = 0x0080;  // the history holds 0x80, not 0xBF
    block.ProcessFrame(&in, &out);
    EXPECT_EQ(out, 0x0080);
    in = 0xFFFF;  // masked pattern, not -1
    settings.feedbackFactor = 0;
    block.ProcessFrame(&in, &out);
    block.ProcessFrame(&in, &out);
    EXPECT_EQ(out, 0xFFFF);
}

TEST(TemporalBlock, ABypassedBlockCopiesRawBitsAndStartsCleanLater)
{
    Settings settings;
    TnrCmod block = makeBlock({2, 1}, settings, 1);
    const std::vector<int> in = {INT_MIN | 5, 0x12348000};
    std::vector<int> out(2);
    block.ProcessFrame(in.data(), out.data());
    EXPECT_EQ(out, in);
}

// The rule behind the hardware's table; the entries themselves are copied, as no formula gives all of them.
TEST(TemporalBlock, WeightTableFollowsItsRule)
{
    const auto& table = TnrCmod::mAlphaTab;
    static constexpr int percent[] = {96, 93, 91, 88, 86, 83, 80, 78, 75, 72, 70, 67, 65, 62, 60, 57, 55, 53,
                                      50, 48, 46, 44, 42, 40, 38, 36, 35, 33, 32, 31, 30, 29, 28, 28, 27};
    for (int i = 0; i < 15; ++i)
        EXPECT_EQ(table[i], 32768) << i;
    for (int i = 15; i < 50; ++i)
        EXPECT_EQ(table[i], 32768 * percent[i - 15] / 100) << i;
    for (int i = 50; i <= 896; ++i)
        EXPECT_NEAR(table[i], 393120.0 / i, 1.01) << i;
    EXPECT_EQ(table[896], 438);
    for (int i = 897; i < 1024; ++i) {
        EXPECT_GE(table[i - 1] - table[i], 3) << i;
        EXPECT_LE(table[i - 1] - table[i], 5) << i;
    }
    EXPECT_EQ(table[1023], 3);
    EXPECT_EQ(std::accumulate(std::begin(table), std::end(table), 0), 2294809);  // guards every single entry
}
