#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <vector>

#include "BlockFrames.h"
#include "PlainHistogram.h"
#include "apps/TemporaryFolder.h"
#include "core/base/Exception.h"
#include "enhancement/histogram.h"

using blocktest::makeFrame;
using blocktest::Scene;
using blocktest::Size;
using testing::Each;

namespace {

constexpr int binRoom = 70000;

// Both forms of the equaliser, fed with the same frames.
class Pair
{
public:
    explicit Pair(Size size, const HistogramParam& param = HistogramParam{})
        : fast(size.cols, size.rows),
          slow(size.cols, size.rows),
          size_(size),
          fastBin_(binRoom),
          slowBin_(binRoom)
    {
        fast.param = param;
        slow.param = param;
    }

    void expectEqualFrame(int frame, const std::vector<int>& in, const std::string& what)
    {
        fast.MeasureFrame(frame, in.data(), fastBin_.data());
        slow.MeasureFrame(frame, in.data(), slowBin_.data());
        std::vector<int> fastOut(in.size());
        std::vector<int> slowOut(in.size());
        fast.ProcessFrame(frame, in.data(), fastOut.data());
        slow.ProcessFrame(in.data(), slowOut.data());
        fast.Update(frame);
        slow.Update(frame);
        ASSERT_EQ(fastBin_, slowBin_) << what;
        ASSERT_EQ(fastOut, slowOut) << what;
        expectEqualState(what);
    }

    void expectEqualState(const std::string& what)
    {
        const std::size_t entries = Histogram::tableSize;
        ASSERT_TRUE(std::equal(slow.bins.begin(), slow.bins.end(), fast.getBins())) << what;
        ASSERT_TRUE(std::equal(slow.gainTable.begin(), slow.gainTable.begin() + entries, fast.getGainTable()))
            << what;
        ASSERT_TRUE(std::equal(slow.transferCurve.begin(), slow.transferCurve.end(), fast.getTransferCurve()))
            << what;
        ASSERT_TRUE(std::equal(slow.localGain.begin(), slow.localGain.end(), fast.getLocalGain())) << what;
        ASSERT_TRUE(std::equal(slow.histoEqu.begin(), slow.histoEqu.end(), fast.getHistoEqu())) << what;
        ASSERT_EQ(fast.getMin(), slow.min) << what;
        ASSERT_EQ(fast.getMax(), slow.max) << what;
        ASSERT_EQ(fast.getLo(), slow.lo) << what;
        ASSERT_EQ(fast.getHi(), slow.hi) << what;
        ASSERT_EQ(fast.getPgain(), slow.pgain) << what;
        ASSERT_EQ(fast.getPoffset(), slow.poffset) << what;
        ASSERT_EQ(fast.getRangeUsed(), slow.rangeUsed) << what;
        ASSERT_EQ(fast.getHasInvalidPixels(), slow.hasInvalidPixels) << what;
    }

    Size size() const { return size_; }

    Histogram fast;
    plain::Histogram slow;

private:
    Size size_;
    std::vector<int> fastBin_;
    std::vector<int> slowBin_;
};

// Frames of every kind, with frame numbers that repeat, so that the range is both set and filtered.
void expectEqualStream(Pair& pair, const std::string& what)
{
    int number = 0;
    for (const Scene scene :
         {Scene::calm, Scene::calm, Scene::steps, Scene::extremes, Scene::wild, Scene::calm}) {
        for (int repeat = 0; repeat < 2; ++repeat) {
            ++number;
            pair.expectEqualFrame(number / 3, makeFrame(scene, pair.size(), number),
                                  what + ", frame " + std::to_string(number));
        }
    }
}

HistogramParam hardwareBranch(int mode)
{
    HistogramParam param;
    param.mode = mode;
    param.hw = 1;
    param.gainlow = 2;
    param.gainhigh = 150;
    return param;
}

using EqualiserFile = TemporaryFolder;

}  // namespace

TEST(Equaliser, EqualsThePlainFormInTheHardwareBranch)
{
    for (const Size size : {Size{5, 7}, Size{258, 3}, Size{1031, 2}})
        for (int mode = 0; mode <= 4; ++mode) {
            Pair pair(size, hardwareBranch(mode));
            expectEqualStream(pair, "mode " + std::to_string(mode));
        }
}

TEST(Equaliser, EqualsThePlainFormInTheSoftwareBranch)
{
    for (int mode = 0; mode <= 4; ++mode)
        for (const int width : {1, 5, 8, 12, 15}) {
            HistogramParam param;
            param.mode = mode;
            param.width = width;
            param.gainlow = 3;
            param.gainhigh = 700;
            param.tridis = mode == 1 ? 1 : 0;
            param.poffdis = mode == 2 ? 1 : 0;
            param.rangedis = mode == 4 ? 1 : 0;
            param.speed = mode * 2;
            param.gamma = mode * 5 - 10;
            Pair pair({61, 13}, param);
            expectEqualStream(pair, "mode " + std::to_string(mode) + ", width " + std::to_string(width));
        }
}

TEST(Equaliser, EqualsThePlainFormFarOutsideTheUsualSettings)
{
    constexpr int big = std::numeric_limits<int>::max();
    constexpr int small = std::numeric_limits<int>::min();
    const std::vector<std::pair<int HistogramParam::*, int>> changes = {
        {&HistogramParam::offset, big},    {&HistogramParam::offset, small},
        {&HistogramParam::range, 31},      {&HistogramParam::speed, 31},
        {&HistogramParam::gamma, big},     {&HistogramParam::gamma, small},
        {&HistogramParam::limit, -5},      {&HistogramParam::gain, big},
        {&HistogramParam::gain, -3},       {&HistogramParam::gainhigh, small},
        {&HistogramParam::gainlow, small}, {&HistogramParam::gainhigh, big}};
    for (const auto& [field, value] : changes)
        for (const int hw : {0, 1}) {
            HistogramParam param = hardwareBranch(field == &HistogramParam::limit ? 3 : 2);
            param.hw = hw;
            param.*field = value;
            Pair pair({40, 9}, param);
            expectEqualStream(pair, "value " + std::to_string(value) + ", hw " + std::to_string(hw));
        }
}

TEST(Equaliser, EqualsThePlainFormWithAForcedRange)
{
    for (const auto& [low, high] : {std::pair{-4000, -2900}, {-2950, -2900}, {-9000, 9000}, {-2900, -2950}}) {
        Pair pair({61, 13});
        pair.expectEqualFrame(1, makeFrame(Scene::calm, pair.size(), 1), "first");
        pair.fast.Update(1, low, high);
        pair.slow.Update(1, low, high);
        pair.expectEqualState("range from " + std::to_string(low));
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

TEST(Equaliser, StartsWithTheIdentity)
{
    Histogram equaliser(160, 120);
    EXPECT_EQ(equaliser.param.gainlow, 19);
    EXPECT_EQ(equaliser.param.gainhigh, 19181);
    EXPECT_EQ(equaliser.getPgain(), 32768);
    EXPECT_EQ(equaliser.getGainTable()[256], 32768);
    EXPECT_EQ(equaliser.LocalGain(20000), 1.0);
    EXPECT_EQ(equaliser.initializedGain(), 0U);
    EXPECT_FALSE(equaliser.isBypassed());
    equaliser.Update(0);
    EXPECT_EQ(equaliser.initializedGain(), 1U);
}

TEST(Equaliser, SpreadsAFlatFrameOverTheSmallestRangeAndCentresIt)
{
    Histogram equaliser(8, 8);
    const std::vector<int> flat(64, -1234);
    equaliser.MeasureFrame(0, flat.data(), nullptr);
    EXPECT_EQ(equaliser.getRangeUsed(), 256);
    EXPECT_EQ(equaliser.getPgain(), 32768);
    EXPECT_EQ(equaliser.getPoffset(), 16320);
    EXPECT_EQ(equaliser.ProcessPixel(-1234), 16320);
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

TEST(Equaliser, BendsTheCurveByGamma)
{
    Histogram equaliser(8, 8);
    equaliser.param.mode = 1;
    for (const auto& [gamma, middle] : {std::pair{0, 16384}, {10, 8192}, {-10, 23170}}) {
        equaliser.param.gamma = gamma;
        equaliser.Update(0);
        EXPECT_EQ(equaliser.getGainTable()[128], middle) << gamma;
    }
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

TEST(Equaliser, LeavesPixelsAloneWhenOffOrBypassed)
{
    Histogram equaliser(4, 1);
    const std::vector<int> image = {-70000, -1, 20000, 40000};
    std::vector<int> out(4);
    equaliser.setBypass(true);
    EXPECT_TRUE(equaliser.isBypassed());
    equaliser.ProcessFrame(0, image.data(), out.data());
    EXPECT_EQ(out, image);
    equaliser.setBypass(false);
    equaliser.param.mode = 0;
    equaliser.getLocalGain()[255] = 7.0;
    EXPECT_EQ(equaliser.ProcessPixel(40000), 40000);
    EXPECT_EQ(equaliser.LocalGain(40000), 1.0);
}

TEST(Equaliser, PrintsTheInputGainOncePerFrame)
{
    Histogram equaliser(4, 4);
    ChainMatrix in(4, 4);
    ChainMatrix out(4, 4);
    testing::internal::CaptureStdout();
    equaliser.ProcessFrame(0, in, out);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "pgain32768\n");
}

TEST(Equaliser, WritesAndReadsTheBinaryBlock)
{
    Histogram equaliser(30, 20);
    equaliser.param.width = 5;
    const std::vector<int> frame = makeFrame(Scene::calm, {30, 20}, 1);
    std::vector<int> block(72, 77);
    equaliser.MeasureFrame(0, frame.data(), nullptr);
    equaliser.getBins()[3] = -65537;
    equaliser.WriteBinData(block.data());
    EXPECT_EQ(block[6], 0xFFFF);
    EXPECT_EQ(block[7], -2);
    EXPECT_EQ(block[64], equaliser.getMin());
    EXPECT_EQ(block[69], equaliser.getPoffset());
    EXPECT_EQ(block[70], 0x5678);
    EXPECT_EQ(block[71], 0x1234);
    equaliser.param.mode = 0;
    equaliser.WriteBinData(block.data());
    EXPECT_EQ(block[70], 0);
    EXPECT_EQ(block[71], 0);

    Histogram other(30, 20);
    other.param.width = 5;
    other.ReadBinData(block.data(), 100);
    EXPECT_TRUE(std::equal(other.getBins(), other.getBins() + 32, equaliser.getBins()));
    EXPECT_EQ(other.getLo(), equaliser.getLo() - 100);
    EXPECT_EQ(other.getPgain(), equaliser.getPgain() / 2);

    other.ReadBinData(nullptr, 0);
    other.WriteBinData(nullptr);
    other.importAttachmentData(nullptr, 1, 2, 3, 4, 5, 6);
    EXPECT_EQ(other.getMin(), equaliser.getMin() - 100);
    const std::vector<int> bins(32, 9);
    other.importAttachmentData(bins.data(), -5, 6, -7, 8, 65535, 33);
    EXPECT_EQ(other.getBins()[31], 9);
    EXPECT_EQ(other.getMin(), -5);
    EXPECT_EQ(other.getMax(), 6);
    EXPECT_EQ(other.getLo(), -7);
    EXPECT_EQ(other.getHi(), 8);
    EXPECT_EQ(other.getPgain(), 32767);
    EXPECT_EQ(other.getPoffset(), 16);
}

TEST_F(EqualiserFile, ReadsItsSectionOfAParameterFile)
{
    writeText(
        folder / "a.ini",
        "gamma=9\n[SNR_Parameter]\ngain=77\n[Histogram_Parameter]\nmode=0x2\nwidth=7\nrange=010\noffset=-3\n"
        "speed=4\nrangedis=1\npoffdis=1\nlimit=11\ngain=12\ngainlow=13\ngainhigh=4294967295\ntridis=1\n"
        "[Peaking_Parameter]\nlimit=5\n");
    Histogram equaliser(8, 8);
    equaliser.SetParam((folder / "a.ini").c_str());
    const HistogramParam& p = equaliser.param;
    EXPECT_THAT((std::vector<int>{p.mode, p.width, p.range, p.offset, p.speed, p.gamma, p.tridis, p.rangedis,
                                  p.poffdis, p.limit, p.gain, p.gainlow, p.gainhigh}),
                testing::ElementsAre(2, 7, 8, -3, 4, 0, 0, 1, 1, 11, 12, 13, -1));
}

TEST_F(EqualiserFile, IsToldWhenItCannotBeRead)
{
    Histogram equaliser(8, 8);
    testing::internal::CaptureStdout();
    equaliser.SetParam("/no/such/file.ini");
    equaliser.SetParam(folder.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "histo: Cannot read /no/such/file.ini\nhisto: Cannot read " + folder.string() + "\n");
    EXPECT_EQ(equaliser.param.mode, 3);
}

template <typename T>
class EqualiserImage : public testing::Test
{};
using Pixels = testing::Types<short, unsigned short, int, unsigned int, float, double>;
TYPED_TEST_SUITE(EqualiserImage, Pixels);

TYPED_TEST(EqualiserImage, MapsLikeTheBlockWithoutTouchingTheState)
{
    const Size size{530, 5};
    Histogram equaliser(size.cols, size.rows);
    const std::vector<int> frame = makeFrame(Scene::calm, size, 1);
    equaliser.MeasureFrame(0, frame.data(), nullptr);
    equaliser.param.offset = 300;
    cv::Mat_<TypeParam> image(size.rows, size.cols);
    std::vector<int> samples;
    for (const int pixel : frame) {
        const auto value = static_cast<TypeParam>(static_cast<short>(pixel));
        image(static_cast<int>(samples.size()) / size.cols, static_cast<int>(samples.size()) % size.cols) =
            value;
        samples.push_back(static_cast<int>(value));
    }
    const std::vector<double> slopes(equaliser.getLocalGain(), equaliser.getLocalGain() + 256);
    cv::Mat_<TypeParam> mapped;
    equaliser.processFrame(image, mapped);
    EXPECT_TRUE(std::equal(slopes.begin(), slopes.end(), equaliser.getLocalGain()));
    ASSERT_EQ(mapped.size(), image.size());
    for (std::size_t i = 0; i < samples.size(); ++i)
        ASSERT_EQ(static_cast<int>(*(mapped.begin() + static_cast<std::ptrdiff_t>(i))),
                  equaliser.ProcessPixel(samples[i]));

    equaliser.setBypass(true);
    equaliser.processFrame(image, mapped);
    EXPECT_TRUE(std::equal(image.begin(), image.end(), mapped.begin()));
}

TYPED_TEST(EqualiserImage, RefusesAnotherSizeBeforeTheResultIsTouched)
{
    Histogram equaliser(8, 6);
    const cv::Mat_<TypeParam> image(8, 6, TypeParam{1});
    cv::Mat_<TypeParam> mapped(1, 1, TypeParam{42});
    testing::internal::CaptureStderr();
    try {
        equaliser.processFrame(image, mapped);
        FAIL() << "nothing was raised";
    } catch (const halvor::vx::Exception& error) {
        EXPECT_STREQ(error.what(), "input data size does not correspond to histogram class configuration!");
        EXPECT_THAT(error.where(), testing::HasSubstr("Histogram::processFrame"));
    }
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(mapped.total(), 1U);
    EXPECT_EQ(mapped(0, 0), TypeParam{42});
}

TEST(Equaliser, TakesFloatingPointPixelsBeyondAllIntegers)
{
    Histogram equaliser(4, 1);
    constexpr double infinite = std::numeric_limits<double>::infinity();
    const cv::Mat_<double> image = (cv::Mat_<double>(1, 4) << 1e300, -infinite, infinite, std::nan(""));
    cv::Mat_<double> mapped;
    equaliser.param.rangedis = 1;
    equaliser.processFrame(image, mapped);
    EXPECT_THAT(std::vector<double>(mapped.begin(), mapped.end()),
                Each(testing::AllOf(testing::Ge(0.0), testing::Le(32766.0))));
}
