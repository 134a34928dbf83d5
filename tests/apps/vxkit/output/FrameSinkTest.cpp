// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/FrameSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/FrameSamples.h"
#include "apps/TemporaryFolder.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/terminal/Failure.h"

using namespace vxapp;
using testing::HasSubstr;

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

    std::string write(const SequenceOptions& options) const
    {
        Recording recording = input();
        const std::unique_ptr<FrameSink> sink = openFrameSink(options, recording);
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
        files += format.files.size() + (format.files.size() > 1 ? 1 : 0);  // and the list of a sequence
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
    EXPECT_THAT(message({.path = at("out.xyz")}), HasSubstr("out.xyz: expected an output name"));
    EXPECT_THAT(message({.path = at("in.raw"), .force = true}), HasSubstr("is an input"));
    EXPECT_THAT(message({.path = at("none/out.raw")}), HasSubstr("does not exist"));
    EXPECT_THAT(message({.path = at("out.raw"), .range = "5:5"}), HasSubstr("--range 5:5"));
    writeText(at("out-0003.png"), "kept");
    EXPECT_THAT(message({.path = at("out.png")}), HasSubstr("out-0003.png exists already"));
    EXPECT_EQ(fileCount(), 2U);
}
