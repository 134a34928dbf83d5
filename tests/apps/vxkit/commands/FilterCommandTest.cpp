// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "apps/FrameSamples.h"
#include "apps/ProgramRun.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/stream/FrameRun.h"
#include "core/io/ImageIO.h"
#include "doubles/BlockFrames.h"
#include "enhancement/ClusterPatternRemover.h"
#include "enhancement/SpatialNoiseRemover.h"
#include "enhancement/StaticPatternRemover.h"
#include "enhancement/TemporalNoiseReduction.h"
#include "enhancement/UnsharpMask.h"

using namespace halvor::vx;
using testing::HasSubstr;
using vxapp::SampleForm;

namespace {

using Samples = cv::Mat_<short>;
using Direct = std::function<Samples(const Samples&)>;

constexpr blocktest::Size frameSize{33, 21};
constexpr int frameCount = 4;

class Filters : public ProgramFolder
{
protected:
    void SetUp() override
    {
        TemporaryFolder::SetUp();
        for (int number = 0; number < frameCount; ++number) {
            const std::vector<int> pixels = makeFrame(blocktest::Scene::calm, frameSize, number);
            frames_.push_back(blocktest::asImage(pixels, frameSize));
        }
    }

    void writeInput(SampleForm form) const
    {
        for (const Samples& frame : frames_) {
            cv::Mat_<std::uint16_t> counts;
            toCounts(frame, form, counts);
            appendRaw(folder_ / "in.raw", counts);
        }
    }

    ProgramRun filter(const std::string& options) const
    {
        return run("filter --size 33x21 -o out.raw " + options + " in.raw");
    }

    void expectOutput(SampleForm form, const Direct& direct) const
    {
        vxapp::Recording output({{at("out.raw")}, "33x21", ""});
        ASSERT_EQ(output.frameCount(), frameCount);
        for (int i = 0; i < frameCount; ++i) {
            Samples result;
            toSamples(output.counts(i), form, result);
            EXPECT_TRUE(sameBits(result, direct(frames_[static_cast<std::size_t>(i)]))) << "frame " << i;
        }
    }

    std::vector<Samples> frames_;
};

template <typename Filter>
Direct driving(Filter filter)
{
    return [filter](const Samples& frame) mutable {
        Samples result;
        filter.process(frame, result);
        return result;
    };
}

Samples sharpened(const Samples& frame)
{
    cv::Mat_<cv::Vec2f> pair(frame.size());
    std::transform(frame.begin(), frame.end(), pair.begin(),
                   [](short sample) { return cv::Vec2f::all(sample); });
    cv::Mat sharp;
    UnsharpMask::unsharp(pair, sharp, 1.5, 0.8, 0.0);
    Samples result(frame.size());
    std::transform(sharp.begin<cv::Vec2f>(), sharp.end<cv::Vec2f>(), result.begin(),
                   [](const cv::Vec2f& value) { return cv::saturate_cast<short>(value[1]); });
    return result;
}

struct Setting
{
    std::string arguments;
    Direct direct;
    SampleForm form = SampleForm::unsignedCounts;
};

// A uniform scene, in which a small cluster and a wide group of pixels have other gains than the rest.
cv::Mat_<float> clusterMeans(float level)
{
    cv::Mat_<float> mean(frameSize.rows, frameSize.cols, level);
    mean(cv::Rect(4, 4, 2, 1)) = level * 1.01F;
    mean(cv::Rect(15, 4, 4, 12)) = level * 1.01F;
    return mean;
}

void savePfm(const std::string& path, const cv::Mat_<float>& image)
{
    ImageIO::save(path, image, ImageIO::pfm);
}

}  // namespace

TEST_F(Filters, GiveWhatTheFilterGivesDrivenDirectly)
{
    for (const Setting& setting :
         {Setting{"--temporal", driving(TemporalNoiseReduction(10, 15, 60, false))},
          Setting{"--temporal --hw-units --control-gain 7 --feedback-factor 1900 --global-threshold 80",
                  driving(TemporalNoiseReduction(7, 80, 1900, true))},
          Setting{"--spatial --gain 30 --signed", driving(SpatialNoiseRemover(30)),
                  SampleForm::signedSamples},
          Setting{"--pattern", driving(StaticPatternRemover(22, 12, 16))},
          Setting{"--pattern --threshold 90 --line-limit 3 --frame-limit 2",
                  driving(StaticPatternRemover(90, 3, 2))},
          Setting{"--unsharp --amount 1.5 --sigma 0.8", sharpened}}) {
        SCOPED_TRACE(setting.arguments);
        std::filesystem::remove(at("in.raw"));
        writeInput(setting.form);
        const ProgramRun done = filter(setting.arguments + " --force");
        ASSERT_EQ(done.status, 0) << done.error;
        expectOutput(setting.form, setting.direct);
    }
}

// The mask knows a threshold for 8 bits alone: a frame with just 256 values goes through without loss.
TEST_F(Filters, SharpenBrighterDetailOverAThresholdIn8Bits)
{
    for (Samples& frame : frames_) {
        frame = (frame & 0xFF) * 3 - 300;
        frame(0, 0) = -300;
        frame(0, 1) = 255 * 3 - 300;
    }
    writeInput(SampleForm::unsignedCounts);
    ASSERT_EQ(filter("--unsharp --threshold 0.3").status, 0);
    expectOutput(SampleForm::unsignedCounts, [](const Samples& frame) {
        cv::Mat levels;
        frame.convertTo(levels, CV_8U, 1.0 / 3.0, 100.0);
        cv::Mat sharp;
        UnsharpMask::unsharp(levels, sharp, 1.0, 1.0, 0.3);
        Samples result;
        sharp.convertTo(result, CV_16S, 3.0, -300.0);
        return result;
    });
}

TEST_F(Filters, MultiplyClustersOfBoundedSizeByTheirDamping)
{
    const cv::Mat_<float> means = clusterMeans(8000.0F);
    const cv::Mat_<float> deviations(means.size(), 1.0F);
    savePfm(at("mean.pfm"), means);
    savePfm(at("std.pfm"), deviations);
    writeInput(SampleForm::unsignedCounts);
    const ProgramRun done =
        filter("--cluster --cluster-width 3 --mean mean.pfm --std-dev std.pfm --damping damping.tif");
    ASSERT_EQ(done.status, 0) << done.error;
    EXPECT_THAT(done.out, HasSubstr(": 2 of 693 pixels corrected"));

    ClusterPatternRemover remover(3, 5, 5.0F, 0.0F, 100.0F);
    remover.setAlphaDamping(1.0F);
    remover.learn(means, deviations);
    cv::Mat damping;
    remover.getDamping(damping, true);
    EXPECT_TRUE(sameBits(image("damping.tif"), damping));
    expectOutput(SampleForm::unsignedCounts, [&](const Samples& frame) {
        cv::Mat values;
        frame.convertTo(values, CV_32F, 1.0, 32768.0);
        values = values.mul(damping);
        Samples result;
        values.convertTo(result, CV_16S, 1.0, -32768.0);
        return result;
    });
}

TEST_F(Filters, LearnClustersFromFramesOfAUniformScene)
{
    writeInput(SampleForm::unsignedCounts);
    cv::Mat_<std::uint16_t> uniform;
    for (const auto& [level, name] : {std::pair(7999.0F, "dark.raw"), std::pair(8001.0F, "bright.raw")}) {
        clusterMeans(level).convertTo(uniform, CV_16U);
        appendRaw(folder_ / name, uniform);
    }
    // The input follows the option, which takes one file at a time.
    const ProgramRun done = filter("--cluster --cluster-width 3 --uniform dark.raw --uniform bright.raw");
    EXPECT_THAT(done.out, HasSubstr("learned from 2 frames: 2 of 693 pixels corrected"));
}

TEST_F(Filters, RefuseInputThatMakesNoSense)
{
    writeInput(SampleForm::unsignedCounts);
    appendRaw(folder_ / "one.raw", sampleCounts({33, 21}));
    savePfm(at("small.pfm"), cv::Mat_<float>(5, 5, 1.0F));
    expectRefusals("filter --size 33x21 -o out.raw",
                   {{"", "expected one of --temporal"},
                    {"--temporal --spatial", "expected one of --temporal"},
                    {"--temporal --gain 3", "--gain: a setting of --spatial, not of --temporal"},
                    {"--temporal --control-gain 11", "--control-gain 11: expected 0 to 10"},
                    {"--temporal --feedback-factor -1", "--feedback-factor -1: expected 0 to 100"},
                    {"--spatial --gain 32", "--gain"},
                    {"--pattern --threshold 0.5", "expected a whole number from 0 to 100"},
                    {"--unsharp --threshold 1.1", "expected a number from 0 to 1"},
                    {"--unsharp --sigma 0", "--sigma"},
                    {"--cluster --alpha-damping 1.01", "--alpha-damping"},
                    {"--cluster --mean small.pfm", "--std-dev: expected both"},
                    {"--cluster --mean small.pfm --std-dev small.pfm", "is 5x5; expected 33x21"},
                    {"--cluster --frames 1:1", "one frame tells no deviation"},
                    {"--cluster --force --damping in.raw", "in.raw: is an input"},
                    {"--cluster --damping new.png", "expected a name that ends in .tif"}},
                   "in.raw");
    expectRefusals("filter --size 33x21",
                   {{"--cluster --uniform one.raw --force -o one.raw in.raw", "one.raw: is an input"}});
}
