// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "doubles/BlockFrames.h"
#include "doubles/PlainPeaking.h"
#include "enhancement/peaking.h"

using blocktest::makeFrame;
using blocktest::Scene;
using blocktest::Size;

namespace {

PeakingParam chainSettings()
{
    PeakingParam param;
    param.enabled = 1;
    param.coring = 15;
    return param;
}

void expectEqualFrame(const PeakingParam& param, Size size, const std::vector<int>& image,
                      const std::vector<double>* slopes, const std::string& what)
{
    Peaking fast(size.cols, size.rows);
    plain::Peaking slow(size.cols, size.rows);
    fast.param = param;
    slow.param = param;
    std::vector<int> in = image;
    std::vector<double> localGain = slopes != nullptr ? *slopes : std::vector<double>();
    double* gain = slopes != nullptr ? localGain.data() : nullptr;
    std::vector<int> fastOut(in.size(), 1);
    std::vector<int> slowOut(in.size(), 2);
    fast.ProcessFrame(in.data(), fastOut.data(), gain);
    slow.ProcessFrame(in.data(), slowOut.data(), gain);
    ASSERT_EQ(fastOut, slowOut) << what;
}

// Equalised samples on a ramp, each anywhere within a roughness around it.
std::vector<int> equalised(Size size, unsigned seed, int roughness)
{
    std::mt19937 random(seed);
    std::vector<int> image;
    for (int i = 0; i < blocktest::pixelCount(size); ++i) {
        const int ramp = 16000 + (i % size.cols) * 11;
        const int noise = static_cast<int>(random() % static_cast<unsigned>(roughness)) - roughness / 2;
        image.push_back(std::clamp(ramp + noise, 0, 32766));
    }
    return image;
}

}  // namespace

TEST(Peaking, EqualsThePlainFormOnEqualisedFrames)
{
    std::vector<double> slopes(256);
    for (std::size_t i = 0; i < slopes.size(); ++i)
        slopes[i] = static_cast<double>(i) / 40.0;
    for (const Size size : blocktest::smallSizes)
        for (const int roughness : {1, 200, 5000, 65535})
            expectEqualFrame(chainSettings(), size, equalised(size, 1, roughness), &slopes,
                             "roughness " + std::to_string(roughness));
}

TEST(Peaking, EqualsThePlainFormOnRawFrames)
{
    for (const Size size : blocktest::smallSizes)
        for (const Scene scene : blocktest::allScenes)
            expectEqualFrame(chainSettings(), size, makeFrame(scene, size, 1), nullptr,
                             blocktest::describe(scene, size, 0, 1));
    // The largest high pass that signed 16-bit samples give, in both directions.
    for (const int centre : {-32768, 32767}) {
        std::vector<int> image(25, -1 - centre);
        image[12] = centre;
        for (const int coring : {0, 1, 70000}) {
            PeakingParam param = chainSettings();
            param.coring = coring;
            param.limit = 4095;
            param.gain = 1;
            param.reductGain = 255;
            param.reductThres = 127;
            expectEqualFrame(param, {5, 5}, image, nullptr, "coring " + std::to_string(coring));
        }
    }
}

TEST(Peaking, EqualsThePlainFormWithEverySettingAnywhere)
{
    std::mt19937 random(5);
    constexpr int ends[] = {0, 1, -1, 15, 255, 256, 4095, 4096, 65536, INT32_MAX, INT32_MIN, 0x7FFFE0};
    const auto setting = [&] { return ends[random() % 12]; };
    const std::vector<double> slopes(256, 1.7);
    std::vector<double> wildSlopes(256);
    for (double& slope : wildSlopes)
        slope = static_cast<double>(static_cast<int>(random())) / 1000.0;
    wildSlopes[3] = std::numeric_limits<double>::infinity();
    for (int trial = 0; trial < 400; ++trial) {
        PeakingParam param = chainSettings();
        for (int PeakingParam::*field : {&PeakingParam::gain, &PeakingParam::coring, &PeakingParam::limit,
                                         &PeakingParam::reductThres, &PeakingParam::reductGain})
            if (random() % 2 == 0)
                param.*field = setting();
        param.enabled = trial % 20;
        const Size size{35, 4};
        const std::vector<int> image = trial % 2 == 0
                                           ? equalised(size, static_cast<unsigned>(trial), 65535)
                                           : makeFrame(blocktest::allScenes[random() % 4], size, trial);
        const std::vector<double>* chosen[] = {nullptr, &slopes, &wildSlopes};
        expectEqualFrame(param, size, image, chosen[trial % 3], "trial " + std::to_string(trial));
    }
}

TEST(PeakingDeathTest, EndsTheProcessInTestModeInEveryBuild)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Peaking peaking(3, 3);
    peaking.param.enabled = 1;
    peaking.param.testmode = 1;
    std::vector<int> image(9);
    std::vector<int> out(9);
    EXPECT_DEATH(peaking.ProcessFrame(image.data(), out.data(), nullptr), "param.testmode == 0");
}
