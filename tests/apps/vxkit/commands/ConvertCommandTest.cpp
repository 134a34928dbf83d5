// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/ConvertCommand.h"

#include "apps/FrameSamples.h"
#include "apps/ProgramRun.h"
#include "apps/vxkit/input/Recording.h"

using namespace vxapp;
using testing::HasSubstr;

namespace {

class ConvertCommand : public ProgramFolder
{
protected:
    void SetUp() override
    {
        ProgramFolder::SetUp();
        for (int i = 0; i < 3; ++i)
            appendRaw(folder_ / "in.raw", sampleCounts({6, 4}, i));
        writePfmStream(at("float.pfm"), {(cv::Mat_<float>(1, 4) << 1.5F, -1.0F, 70000.0F, NAN)});
    }

    Recording open(const std::string& name, const std::string& size = "") const
    {
        RecordingOptions options{{at(name)}, size, ""};
        options.takesBytes = true;
        return Recording(options);
    }
};

}  // namespace

TEST_F(ConvertCommand, KeepsValuesThroughAChainOfFormats)
{
    ASSERT_EQ(run("convert in.raw --size 6x4 -o a.npy").status, 0);
    ASSERT_EQ(run("convert a.npy -o b.tif").status, 0);
    ASSERT_EQ(run("convert b.tif -o c.csv").status, 0);
    ASSERT_EQ(run("convert c.csv --type u16 -o d.pgm").status, 0);
    ASSERT_EQ(run("convert d-0000.pgm d-0001.pgm d-0002.pgm -o e.raw --output-endian big").status, 0);
    const ProgramRun diff = run("diff in.raw e.raw --size 6x4");
    EXPECT_EQ(diff.status, 1) << "the bytes are swapped";
    ASSERT_EQ(run("convert e.raw --size 6x4 --endian big -o f.npy").status, 0);
    const ProgramRun same = run("diff in.raw f.npy --size 6x4");
    EXPECT_EQ(same.status, 0);
    EXPECT_EQ(same.out, "equal: 3 frames of 6x4 (u16)\n");
}

TEST_F(ConvertCommand, CropsFramesAndRegionsAveragesAndScales)
{
    ASSERT_EQ(run("convert in.raw --size 6x4 --frames 1:2 --region 1,1,5,3 --average 2 --scale 2 --offset -1 "
                  "-o a.npy")
                  .status,
              0);
    Recording result = open("a.npy");
    EXPECT_EQ(result.sampleType(), SampleType::f32);
    ASSERT_EQ(result.frameCount(), 2);
    ASSERT_EQ(result.frameSize(), cv::Size(2, 1));
    const cv::Mat_<std::uint16_t> second = sampleCounts({6, 4}, 2);
    const double mean = cv::sum(second({3, 1, 2, 2}))[0] / 4.0;
    EXPECT_EQ(result.values(1)(0, 1), static_cast<float>(mean * 2.0 - 1.0));
}

TEST_F(ConvertCommand, RefusesValuesThatDontFitUnlessAskedForTheNearest)
{
    expectRefusals(
        "convert float.pfm -o a.npy",
        {{"--type u16", "1 values are no numbers"},
         {"--type s16 --clip --round", "no numbers"},
         {"--type u16 --region 0,0,3,1", "2 values are beyond u16, the first in row 0, column 0: 1.5"},
         {"--type s32 --region 0,0,3,1", "1 values lie between two of s32"}});
    ASSERT_EQ(run("convert float.pfm -o a.npy --type u16 --region 0,0,3,1 --clip --round").status, 0);
    const cv::Mat_<std::uint16_t> expected = (cv::Mat_<std::uint16_t>(1, 3) << 2, 0, 65535);
    EXPECT_TRUE(sameBits(open("a.npy").counts(0), expected));
}

TEST_F(ConvertCommand, DoublesAStreamForTheStreamProcessor)
{
    cv::Mat low;
    sampleCounts({6, 4}).convertTo(low, CV_16U, 0.25);
    appendRaw(folder_ / "low.raw", low);
    ASSERT_EQ(run("convert low.raw --size 6x4 --double -o twice.raw").status, 0);
    EXPECT_EQ(textOf(folder_ / "twice.raw"), textOf(folder_ / "low.raw") + textOf(folder_ / "low.raw"));
    appendRaw(folder_ / "high.raw", cv::Mat_<std::uint16_t>(4, 6, 40000));
    expectRefusals("convert high.raw --size 6x4 --double",
                   {{"-o a.raw", "are beyond s16"},
                    {"-o a.npy", "takes headerless little-endian"},
                    {"-o a.raw --output-endian big", "takes headerless little-endian"}});
    ASSERT_EQ(run("convert high.raw --size 6x4 --double -o a.raw --offset -32768 --type s16").status, 0);
}

TEST_F(ConvertCommand, WritesToTheStandardOutputNothingElse)
{
    const ProgramRun written = run("convert in.raw --size 6x4 --to raw -o -");
    EXPECT_EQ(written.status, 0);
    EXPECT_EQ(written.out, textOf(folder_ / "in.raw"));
    const ProgramRun quiet = run("--quiet convert in.raw --size 6x4 --to raw -o -");
    EXPECT_EQ(quiet.out, written.out);
    expectRefusals("convert in.raw --size 6x4",
                   {{"-o -", "--to FORMAT"}, {"--to png -o -", "a PNG file holds one frame"}});
}

TEST_F(ConvertCommand, RefusesBadOptionsInOneLine)
{
    expectRefusals("convert in.raw --size 6x4", {{"-o a.xyz", "expected an output name"},
                                                 {"-o in.raw --force", "is an input"},
                                                 {"-o a.png --type f32", "don't hold 32-bit floats"},
                                                 {"-o a.npy --average 5", "larger than the frames"},
                                                 {"-o a.npy --region 3,0,4,4", "inside the 6x4"},
                                                 {"-o a.npy --region 1,1,2", "X,Y,WIDTH,HEIGHT"},
                                                 {"-o a.npy --region 1,1,2,2,", "X,Y,WIDTH,HEIGHT"},
                                                 {"-o a.npy --header 7", "behind the header"},
                                                 {"-o a.npy --header 700", "more than the --header"},
                                                 {"-o a.npy --dtype u64", "u64"}});
}

TEST_F(ConvertCommand, DiffNamesTheFirstDifferenceAndCounts)
{
    ASSERT_EQ(run("convert in.raw --size 6x4 --type f32 -o a.npy").status, 0);
    std::string bytes = textOf(folder_ / "in.raw");
    bytes[2 * (24 + 6 + 2)] = static_cast<char>(bytes[2 * (24 + 6 + 2)] + 2);
    bytes[2 * (48 + 1)] = static_cast<char>(bytes[2 * (48 + 1)] + 1);
    writeText(folder_ / "b.raw", bytes);
    const int count = sampleCounts({6, 4}, 1)(1, 2);
    const ProgramRun differs = run("diff a.npy b.raw --size 6x4");
    EXPECT_EQ(differs.status, 1);
    EXPECT_EQ(differs.out, "first difference: frame 1, row 1, column 2: " + std::to_string(count) + " and " +
                               std::to_string(count + 2) +
                               "\n2 of 72 values differ, in 2 frames; largest difference 2\n");
    EXPECT_THAT(run("diff a.npy b.raw --size 6x4 --tolerance 1").out, HasSubstr("1 of 72"));
    EXPECT_EQ(run("diff a.npy b.raw --size 6x4 --tolerance 2").status, 0);
    EXPECT_THAT(run("diff a.npy b.raw --size 6x4 --json").out, HasSubstr("\"values_different\": 2"));
    EXPECT_EQ(run("diff float.pfm float.pfm").status, 0) << "no number equals no number";
    EXPECT_THAT(run("diff a.npy b.raw --size 6x2").out, HasSubstr("has 6 frames of 6x2"));
    EXPECT_EQ(run("diff a.npy b.raw --size 6x2").status, 1);
    EXPECT_EQ(run("diff a.npy none.npy").status, 2);
    EXPECT_EQ(run("diff a.npy").status, 2);
}
