// SPDX-License-Identifier: Apache-2.0
// The chain, its blocks, the filters and the simulators behind handles give the bits of their classes.

#include <opencv2/imgproc.hpp>

#include "bindings/c/Handles.h"
#include "enhancement/ClusterPatternRemover.h"
#include "enhancement/MARLOImageEnhancer.h"
#include "enhancement/SpatialNoiseRemover.h"
#include "enhancement/StaticPatternRemover.h"
#include "enhancement/TemporalNoiseReduction.h"
#include "enhancement/UnsharpMask.h"
#include "support/Burst.h"
#include "support/Stream.h"

using namespace vxtest;
using namespace halvor::vx;

namespace {

constexpr int streamLength = 6;

/// The same stream as unsigned counts, as the filters mean them.
cv::Mat countsOf(const cv::Mat_<short>& samples)
{
    return converted(samples, CV_16U, 1.0, 32768.0);
}

/// Takes the class's prints from the test's output.
class EnhancerClass
{
public:
    explicit EnhancerClass(cv::Size size, CamInternalSettings settings = {})
        : chain_(size.width, size.height, &settings)
    {}
    cv::Mat_<short> operator()(const cv::Mat_<short>& frame)
    {
        cv::Mat_<short> result;
        testing::internal::CaptureStdout();
        chain_.processFrame(frame, result);
        testing::internal::GetCapturedStdout();
        return result;
    }
    MARLOImageEnhancer& chain() { return chain_; }

private:
    MARLOImageEnhancer chain_;
};

CamInternalSettings withRanks()
{
    CamInternalSettings settings;
    const HistogramParam ofSize = Histogram(96, 72).param;
    settings.histGainLow = ofSize.gainlow;
    settings.histGainHigh = ofSize.gainhigh;
    return settings;
}

TEST(ChainHandle, GivesTheBitsOfTheClassForBothTypesAndInPlace)
{
    EnhancerClass expected({96, 72}, withRanks());
    const Handle ofSamples("enhancer");
    const Handle ofCounts("enhancer");
    EXPECT_EQ(ofSamples.get("hist-gainlow"), 7.0);  // 0.1 % of the pixels
    for (const cv::Mat_<short>& frame : sampleStream(streamLength)) {
        const cv::Mat_<short> result = expected(frame);
        EXPECT_TRUE(sameBits(processed(ofSamples, frame), result));
        const cv::Mat levels = countsOf(frame);
        const vxkit_image inPlace = imageOf(levels);
        EXPECT_EQ(vxkit_process(ofCounts, &inPlace, &inPlace), VXKIT_OK);
        EXPECT_TRUE(sameBits(levels, converted(result, CV_16U)));
    }
    EXPECT_TRUE(
        sameBits(resultOf<int>(ofSamples, "after-temporal"), expected.chain().getTNRArray()->image()));
    EXPECT_TRUE(sameBits(resultOf<int>(ofSamples, "after-pattern"), expected.chain().getSPRArray()->image()));
    EXPECT_TRUE(sameBits(resultOf<int>(ofSamples, "after-spatial"), expected.chain().getSNRArray()->image()));
    EXPECT_TRUE(
        sameBits(resultOf<int>(ofSamples, "after-histogram"), expected.chain().getHistoArray()->image()));
}

TEST(ChainHandle, ChangesSettingsBetweenFramesAndForgetsAtAReset)
{
    const auto frames = sampleStream(streamLength);
    EnhancerClass expected({96, 72}, withRanks());
    const Handle chain("enhancer");
    processed(chain, frames[0]);
    EXPECT_EQ(vxkit_reset(chain), VXKIT_OK);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (i == 2) {
            chain.set("tnr-alpha", 85);
            chain.set("spr", 0);
            chain.set("snr-gain", 9);
            EXPECT_EQ(vxkit_set_text(chain, "hist-mode", "bounded"), VXKIT_OK);
            chain.set("hist-gamma", -3);
            chain.set("peak-gain", 40);
            expected.chain().tnrSetAlpha(85);
            expected.chain().sprSetBypass(0);
            expected.chain().snrSetGain(9);
            expected.chain().histSetMode(2);
            expected.chain().histSetGamma(-3);
            expected.chain().peakSetGain(40);
        }
        EXPECT_TRUE(sameBits(processed(chain, frames[i]), expected(frames[i]))) << i;
    }
    EXPECT_EQ(vxkit_set_number(chain, "hist-gainlow", 7000), VXKIT_OUT_OF_RANGE);
    EXPECT_EQ(chain.get("hist-gainlow"), 7.0);
    EXPECT_EQ(vxkit_set_number(chain, "spr-delay", 2), VXKIT_FAILED);
}

TEST(ChainHandle, WithoutEqualiserKeepsToTheTypeOfTheFrames)
{
    CamInternalSettings settings = withRanks();
    settings.histMode = 0;
    EnhancerClass expected({96, 72}, settings);
    const Handle samples("enhancer");
    const Handle counts("enhancer");
    samples.set("hist", 0);
    EXPECT_EQ(vxkit_set_text(counts, "hist-mode", "off"), VXKIT_OK);
    EXPECT_EQ(counts.get("hist"), 0.0);
    for (const cv::Mat_<short>& frame : sampleStream(streamLength)) {
        const cv::Mat_<short> result = expected(frame);
        EXPECT_TRUE(sameBits(processed(samples, frame), result));
        EXPECT_TRUE(sameBits(processed(counts, countsOf(frame)), countsOf(result)));
    }
    const cv::Mat_<short> frame(72, 96, short{5});
    cv::Mat_<std::uint16_t> other(72, 96);
    const vxkit_image src = imageOf(frame);
    const vxkit_image dst = imageOf(other);
    EXPECT_EQ(vxkit_process(samples, &src, &dst), VXKIT_WRONG_TYPE);
    EXPECT_THAT(vxkit_error(samples), testing::AllOf(testing::HasSubstr("u16"), testing::HasSubstr("i16")));
}

// The chain with all other blocks bypassed.
TEST(BlockHandles, GiveTheBitsOfTheChainThatHasThisBlockAlone)
{
    for (const std::string block : {"tnr", "spr", "snr", "hist", "peak"}) {
        const Handle alone(block);
        const Handle chain("enhancer");
        for (const char* other : {"tnr", "spr", "snr", "hist", "peak"})
            chain.set(other, block == other ? 1.0 : 0.0);
        const char* setting = block == "tnr" ? "alpha" : block == "spr" ? "threshold" : "gain";
        alone.set(setting, 30);
        chain.set((block + "-" + setting).c_str(), 30);
        cv::Mat result;
        for (const cv::Mat_<short>& frame : sampleStream(streamLength)) {
            result = processed(alone, frame);
            EXPECT_TRUE(sameBits(result, processed(chain, frame))) << block;
        }
        EXPECT_FALSE(sameBits(result, sampleStream(streamLength).back())) << block;
    }
}

template <typename Filter>
void expectBitsOf(Filter filter, const vxkit_object* handle, const char* name)
{
    auto* object = const_cast<vxkit_object*>(handle);
    for (const cv::Mat_<short>& frame : sampleStream(streamLength)) {
        cv::Mat_<short> result;
        filter.process(frame, result);
        EXPECT_TRUE(sameBits(processed(object, frame), result)) << name;
    }
}

TEST(FilterHandles, GiveTheBitsOfTheirClasses)
{
    const Handle temporal("temporal");
    expectBitsOf(TemporalNoiseReduction(10, 15, 60, false), temporal, "temporal");
    const Handle hardware("temporal");
    hardware.set("hw-units", 1);
    EXPECT_EQ(hardware.get("feedback-factor"), 1228.0);
    expectBitsOf(TemporalNoiseReduction(16, 15, 1228, true), hardware, "hw-units");
    const Handle pattern("static-pattern");
    pattern.set("line-limit", 20);
    expectBitsOf(StaticPatternRemover(22, 20, 16), pattern, "static-pattern");
    const Handle spatial("spatial");
    spatial.set("gain", 11);
    expectBitsOf(SpatialNoiseRemover(11), spatial, "spatial");
    EXPECT_EQ(vxkit_reset(temporal), VXKIT_OK);
    EXPECT_EQ(vxkit_set_number(temporal, "control-gain", 16), VXKIT_OK);  // for the other units alone
    const cv::Mat_<short> flat(72, 96, short{1});
    const vxkit_image frame = imageOf(flat);
    EXPECT_EQ(vxkit_process(temporal, &frame, &frame), VXKIT_OUT_OF_RANGE);
}

TEST(FilterHandles, SharpenBothSidesOrBrighterDetailAlone)
{
    const Handle unsharp("unsharp");
    const cv::Mat_<short> frame = sampleStream(1).front();
    const cv::Mat floats = converted(frame, CV_32F);
    cv::Mat blurred;
    cv::GaussianBlur(floats, blurred, {0, 0}, 1.0, 1.0, cv::BORDER_REFLECT_101);
    const cv::Mat_<short> sharp = processed(unsharp, frame);
    EXPECT_LE(cv::norm(sharp, converted(2.0 * floats - blurred, CV_16S), cv::NORM_INF), 1.0);
    unsharp.set("threshold", 0.05);
    EXPECT_EQ(cv::countNonZero(processed(unsharp, frame) < frame - 16), 0);
}

TEST(FilterHandles, LearnAClusterPatternOfFramesOrStatistics)
{
    const auto frames = sampleStream(streamLength);
    ClusterPatternRemover expected(5, 5, 5.0F, 0.0F, 100.0F);
    expected.setAlphaDamping(1.0F);
    std::vector<cv::Mat> counts;
    std::vector<vxkit_image> images;
    for (const cv::Mat_<short>& frame : frames) {
        counts.emplace_back(countsOf(frame));
        images.push_back(imageOf(counts.back()));
    }
    expected.learn(counts);
    cv::Mat damping;
    expected.getDamping(damping, true);

    const Handle cluster("cluster");
    EXPECT_EQ(vxkit_process(cluster, &images[0], &images[0]), VXKIT_NOT_READY);
    EXPECT_EQ(vxkit_learn(cluster, images.data(), 1), VXKIT_OUT_OF_RANGE);
    ASSERT_EQ(vxkit_learn(cluster, images.data(), streamLength), VXKIT_OK) << vxkit_last_error();
    EXPECT_TRUE(sameBits(resultOf<float>(cluster, "damping"), damping));
    cv::Mat_<float> product;
    cv::multiply(converted(counts[1], CV_32F), damping, product);
    EXPECT_TRUE(sameBits(processed(cluster, counts[1]), converted(product, CV_16U)));

    const cv::Mat_<float> mean(72, 96, 1000.0F);
    cv::Mat_<float> deviation(72, 96, 1.0F);
    const vxkit_image means = imageOf(mean);
    const vxkit_image deviations = imageOf(deviation);
    EXPECT_EQ(vxkit_learn_statistics(cluster, &means, &deviations), VXKIT_OK);
    EXPECT_EQ(cv::countNonZero(resultOf<float>(cluster, "damping") != 1.0F), 0);
    deviation(3, 4) = std::numeric_limits<float>::infinity();
    EXPECT_EQ(vxkit_learn_statistics(cluster, &means, &deviations), VXKIT_OUT_OF_RANGE);
}

TEST(SimulatorHandles, GiveTheBitsOfTheSimulators)
{
    vxsupport::BurstSettings settings;
    settings.scene = {vxsupport::SceneKind::board, {64, 48}, 3, 1.5};
    settings.frameCount = 3;
    settings.seed = 9;
    settings.turn = 0.01;
    const vxsupport::Burst expected = vxsupport::simulateBurst(settings);
    const Handle burst("burst", {64, 48});
    EXPECT_EQ(vxkit_set_text(burst, "scene", "board"), VXKIT_OK);
    for (const auto& [name, value] : std::vector<std::pair<const char*, double>>{
             {"scene-seed", 3}, {"zoom", 1.5}, {"frames", 3}, {"seed", 9}, {"turn", 0.01}})
        burst.set(name, value);
    EXPECT_TRUE(sameBits(resultOf<float>(burst, "truth"), expected.truth));
    for (int i = 0; i < 3; ++i) {
        cv::Mat_<float> frame(48, 64);
        const vxkit_image image = imageOf(frame);
        double x = 0.0;
        double y = 0.0;
        EXPECT_EQ(vxkit_simulated_frame(burst, i, &image), VXKIT_OK);
        EXPECT_TRUE(sameBits(frame, expected.frames[static_cast<std::size_t>(i)]));
        EXPECT_EQ(vxkit_simulated_shift(burst, i, &x, &y), VXKIT_OK);
        EXPECT_EQ(x, static_cast<double>(expected.shifts[static_cast<std::size_t>(i)].x));
        EXPECT_EQ(vxkit_simulated_ideal(burst, i, &image), VXKIT_UNKNOWN_NAME);
        EXPECT_EQ(vxkit_simulated_frame(burst, i + 3, &image), VXKIT_OUT_OF_RANGE);
    }
    EXPECT_EQ(vxkit_reset(burst), VXKIT_OK);
    burst.set("reference", 7);
    vxkit_image shape{};
    EXPECT_EQ(vxkit_result_shape(burst, "truth", &shape), VXKIT_OUT_OF_RANGE);
}

TEST(SimulatorHandles, GiveARecordingAndWhatAnIdealSensorSees)
{
    vxsupport::StreamSettings settings;
    settings.scene = {vxsupport::SceneKind::facade, {64, 48}, 1, 1.0};
    settings.columnOffset = 0.4;
    settings.rowOffset = 0.2;
    settings.pixelOffset = 0.0;
    settings.motion = {};
    const vxsupport::StreamSimulator expected(settings);
    const Handle recording("recording", {64, 48});
    recording.set("column-offset", 0.4);
    cv::Mat_<float> frame(48, 64);
    const vxkit_image image = imageOf(frame);
    EXPECT_EQ(vxkit_simulated_frame(recording, 17, &image), VXKIT_OK);
    EXPECT_TRUE(sameBits(frame, expected.frame(17)));
    EXPECT_EQ(vxkit_simulated_ideal(recording, 17, &image), VXKIT_OK);
    EXPECT_TRUE(sameBits(frame, expected.ideal(17)));
}

}  // namespace
