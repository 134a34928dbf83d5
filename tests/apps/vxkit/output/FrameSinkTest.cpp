// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/FrameSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/videoio.hpp>

#include "apps/FrameSamples.h"
#include "apps/TemporaryFolder.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/terminal/Failure.h"

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
            appendRaw(folder_ / "in.raw", sampleCounts(frameSize, i));
    }

    // Frames 2, 3, 4 of the file.
    Recording input() const { return Recording({{at("in.raw")}, "21x13", "2:3"}); }

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

}  // namespace

TEST_F(FrameSinks, OfStillsKeepEveryBitAndAppearOnlyWhenWhole)
{
    std::size_t files = 1;  // the input
    for (const StillFormat& format :
         {StillFormat{"out.raw", {"out.raw"}, "21x13"}, StillFormat{"out.TIF", {"out.TIF"}, ""},
          StillFormat{"out.png", {"out-0002.png", "out-0003.png", "out-0004.png"}, ""}}) {
        SCOPED_TRACE(format.name);
        Recording recording = input();
        openFrameSink({.path = at(format.name)}, recording)->add(recording.counts(0));
        EXPECT_EQ(fileCount(), files);

        EXPECT_THAT(write({.path = at(format.name)}), HasSubstr(format.files.back()));
        files += format.files.size();
        EXPECT_EQ(fileCount(), files);
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
}

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
