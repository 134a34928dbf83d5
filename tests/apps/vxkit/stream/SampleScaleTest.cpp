// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/stream/SampleScale.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <opencv2/core.hpp>

#include "apps/TemporaryFolder.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/FrameSink.h"
#include "apps/vxkit/terminal/Failure.h"

using namespace vxapp;
using testing::HasSubstr;

namespace {

const cv::Size frameSize{32, 24};

class Scale : public TemporaryFolder
{
protected:
    // A slope with some noise.
    static cv::Mat_<double> scene(double low, double step, double noise)
    {
        cv::RNG random(3);
        cv::Mat_<double> values(frameSize);
        for (int y = 0; y < values.rows; ++y)
            for (int x = 0; x < values.cols; ++x)
                values(y, x) = low + step * (32 * y + x) + random.gaussian(noise);
        return values;
    }

    // Two frames of the same values, as a headerless file of the type.
    Recording recordingOf(const cv::Mat& values, SampleType type)
    {
        cv::Mat stored;
        values.convertTo(stored, factsOf(type).storage);
        const std::string bytes = encodeSamples(stored, type, std::endian::little);
        writeText(at("frames.raw"), bytes + bytes);
        RecordingOptions options{{at("frames.raw")}, "32x24", ""};
        options.hints.samples = type;
        return Recording(options);
    }

    // What comes back, less what went in.
    double loss(Recording& recording, SampleScale& scale)
    {
        cv::Mat_<short> samples;
        scale.toSamples(recording, 1, samples);
        cv::Mat before;
        cv::Mat behind;
        recording.frame(1).convertTo(before, CV_64F);
        scale.toValues(samples).convertTo(behind, CV_64F);
        return cv::norm(before, behind, cv::NORM_INF);
    }
};

}  // namespace

TEST_F(Scale, KeepsWholeNumbersOfEveryType)
{
    struct Case
    {
        SampleType type;
        double low;
        SampleType back;
    };
    for (const Case& c : {Case{SampleType::u16, 40000, SampleType::u16},
                          {SampleType::s16, -300, SampleType::s16},
                          {SampleType::u32, 4.2e9, SampleType::f64},
                          {SampleType::s32, -2e9, SampleType::f64},
                          {SampleType::f32, 100, SampleType::f32},
                          {SampleType::f64, -1e12, SampleType::f64}}) {
        const cv::Mat values = scene(c.low, 1.0, 0.0);
        Recording recording = recordingOf(values, c.type);
        SampleScale scale(recording, {});
        EXPECT_EQ(loss(recording, scale), 0.0) << factsOf(c.type).name;
        EXPECT_EQ(scale.valueType(), c.back) << factsOf(c.type).name;
        EXPECT_EQ(scale.remarks().empty(), c.low != 40000) << scale.remarks();
    }
}

TEST_F(Scale, OfDegreesIsFinerThanTheirNoise)
{
    Recording recording = recordingOf(scene(20.0, 0.013, 0.05), SampleType::f32);
    SampleScale scale(recording, {});
    EXPECT_LE(loss(recording, scale), 0.05 / 4.0 / 2.0);
    EXPECT_THAT(scale.description(), HasSubstr("; value = count * 0.01 + "));
    EXPECT_EQ(scale.valueType(), SampleType::f32);

    cv::Mat_<double> wide = scene(20.0, 0.013, 0.05);
    wide(3, 3) = 1e5;
    recording = recordingOf(wide, SampleType::f32);
    SampleScale coarse(recording, {});
    EXPECT_THAT(coarse.description(), HasSubstr("warning: a count is more than the noise of 0.0"));
}

TEST_F(Scale, MayBeGiven)
{
    Recording degrees = recordingOf(scene(20.0, 0.01, 0.0), SampleType::f64);
    SampleScale fine(degrees, {SampleForm::unsignedCounts, 0.01, -273.15});
    EXPECT_LE(loss(degrees, fine), 1e-9);
    SampleScale far(degrees, {SampleForm::unsignedCounts, 0.01, 30.0});
    cv::Mat_<short> samples;
    EXPECT_THROW(far.toSamples(degrees, 0, samples), UsageError);

    Recording counts = recordingOf(scene(29000, 1.0, 0.0), SampleType::u16);
    SampleScale scale(counts, {SampleForm::unsignedCounts, 0.01, -273.15});
    scale.toSamples(counts, 0, samples);
    EXPECT_NEAR(scale.toValues(samples).at<float>(0, 5), 290.05 - 273.15, 1e-4);
    EXPECT_EQ(scale.typeFor({"degrees.tif"}), SampleType::f32);
    EXPECT_EQ(scale.typeFor({"counts.png"}), SampleType::u16);
    EXPECT_EQ(scale.toFile(samples, SampleType::u16).at<std::uint16_t>(0, 5), 29005);

    EXPECT_THROW(SampleScale(counts, {SampleForm::unsignedCounts, 0.0, 1.0}), UsageError);
    EXPECT_THROW(SampleScale(degrees, {SampleForm::signedSamples, {}, {}}), UsageError);
}

TEST_F(Scale, FillsInAndTellsWhatIsNoNumber)
{
    cv::Mat_<double> values = scene(20.0, 0.01, 0.02);
    values(5, 6) = std::numeric_limits<double>::quiet_NaN();
    values(0, 0) = std::numeric_limits<double>::infinity();
    Recording recording = recordingOf(values, SampleType::f32);
    SampleScale scale(recording, {});
    cv::Mat_<short> samples;
    for (int pass = 0; pass < 2; ++pass)
        scale.toSamples(recording, 0, samples);
    const cv::Mat_<float> back = scale.toValues(samples);
    EXPECT_NEAR(back(5, 6), values(5, 7), 0.5);
    EXPECT_NEAR(back(0, 0), values(0, 1), 0.5);
    EXPECT_THAT(scale.remarks(), HasSubstr("2 values were no numbers")) << "a frame counts once";
    values.rowRange(0, 20) = values(5, 6);
    recording = recordingOf(values, SampleType::f32);
    EXPECT_THROW(scale.toSamples(recording, 0, samples), UsageError);
}
