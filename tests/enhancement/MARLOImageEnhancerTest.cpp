// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <memory>
#include <opencv2/core.hpp>
#include <random>
#include <string>
#include <vector>

#include "doubles/PlainChain.h"
#include "enhancement/EnhancerHarness.h"
#include "enhancement/MARLOImageEnhancer.h"

using namespace blocktest;
using halvor::vx::CamInternalSettings;
using halvor::vx::ChainMatrix;
using halvor::vx::MARLOImageEnhancer;

namespace {

void expectEqualStream(Size size, const CamInternalSettings& settings, const std::string& what)
{
    CamInternalSettings record = settings;
    MARLOImageEnhancer fast(size.cols, size.rows, &record);
    plain::Chain slow(size.cols, size.rows, settings);
    cv::Mat_<int> result;
    int number = 0;
    for (const Scene scene : {Scene::calm, Scene::calm, Scene::steps, Scene::steps, Scene::extremes,
                              Scene::wild, Scene::calm, Scene::calm}) {
        const std::vector<int> frame = makeFrame(scene, size, ++number);
        slow.process(frame.data());
        cv::Mat_<int> padded(size.rows, size.cols + number % 2);
        cv::Mat_<int> image = padded.colRange(0, size.cols);
        imageOf<int>(frame, size).copyTo(image);
        fast.processFrame(image, result);
        const std::string where = what + ", frame " + std::to_string(number);
        ASSERT_EQ(contents(fast.getInputArray()), frame) << where;
        ASSERT_EQ(contents(fast.getTNRArray()), slow.temporalImage) << where;
        ASSERT_EQ(contents(fast.getSPRArray()), slow.patternImage) << where;
        ASSERT_EQ(contents(fast.getSNRArray()), slow.spatialImage) << where;
        ASSERT_EQ(contents(fast.getHistoArray()), slow.equalisedImage) << where;
        ASSERT_EQ(contents(fast.getPeakArray()), slow.result) << where;
        ASSERT_TRUE(
            std::equal(slow.binData.begin(), slow.binData.begin() + 520, fast.getHistoBinArray()->row(0)))
            << where;
        ASSERT_TRUE(std::equal(result.begin(), result.end(), slow.result.begin())) << where;
    }
}

}  // namespace

TEST(Enhancer, EqualsThePlainChain)
{
    const QuietOutput quiet;
    CamInternalSettings settings;
    for (const Size size : {Size{2, 2}, Size{17, 6}, Size{258, 3}, Size{301, 223}})
        expectEqualStream(size, settings, "defaults");
    for (int trial = 0; trial < 24; ++trial) {
        settings = CamInternalSettings{};
        settings.tnrBypass = trial % 2;
        settings.sprBypass = trial / 2 % 2;
        settings.snrBypass = trial % 3;
        settings.histMode = trial % 5;
        settings.peakEnabled = trial % 7 == 0 ? 0 : 1;
        settings.sprThreshold = trial * 40;
        settings.histLimit = trial;
        settings.histGainLow = 5;
        settings.histGainHigh = 80;
        settings.peakCoring = trial % 4 == 0 ? -trial : trial;
        expectEqualStream({17, 6}, settings, "trial " + std::to_string(trial));
    }
    settings = CamInternalSettings{};
    settings.tnrCGain = std::numeric_limits<int>::max();
    settings.tnrGlobal = std::numeric_limits<int>::max();
    settings.tnrAlpha = std::numeric_limits<int>::min();
    settings.sprMaxLine = std::numeric_limits<int>::max();
    settings.sprMaxFrame = std::numeric_limits<int>::min();
    settings.snrGain = -1;
    settings.histGain = std::numeric_limits<int>::max();
    settings.peakLimit = std::numeric_limits<int>::max();
    settings.peakReductThres = std::numeric_limits<int>::min();
    expectEqualStream({17, 6}, settings, "ends of the settings");
}

TEST(Enhancer, WritesItsBinaryBlockInsideTheRoomForEveryWidth)
{
    const QuietOutput quiet;
    for (const int cols : {2, 127, 130, 513, 517, 518, 1025, 1100}) {
        MARLOImageEnhancer enhancer(cols, 3);
        cv::Mat_<int> result;
        enhancer.processFrame(cv::Mat_<int>(3, cols, 7), result);
        const ChainMatrix* block = enhancer.getHistoBinArray();
        EXPECT_EQ(block->rows, 4);
        EXPECT_EQ(block->cols, 256);
        EXPECT_EQ(block->row(0)[518], 0x5678) << cols;
        EXPECT_EQ(block->row(0)[512], 7) << "the minimum, on the signed scale";
        for (const int width : {20, -1, 15, 0}) {
            enhancer.histSetWidth(width);
            enhancer.processFrame(cv::Mat_<int>(3, cols, 7), result);
        }
    }
}

TEST(Enhancer, SwapsPointersForIntFramesAndLosesNobodysMemory)
{
    const QuietOutput quiet;
    const Size size{9, 7};
    cv::Mat_<int> result;
    cv::Mat_<int> source = imageOf<int>(makeFrame(Scene::calm, size, 1), size);
    const cv::Mat_<int> original = source.clone();
    {
        auto enhancer = std::make_unique<MARLOImageEnhancer>(size.cols, size.rows);
        int* own = enhancer->getInputArray()->getData();
        enhancer->processFrame(source, result);
        EXPECT_EQ(enhancer->getInputArray()->getData(), source[0]);
        EXPECT_EQ(result[0], enhancer->getPeakArray()->getData());

        // The result is the next source: its memory is that of the output array.
        cv::Mat_<int> next = result;
        enhancer->processFrame(next, next);
        EXPECT_EQ(next[0], result[0]) << "a second frame overwrites the first result";

        // A frame of another type goes to the enhancer's own array, not into the caller's image.
        cv::Mat_<short> shorts(size.rows, size.cols, short{-3});
        enhancer->processFrame(source, result);
        enhancer->processFrame(shorts, shorts);
        EXPECT_EQ(enhancer->getInputArray()->getData(), own);
        EXPECT_TRUE(std::equal(source.begin(), source.end(), original.begin()));

        // The source may go first.
        enhancer->processFrame(source, result);
        source.release();
        EXPECT_EQ(enhancer->getInputArray()->row(0)[3], original(0, 3));
    }
    EXPECT_EQ(cv::countNonZero(result < 0), 0) << "the result outlives the enhancer";
}

TEST(Enhancer, StaysInsideFramesOfAnotherSize)
{
    const QuietOutput quiet;
    MARLOImageEnhancer enhancer(8, 6);
    for (const Size size : {Size{3, 9}, Size{20, 2}, Size{1, 1}, Size{20, 20}}) {
        cv::Mat_<int> ints(size.rows, size.cols, 9);
        cv::Mat_<float> floats(size.rows, size.cols, 9.0F);
        cv::Mat_<int> intResult;
        cv::Mat_<float> floatResult(size.rows, size.cols, -7.0F);
        enhancer.processFrame(ints, intResult);
        enhancer.processFrame(floats, floatResult);
        EXPECT_EQ(intResult.size(), ints.size());
        EXPECT_EQ(floatResult.size(), floats.size());
        const cv::Rect frame = cv::Rect(0, 0, 8, 6) & cv::Rect(0, 0, size.cols, size.rows);
        floatResult(frame).setTo(0);
        EXPECT_EQ(cv::countNonZero(floatResult), 0) << "beyond the enhancer's frame";
        EXPECT_EQ(enhancer.getInputArray()->row(0)[0], 9);
    }
}

TEST(Enhancer, TakesFramesWithoutPixelsOfEveryType)
{
    const QuietOutput quiet;
    for (const cv::Size size : {cv::Size(0, 5), cv::Size(5, 0), cv::Size(0, 0)}) {
        MARLOImageEnhancer enhancer(size.width, size.height);
        cv::Mat_<int> whole(size);
        cv::Mat_<short> sample(size);
        EXPECT_NO_THROW(enhancer.processFrame(whole, whole));
        EXPECT_NO_THROW(enhancer.processFrame(sample, sample));
        EXPECT_EQ(whole.size(), size);
        EXPECT_EQ(sample.size(), size);
    }
}

TEST(Enhancer, RebuildsABlockOnlyWhenItsBypassChanges)
{
    const QuietOutput quiet;
    const Size size{12, 10};
    MARLOImageEnhancer enhancer(size.cols, size.rows);
    cv::Mat_<int> result;
    const auto run = [&](int number) {
        enhancer.processFrame(imageOf<int>(makeFrame(Scene::calm, size, number), size), result);
    };
    run(1);
    const auto* temporal = enhancer.getTNRModule();
    const auto* pattern = enhancer.getSPRModule();
    const auto* spatial = enhancer.getSNRModule();
    enhancer.tnrSetBypass(2);
    enhancer.sprSetBypass(2);
    enhancer.snrSetBypass(2);
    EXPECT_EQ(enhancer.getTNRModule(), temporal);
    EXPECT_EQ(enhancer.getSPRModule(), pattern);
    EXPECT_EQ(enhancer.getSNRModule(), spatial);

    run(2);
    EXPECT_NE(contents(enhancer.getTNRArray()), contents(enhancer.getInputArray()));
    // From one running value to another: the block is new, and its first frame passes as it is.
    enhancer.tnrSetBypass(1);
    run(3);
    std::vector<int> samples = contents(enhancer.getInputArray());
    for (int& sample : samples)
        sample = static_cast<short>(sample);
    EXPECT_EQ(contents(enhancer.getTNRArray()), samples);

    enhancer.tnrSetBypass(0);
    enhancer.sprSetBypass(0);
    enhancer.snrSetBypass(0);
    run(4);
    EXPECT_EQ(contents(enhancer.getTNRArray()), contents(enhancer.getInputArray()));
    EXPECT_EQ(contents(enhancer.getSPRArray()), contents(enhancer.getTNRArray()));
    EXPECT_EQ(contents(enhancer.getSNRArray()), contents(enhancer.getSPRArray()));
}

TEST(EnhancerDeathTest, TakesTheRecordedDelayOnlyWithARebuild)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    CamInternalSettings record;
    record.sprDelay = 3;
    MARLOImageEnhancer enhancer(12, 10, &record);
    EXPECT_DEATH(enhancer.sprSetBypass(1), "");
    record.sprDelay = 0;
    MARLOImageEnhancer legal(12, 10, &record);
    legal.sprSetBypass(1);
}

TEST(Enhancer, PassesSettingsToTheBlocks)
{
    const QuietOutput quiet;
    MARLOImageEnhancer enhancer(12, 10);
    const HistogramParam& h = enhancer.getHistogramObject()->param;
    const PeakingParam& p = enhancer.getPeakingDSPMod()->param;
    enhancer.tnrSetAlpha(31);
    enhancer.tnrSetCGain(32);
    enhancer.tnrSetGlobal(33);
    EXPECT_EQ(enhancer.getTNRModule()->GetAlphaHw(), (31 << 11) / 100);
    EXPECT_EQ(enhancer.getTNRModule()->GetCGainHw(), (32 << 4) / 10);
    EXPECT_EQ(enhancer.getTNRModule()->GetGlobalHw(), 33);
    enhancer.sprSetThreshold(90);
    EXPECT_EQ(enhancer.getSPRModule()->Th07(), 62);

    using Setter = void (MARLOImageEnhancer::*)(int);
    using E = MARLOImageEnhancer;
    using H = HistogramParam;
    const std::pair<Setter, int H::*> histogramSetters[] = {
        {&E::histSetMode, &H::mode},       {&E::histSetWidth, &H::width},
        {&E::histSetRange, &H::range},     {&E::histSetOffset, &H::offset},
        {&E::histSetSpeed, &H::speed},     {&E::histSetGamma, &H::gamma},
        {&E::histSetTridis, &H::tridis},   {&E::histSetRangeDis, &H::rangedis},
        {&E::histSetPoffdis, &H::poffdis}, {&E::histSetLimit, &H::limit},
        {&E::histSetLimit2, &H::limit2},   {&E::histSetGain, &H::gain},
        {&E::histSetGainLow, &H::gainlow}, {&E::histSetGainHigh, &H::gainhigh},
        {&E::histSetTest, &H::test},       {&E::histSetHW, &H::hw}};
    int value = 1000;
    for (const auto& [setter, field] : histogramSetters) {
        (enhancer.*setter)(++value);
        EXPECT_EQ(h.*field, value);
    }
    EXPECT_EQ(enhancer.histGetWidth(), 1002);
    using P = PeakingParam;
    const std::pair<Setter, int P::*> peakingSetters[] = {
        {&E::peakSetEnabled, &P::enabled},      {&E::peakSetGain, &P::gain},
        {&E::peakSetCoring, &P::coring},        {&E::peakSetLimit, &P::limit},
        {&E::peakSetWidth, &P::width},          {&E::peakSetReductThres, &P::reductThres},
        {&E::peakSetReductGain, &P::reductGain}};
    for (const auto& [setter, field] : peakingSetters) {
        (enhancer.*setter)(++value);
        EXPECT_EQ(p.*field, value);
    }
}

TEST(Enhancer, TakesBlockSettingsWithTheNextFrame)
{
    const QuietOutput quiet;
    const Size size{40, 12};
    CamInternalSettings settings;
    settings.tnrBypass = 0;
    settings.sprBypass = 0;
    settings.snrGain = 1000;
    MARLOImageEnhancer enhancer(size.cols, size.rows, &settings);
    cv::Mat_<int> result;
    enhancer.processFrame(imageOf<int>(makeFrame(Scene::steps, size, 1), size), result);
    EXPECT_NE(contents(enhancer.getSNRArray()), contents(enhancer.getSPRArray()));
    enhancer.snrSetGain(0);
    enhancer.processFrame(imageOf<int>(makeFrame(Scene::faint, size, 1), size), result);
    EXPECT_EQ(contents(enhancer.getSNRArray()), contents(enhancer.getSPRArray()));
}

TEST(Enhancer, AlwaysMeasuresByTheHardwareModel)
{
    const QuietOutput quiet;
    MARLOImageEnhancer enhancer(12, 10);
    enhancer.histSetHW(0);
    cv::Mat_<int> result;
    enhancer.processFrame(cv::Mat_<int>(10, 12, 5), result);
    EXPECT_EQ(enhancer.getHistogramDSPMod()->param.hw, 1);
    EXPECT_EQ(enhancer.getHistoBinArrayDSP()[17], 1U) << "the first read is flat";
    EXPECT_EQ(enhancer.getHistoGain(false)[256], 32768U);
    EXPECT_EQ(enhancer.getHistoGain(true)[0],
              static_cast<unsigned>(enhancer.getHistogramObject()->ProcessPixel(5)));
    EXPECT_EQ(enhancer.getHistoEqu()[255], 256.0);
    EXPECT_EQ(enhancer.getLocalGain(), enhancer.getHistogramObject()->getLocalGain());
}

TEST(Enhancer, CopiesShareEverythingAndAnyOfThemMayGoFirst)
{
    const QuietOutput quiet;
    const Size size{12, 10};
    auto original = std::make_unique<MARLOImageEnhancer>(size.cols, size.rows);
    MARLOImageEnhancer copy(4, 4);
    cv::Mat_<int> result;
    EXPECT_EQ(original->getFrameCount(), 0);
    original->processFrame(imageOf<int>(makeFrame(Scene::calm, size, 1), size), result);
    copy = *original;
    EXPECT_EQ(copy.getPeakArray(), original->getPeakArray());
    EXPECT_EQ(copy.getTNRModule(), original->getTNRModule());
    copy.tnrSetAlpha(10);
    EXPECT_EQ(original->getTNRModule()->GetAlphaHw(), (10 << 11) / 100);
    original.reset();
    EXPECT_EQ(copy.getFrameCount(), 1);
    copy.processFrame(imageOf<int>(makeFrame(Scene::calm, size, 2), size), result);
    EXPECT_EQ(copy.getFrameCount(), 1) << "for all frames but the first";
    EXPECT_EQ(contents(copy.getInputArray()), makeFrame(Scene::calm, size, 2));
}

TEST(ChainMatrix, RefusesMoreElementsThanAnIntCounts)
{
    int memory = 0;
    EXPECT_THROW(ChainMatrix(46341, 46341), halvor::vx::Exception);
    EXPECT_THROW(ChainMatrix(&memory, 65536, 65536), halvor::vx::Exception);
    EXPECT_THROW(ChainMatrix(&memory, 2147483647, 2147483647, 2147483647), halvor::vx::Exception);
    EXPECT_THROW(MARLOImageEnhancer(65536, 65536), halvor::vx::Exception);
}

TEST(ChainMatrix, ViewsForeignMemoryAsPlanes)
{
    std::vector<int> memory(24);
    ChainMatrix matrix(memory.data(), 2, 3, 4);
    EXPECT_EQ(matrix.size, 24);
    EXPECT_EQ(matrix.owns, 0);
    EXPECT_EQ(matrix.at(1, 2), memory.data() + 6);
    EXPECT_EQ(matrix.planes[1]->row(1), memory.data() + 16);
    EXPECT_EQ(ChainMatrix(memory.data(), 3, 4).planes, nullptr);
    EXPECT_EQ(ChainMatrix(3, 4).owns, 1);
    EXPECT_EQ(ChainMatrix().data, nullptr);
}
