#include "apps/vxkit/FrameSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/videoio.hpp>

#include "FrameSamples.h"
#include "TemporaryFolder.h"
#include "apps/vxkit/Failure.h"
#include "apps/vxkit/FrameRun.h"
#include "apps/vxkit/Recording.h"

using namespace vxapp;
using testing::HasSubstr;
using testing::Lt;

namespace {

const cv::Size frameSize{21, 13};
constexpr int frameCount = 3;

class FrameSinks : public TemporaryFolder
{
protected:
    void SetUp() override
    {
        TemporaryFolder::SetUp();
        for (int i = 0; i < 2 + frameCount; ++i)
            appendRaw(folder / "in.raw", sampleCounts(frameSize, i));
    }

    // Frames 2, 3, 4 of the file.
    Recording input() const { return Recording({{at("in.raw")}, "21x13", "2:3"}); }

    std::string at(const std::string& name) const { return (folder / name).string(); }

    std::string write(const SequenceOptions& options, vxsupport::ValueRange range = {0.0F, 0.0F}) const
    {
        Recording recording = input();
        const std::unique_ptr<FrameSink> sink = openFrameSink(options, recording, range);
        for (int i = 0; i < recording.frameCount(); ++i)
            sink->add(recording.counts(i));
        return sink->finish();
    }
};

struct StillFormat
{
    std::string name;
    std::vector<std::string> files;
    std::string size;  // for reading it back
};

class StillSinks : public FrameSinks, public testing::WithParamInterface<StillFormat>
{};

}  // namespace

TEST_P(StillSinks, KeepEveryBitAndAppearOnlyWhenWhole)
{
    const StillFormat& format = GetParam();
    {
        Recording recording = input();
        const std::unique_ptr<FrameSink> sink = openFrameSink({.path = at(format.name)}, recording);
        sink->add(recording.counts(0));
    }
    EXPECT_EQ(fileCount(), 1U) << "only the input";

    EXPECT_THAT(write({.path = at(format.name)}), HasSubstr(format.files.back()));
    EXPECT_EQ(fileCount(), 1U + format.files.size());
    RecordingOptions written;
    for (const std::string& file : format.files)
        written.inputs.push_back(at(file));
    written.size = format.size;
    Recording result(written);
    ASSERT_EQ(result.frameCount(), frameCount);
    for (int i = 0; i < frameCount; ++i)
        EXPECT_TRUE(sameBits(result.counts(i), sampleCounts(frameSize, 2 + i))) << i;

    EXPECT_THROW(write({.path = at(format.name)}), UsageError);
    EXPECT_NO_THROW(write({.path = at(format.name), .force = true}));
}

INSTANTIATE_TEST_SUITE_P(
    Formats, StillSinks,
    testing::Values(StillFormat{"out.raw", {"out.raw"}, "21x13"}, StillFormat{"out.TIF", {"out.TIF"}, ""},
                    StillFormat{"out.png", {"out-0002.png", "out-0003.png", "out-0004.png"}, ""}),
    [](const testing::TestParamInfo<StillFormat>& format) { return format.param.name.substr(4); });

TEST_F(FrameSinks, VideoShowsTheRangeEnlarged)
{
    EXPECT_THAT(write({.path = at("out.avi"), .range = "1000:3000", .colourMap = "gray"}),
                HasSubstr("gray from 1000 to 3000"));
    cv::VideoCapture video(at("out.avi"));
    cv::Mat_<cv::Vec3b> picture;
    for (int i = 0; i < frameCount; ++i) {
        ASSERT_TRUE(video.read(picture));
        ASSERT_EQ(picture.size(), frameSize * 36);
        EXPECT_THAT(int{picture(18, 18)[0]}, Lt(10)) << "count 3";
        EXPECT_NEAR(picture(18, 36 * 8 + 18)[0], 135, 12) << "count 2059";
        EXPECT_GT(picture(36 * 5, 18)[0], 245) << "count 20498";
    }
    EXPECT_FALSE(video.read(picture));

    EXPECT_THAT(write({.path = at("usual.avi")}, {7.0F, 8.0F}), HasSubstr("from 7 to 8"));
    EXPECT_THAT(write({.path = at("own.avi")}), HasSubstr("from 286 to 54"));
}

TEST_F(FrameSinks, RefuseNamesBeforeAnyWork)
{
    const auto message = [&](const SequenceOptions& options) {
        try {
            openFrameSink(options, input());
            return std::string("accepted");
        } catch (const UsageError& error) {
            return std::string(error.what());
        }
    };
    EXPECT_THAT(message({.path = at("out.mp4")}), HasSubstr("out.mp4: expected an output name"));
    EXPECT_THAT(message({.path = at("in.raw"), .force = true}), HasSubstr("is an input"));
    EXPECT_THAT(message({.path = at("none/out.raw")}), HasSubstr("does not exist"));
    EXPECT_THAT(message({.path = at("out.avi"), .range = "5:5"}), HasSubstr("--range 5:5"));
    writeText(at("out-0003.png"), "kept");
    EXPECT_THAT(message({.path = at("out.png")}), HasSubstr("out-0003.png exists already"));
    EXPECT_EQ(fileCount(), 2U);
}

TEST_F(FrameSinks, FrameRunKeepsTheOrderOfCountsOrTheBits)
{
    for (const SampleForm form : {SampleForm::unsignedCounts, SampleForm::signedSamples}) {
        const int zero = form == SampleForm::unsignedCounts ? -32768 : 0;
        Recording recording = input();
        cv::Mat_<short> samples;
        cv::Mat_<std::uint16_t> counts;
        std::vector<int> delivered;
        const RunTimes times = forEachFrame(
            recording, form, [&](const cv::Mat_<short>& frame) { frame.copyTo(samples); },
            [&, form = form, zero = zero](int index) {  // Clang captures no structured binding as it is
                toCounts(samples, form, counts);
                EXPECT_TRUE(sameBits(counts, sampleCounts(frameSize, 2 + index)));
                EXPECT_EQ(samples(0, 0), zero + counts(0, 0));
                delivered.push_back(index);
            });
        EXPECT_EQ(delivered, std::vector({0, 1, 2}));
        EXPECT_EQ(times.frames, frameCount);
    }
}
