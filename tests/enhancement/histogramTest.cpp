// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

#include "apps/TemporaryFolder.h"
#include "doubles/BlockFrames.h"
#include "enhancement/EqualiserScale.h"
#include "enhancement/histogram.h"
#include "enhancement/hst_cmod.h"

using blocktest::makeFrame;
using blocktest::Scene;
using blocktest::Size;

using EqualiserFile = TemporaryFolder;

TEST_F(EqualiserScale, SharesEachPixelBetweenTwoBinsInSixteenths)
{
    EXPECT_EQ(bins(0, 5), (std::vector<int>{32, 0, 0, 16, 0}));
    equaliser_.param.offset = 40;  // of 128 per bin
    measure({0, 0, 3, 255});
    EXPECT_EQ(bins(0, 5), (std::vector<int>{22, 10, 0, 11, 5}));
    EXPECT_EQ(bins(255, 1)[0], 16) << "the last bin takes all";
    equaliser_.param.tridis = 1;
    measure({0, 0, 3, 255});
    EXPECT_EQ(bins(0, 5), (std::vector<int>{32, 0, 0, 16, 0}));
}

TEST_F(EqualiserScale, LeavesTheEndsOfTheRangeOutOfTheExtremes)
{
    EXPECT_FALSE(equaliser_.getHasInvalidPixels());
    for (const int invalid : {32767, -32768}) {
        measure({invalid, 7, 3, 255});
        EXPECT_TRUE(equaliser_.getHasInvalidPixels());
        EXPECT_EQ(equaliser_.getMin(), 3);
        EXPECT_EQ(equaliser_.getMax(), 255);
    }
}

TEST_F(EqualiserScale, KeepsOnlyTheBinsOfAForcedRange)
{
    measure({0, 128, 3, 256});
    const auto update = [this](int low, int high) {
        std::fill_n(equaliser_.getBins(), 256, 5);
        equaliser_.Update(0, low, high);
    };
    update(64, 128);
    EXPECT_EQ(bins(63, 2), (std::vector<int>{0, 5}));
    EXPECT_EQ(bins(128, 2), (std::vector<int>{5, 0}));
    update(-10, 300);
    EXPECT_EQ(bins(0, 2), (std::vector<int>{1, 5}));
    EXPECT_EQ(bins(254, 2), (std::vector<int>{5, 1}));
}

TEST_F(EqualiserScale, WeighsBinsByMode)
{
    HistogramParam& param = equaliser_.param;
    param.gain = 4;
    param.gainlow = 2;
    param.gainhigh = 3;
    param.limit = 8;
    using Weights = std::vector<double>;
    for (const auto& [mode, expected] : {std::pair(1, Weights{1, 2, 3, 4, 5}),
                                         {2, Weights{1, 5, 9, 10, 11}},
                                         {3, Weights{8, 16, 24, 32, 33}},
                                         {4, Weights{16, 32, 48, 64, 64}}}) {
        param.mode = mode;
        std::fill_n(equaliser_.getBins(), 256, 0);
        std::fill_n(equaliser_.getBins(), 4, 16);
        equaliser_.Update(0);
        EXPECT_EQ(Weights(equaliser_.getHistoEqu(), equaliser_.getHistoEqu() + 5), expected) << mode;
    }
    EXPECT_EQ(equaliser_.getGainTable()[1], 8192);
}

TEST_F(EqualiserScale, BendsTheCurveByGammaAndFiltersItOverFramesButNotWithinOne)
{
    equaliser_.param.mode = 1;
    equaliser_.Update(0);
    equaliser_.param.gamma = 10;
    equaliser_.Update(1);
    EXPECT_EQ(equaliser_.getGainTable()[128], (16384 + 8192) / 2);
    equaliser_.Update(0);
    EXPECT_EQ(equaliser_.getGainTable()[128], 8192);
    equaliser_.param.gamma = -10;
    equaliser_.Update(0);
    EXPECT_EQ(equaliser_.getGainTable()[128], 23170);
    // The curve is sampled from the smallest to the largest value.
    EXPECT_EQ(equaliser_.getTransferCurve()[128], equaliser_.ProcessPixel(127));
}

TEST(Equaliser, TakesTheMeasuringBlocksNumbersInTheHardwareBranch)
{
    const Size size{30, 20};
    Histogram equaliser(size.cols, size.rows);
    equaliser.param = hardwareBranch(3);
    HstCmod block(size.cols, size.rows, 1, 1, 1, 256, 0, 0);
    std::vector<int> binData(binRoom);
    std::vector<int> words(binRoom);
    for (int number = 1; number < 4; ++number) {
        const std::vector<int> frame = makeFrame(Scene::calm, size, number);
        equaliser.MeasureFrame(number, frame.data(), binData.data());
        block.MeasureFrame(frame.data());
        block.GetBinData(words.data());
        for (int i = 0; i < HstCmod::binCount; ++i)
            ASSERT_EQ(equaliser.getBins()[i], words[2 * i] + (words[2 * i + 1] << 16));
        EXPECT_EQ((std::vector<int>{equaliser.getMin(), equaliser.getMax(), equaliser.getLo(),
                                    equaliser.getHi(), equaliser.getPgain(), equaliser.getPoffset()}),
                  (std::vector<int>{words[512] - 32768, words[513] - 32768, words[514] - 32768,
                                    words[515] - 32768, words[516] / 2, words[517] / 2}));
    }
}

TEST(Equaliser, SurvivesWhatHasNoDefinedResult)
{
    const std::vector<int> flat(64, 5);
    std::vector<int> out(64);
    std::vector<int> bin(binRoom);
    Histogram equaliser(8, 8);
    equaliser.MeasureFrame(0, flat.data(), nullptr);
    equaliser.Update(0, 5, 5);  // a range of zero

    equaliser.param.mode = 4;
    std::fill_n(equaliser.getBins(), Histogram::tableSize, 0);
    const std::vector<int> curve(equaliser.getGainTable(), equaliser.getGainTable() + 257);
    equaliser.Update(0);
    EXPECT_TRUE(std::equal(curve.begin(), curve.end(), equaliser.getGainTable())) << "nothing was measured";

    for (const int width : {-7, 0, 16, 1000})
        for (const int hw : {0, 1}) {
            equaliser.param.width = width;
            equaliser.param.hw = hw;
            equaliser.param.range = width;
            equaliser.param.speed = -width;
            equaliser.MeasureFrame(1, flat.data(), bin.data());
            equaliser.ProcessFrame(1, flat.data(), out.data());
            equaliser.Update(1);
        }
    equaliser.MeasureFrame(2, flat.data(), nullptr);
    EXPECT_LE(equaliser.BinDataRoom(), binRoom);
}

TEST(Equaliser, SpreadsARangeOverTheScaleAndCentresOneBelowTheSmallest)
{
    struct Spread
    {
        std::vector<int> frame;
        int range, gain, offset;
    };
    for (const Spread& s : {Spread{{-500, 499}, 1000, 8389, 0}, {{-1234, -1234}, 256, 32768, 16320}}) {
        Histogram equaliser(2, 1);
        equaliser.MeasureFrame(0, s.frame.data(), nullptr);
        EXPECT_EQ(equaliser.getRangeUsed(), s.range);
        EXPECT_EQ(equaliser.getPgain(), s.gain);
        EXPECT_EQ(equaliser.getPoffset(), s.offset);
        EXPECT_EQ(equaliser.ProcessPixel(s.frame[0]), s.offset);
    }
}

TEST(Equaliser, HoldsARangeThatGrewForSixteenFrames)
{
    Histogram equaliser(4, 4);
    const auto measure = [&](int frame, int low, int high) {
        std::vector<int> image(16, low);
        image.back() = high;
        equaliser.MeasureFrame(frame, image.data(), nullptr);
    };
    measure(0, 0, 100);
    measure(1, -500, 900);
    EXPECT_EQ(equaliser.getLo(), -500);
    EXPECT_EQ(equaliser.getHi(), 900);
    for (int frame = 2; frame <= 16; ++frame)
        measure(frame, 0, 100);
    EXPECT_EQ(equaliser.getHi(), 900);
    measure(17, 0, 100);
    EXPECT_EQ(equaliser.getHi(), 500);
    EXPECT_EQ(equaliser.getLo(), -250);
    measure(17, 0, 100);
    EXPECT_EQ(equaliser.getHi(), 100) << "the same frame again takes its range as it is";
}

TEST(Equaliser, IsLinearAfterTheFirstFrameOfTheHardwareBranch)
{
    for (const int mode : {2, 3, 4}) {
        Histogram equaliser(20, 10);
        equaliser.param = hardwareBranch(mode);
        equaliser.param.gainlow = 1000;
        std::vector<int> bin(binRoom);
        equaliser.MeasureFrame(0, makeFrame(Scene::calm, {20, 10}, 1).data(), bin.data());
        equaliser.Update(0);
        for (int i = 0; i <= 256; ++i)
            ASSERT_EQ(equaliser.getGainTable()[i], i << 7) << mode;
    }
}

TEST(Equaliser, WritesAndReadsTheBinaryBlock)
{
    const auto numbersOf = [](Histogram& h) {
        return std::vector<int>{h.getMin(), h.getMax(), h.getLo(), h.getHi(), h.getPgain(), h.getPoffset()};
    };
    Histogram equaliser(30, 20);
    Histogram other(30, 20);
    equaliser.param.width = other.param.width = 5;
    std::vector<int> block(72, 77);
    equaliser.MeasureFrame(0, makeFrame(Scene::calm, {30, 20}, 1).data(), nullptr);
    equaliser.getBins()[3] = -65537;
    equaliser.WriteBinData(block.data());
    EXPECT_EQ(block[6], 0xFFFF);
    EXPECT_EQ(block[7], -2);
    std::vector<int> numbers = numbersOf(equaliser);
    EXPECT_TRUE(std::equal(numbers.begin(), numbers.end(), block.begin() + 64));
    EXPECT_EQ(block[70], 0x5678);
    EXPECT_EQ(block[71], 0x1234);
    equaliser.param.mode = 0;
    equaliser.WriteBinData(block.data());
    EXPECT_EQ(block[70], 0);
    EXPECT_EQ(block[71], 0);

    other.ReadBinData(block.data(), 100);
    EXPECT_TRUE(std::equal(other.getBins(), other.getBins() + 32, equaliser.getBins()));
    for (std::size_t i = 0; i < 6; ++i)
        numbers[i] = i < 4 ? numbers[i] - 100 : numbers[i] / 2;
    EXPECT_EQ(numbersOf(other), numbers);
    other.ReadBinData(nullptr, 0);
    other.WriteBinData(nullptr);
    other.importAttachmentData(nullptr, 1, 2, 3, 4, 5, 6);
    EXPECT_EQ(numbersOf(other), numbers);
    other.importAttachmentData(std::vector<int>(32, 9).data(), -5, 6, -7, 8, 65535, 33);
    EXPECT_EQ(other.getBins()[31], 9);
    EXPECT_EQ(numbersOf(other), (std::vector<int>{-5, 6, -7, 8, 32767, 16}));
}

TEST_F(EqualiserFile, ReadsItsSectionOfAParameterFile)
{
    writeText(
        folder_ / "a.ini",
        "gamma=9\n[SNR_Parameter]\ngain=77\n[Histogram_Parameter]\nmode=0x2\nwidth=7\nrange=010\noffset=-3\n"
        "speed=4\nrangedis=1\npoffdis=1\nlimit=11\ngain=12\ngainlow=13\ngainhigh=4294967295\ntridis=1\n"
        "[Peaking_Parameter]\nlimit=5\n");
    Histogram equaliser(8, 8);
    equaliser.SetParam((folder_ / "a.ini").c_str());
    const HistogramParam& p = equaliser.param;
    EXPECT_THAT((std::vector<int>{p.mode, p.width, p.range, p.offset, p.speed, p.gamma, p.tridis, p.rangedis,
                                  p.poffdis, p.limit, p.gain, p.gainlow, p.gainhigh}),
                testing::ElementsAre(2, 7, 8, -3, 4, 0, 0, 1, 1, 11, 12, 13, -1));
}

TEST_F(EqualiserFile, IsToldWhenItCannotBeRead)
{
    Histogram equaliser(8, 8);
    testing::internal::CaptureStdout();
    equaliser.SetParam(folder_.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "histo: Cannot read " + folder_.string() + "\n");
    EXPECT_EQ(equaliser.param.mode, 3);
}
