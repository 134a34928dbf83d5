// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/input/Recording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <random>
#include <stdexcept>

#include "apps/FrameSamples.h"
#include "apps/TemporaryFolder.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/QuietStream.h"
#include "doubles/AllocationCounter.h"

using namespace vxapp;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

const cv::Size frameSize{7, 5};

class RecordingTest : public TemporaryFolder
{
protected:
    Recording open(const std::vector<std::string>& names, const std::string& size = "",
                   const std::string& frames = "") const
    {
        std::vector<std::string> inputs;
        for (const std::string& name : names)
            inputs.push_back(at(name));
        return Recording({inputs, size, frames});
    }

    std::string refusal(const std::vector<std::string>& names, const std::string& size = "",
                        const std::string& frames = "") const
    {
        testing::internal::CaptureStderr();
        std::string message = "accepted";
        try {
            open(names, size, frames);
        } catch (const UsageError& error) {
            message = error.what();
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "a library's remark came through";
        EXPECT_THAT(message, Not(HasSubstr("\n")));
        return message;
    }

    void writeImage(const std::string& name, const cv::Mat& image) const
    {
        ASSERT_TRUE(cv::imwrite(at(name), image));
    }

    // Files of equal content in every format of counts: three frames in two files.
    void writeCounts(const std::string& format)
    {
        const auto frame = [](int i) { return sampleCounts(frameSize, i); };
        if (format == "raw") {
            appendRaw(at("a.raw"), frame(0));
            appendRaw(at("a.raw"), frame(1));
            appendRaw(at("b.raw"), frame(2));
        } else if (format == "tif") {
            ASSERT_TRUE(cv::imwritemulti(at("a.tif"), std::vector<cv::Mat>{frame(0), frame(1)}));
            writeImage("b.tif", frame(2));
        } else {
            for (int i = 0; i < 3; ++i)
                writeImage(std::string(1, static_cast<char>('a' + i)) + "." + format, frame(i));
        }
    }
};

}  // namespace

TEST_F(RecordingTest, ReadsTheSameCountsFromEveryFormat)
{
    const std::vector<std::pair<std::string, std::vector<std::string>>> formats = {
        {"raw", {"a.raw", "b.raw"}},
        {"tif", {"a.tif", "b.tif"}},
        {"png", {"a.png", "b.png", "c.png"}},
        {"pgm", {"a.pgm", "b.pgm", "c.pgm"}},
    };
    for (const auto& [format, names] : formats) {
        SCOPED_TRACE(format);
        writeCounts(format);
        Recording recording = open(names, format == "raw" ? "7x5" : "");
        ASSERT_EQ(recording.frameCount(), 3);
        EXPECT_EQ(recording.frameSize(), frameSize);
        EXPECT_FALSE(recording.holdsFloats());
        for (const int i : {2, 0, 1}) {
            EXPECT_TRUE(sameBits(recording.counts(i), sampleCounts(frameSize, i)));
            EXPECT_EQ(recording.values(i)(4, 6), static_cast<float>(sampleCounts(frameSize, i)(4, 6)));
        }
    }
}

TEST_F(RecordingTest, ReadsSmallerDepthsOtherByteOrdersAndAnyBlanksInAHeader)
{
    writeText(folder_ / "a.pgm", std::string("P5\n2 1\n16383\n\x10\x20\x3f\xff", 17));
    const cv::Mat_<std::uint16_t> counts = (cv::Mat_<std::uint16_t>(1, 2) << 0x1020, 0x3FFF);
    EXPECT_TRUE(sameBits(open({"a.pgm"}).counts(0), counts));
    writeText(folder_ / "a.pfm", std::string("Pf 1\t2\n 1.0\n\x42\x00\x00\x00\xBF\x80\x00\x00", 20));
    const cv::Mat_<float> values = (cv::Mat_<float>(2, 1) << -1.0F, 32.0F);
    EXPECT_TRUE(sameBits(open({"a.pfm"}).values(0), values));
}

TEST_F(RecordingTest, KeepsFloatsBitByBit)
{
    cv::Mat_<float> frame(2, 4);
    const std::array<std::uint32_t, 8> bits = {0x81,       0x82,       0x84,       0x85,
                                               0x7FC12345, 0xFF800000, 0x80000000, 0x42F6E979};
    std::transform(bits.begin(), bits.end(), frame.begin(),
                   [](auto word) { return std::bit_cast<float>(word); });
    writePfmStream(at("a.pfm"), {frame, cv::Mat_<float>(2, 4, 1.0F), frame});
    writeImage("a.tif", frame);

    Recording pfm = open({"a.pfm"});
    ASSERT_EQ(pfm.frameCount(), 3);
    EXPECT_TRUE(pfm.holdsFloats());
    EXPECT_TRUE(sameBits(pfm.values(2), frame));
    EXPECT_TRUE(sameBits(pfm.values(0), frame));
    EXPECT_TRUE(sameBits(open({"a.tif"}).values(0), frame));
}

TEST_F(RecordingTest, RoundsFloatsToCountsAndRefusesWhatIsNone)
{
    const cv::Mat_<float> good = (cv::Mat_<float>(1, 3) << 0.4F, 1.5F, 65535.4F);
    const cv::Mat_<float> bad = (cv::Mat_<float>(1, 3) << 0.0F, -0.6F, 1.0F);
    writePfmStream(at("a.pfm"), {good, bad});
    Recording recording = open({"a.pfm"});
    const cv::Mat_<std::uint16_t> rounded = (cv::Mat_<std::uint16_t>(1, 3) << 0, 2, 65535);
    EXPECT_TRUE(sameBits(recording.counts(0), rounded));
    EXPECT_THROW(recording.counts(1), UsageError);
}

TEST_F(RecordingTest, TakesTheFramesThatAreAskedFor)
{
    writeCounts("tif");
    Recording recording = open({"a.tif", "b.tif"}, "", "1:2");
    ASSERT_EQ(recording.frameCount(), 2);
    EXPECT_EQ(recording.firstNumber(), 1);
    EXPECT_TRUE(sameBits(recording.counts(1), sampleCounts(frameSize, 2)));
    EXPECT_EQ(recording.nameOf(0), at("a.tif") + ", frame 1");
    EXPECT_EQ(recording.nameOf(1), at("b.tif"));
}

TEST_F(RecordingTest, ReadsPagesBeyondOneBlock)
{
    std::vector<cv::Mat> pages;
    pages.reserve(40);
    for (int i = 0; i < 40; ++i)
        pages.emplace_back(sampleCounts(frameSize, i));
    ASSERT_TRUE(cv::imwritemulti(at("long.tif"), pages));
    const auto file = openImageFile(at("long.tif"));
    ASSERT_EQ(file->frameCount(), 40);
    for (const int i : {39, 0, 31, 32})
        EXPECT_TRUE(sameBits(file->read(i), pages[static_cast<std::size_t>(i)])) << i;
}

TEST_F(RecordingTest, RefusesBadInputInOneLineThatNamesIt)
{
    writeCounts("png");
    writeCounts("raw");
    writeCounts("tif");
    writeImage("small.png", sampleCounts({6, 5}));
    writeImage("eight.png", cv::Mat(5, 7, CV_8U, cv::Scalar(9)));
    writeImage("colour.png", cv::Mat(5, 7, CV_16UC3, cv::Scalar(9)));
    writePfmStream(at("float.pfm"), {cv::Mat_<float>(5, 7, 1.0F)});
    writePfmStream(at("mixed.pfm"), {cv::Mat_<float>(5, 7, 1.0F), cv::Mat_<float>(5, 6, 1.0F)});
    writeText(folder_ / "colour.pfm", "PF\n1 1\n-1.0\nxxxxxxxxxxxx");
    writeText(folder_ / "header.pfm", "Pf\n7 x\n-1.0\n");
    writeText(folder_ / "text.txt", "hello, world");
    writeText(folder_ / "empty.png", "");
    for (const std::string name : {"a.png", "a.tif", "float.pfm"})
        writeText(folder_ / ("cut-" + name),
                  textOf(folder_ / name).substr(0, textOf(folder_ / name).size() - 30));

    struct Case
    {
        std::vector<std::string> inputs;
        std::vector<std::string> told;
        std::string size = {};
    };
    const std::vector<Case> cases = {
        {{"none.png"}, {"none.png", "no such file"}},
        {{"."}, {"not a file"}},
        {{"empty.png"}, {"empty.png", "empty"}},
        {{"text.txt"}, {"text.txt", "--size WIDTHxHEIGHT"}},
        {{"a.raw"}, {"a.raw", "--size WIDTHxHEIGHT"}},
        {{"a.png", "small.png"}, {"small.png", "6x5", "7x5"}},
        {{"a.png", "float.pfm"}, {"float.pfm", "floats", "counts"}},
        {{"eight.png"}, {"eight.png", "8-bit", "expected one channel of unsigned 16-bit"}},
        {{"colour.png"}, {"colour.png", "3 channels", "expected one channel"}},
        {{"colour.pfm"}, {"colour.pfm", "3 channels"}},
        {{"mixed.pfm"}, {"mixed.pfm", "frame 1", "another size"}},
        {{"header.pfm"}, {"header.pfm", "PFM header"}},
        {{"cut-a.png"}, {"cut-a.png", "complete"}},
        {{"cut-a.tif"}, {"cut-a.tif", "complete"}},
        {{"cut-float.pfm"}, {"cut-float.pfm", "cut off"}},
        {{"a.raw"}, {"a.raw", "7x4", "56 bytes"}, "7x4"},
        {{"a.png"}, {"a.png", "headerless recordings only"}, "7x5"},
    };
    for (const Case& c : cases)
        for (const std::string& part : c.told)
            EXPECT_THAT(refusal(c.inputs, c.size), HasSubstr(part));
    for (const std::string size : {"7x", "7x5x1", "-7x5", "0x5", "99999999999x5"})
        EXPECT_THAT(refusal({"a.raw"}, size), AllOf(HasSubstr("--size " + size), HasSubstr("WIDTHxHEIGHT")));
    for (const std::string frames : {"2:1", "0:2147483648", "-1:1", "0:0", "all"})
        EXPECT_THAT(refusal({"a.raw"}, "7x5", frames), HasSubstr("--frames " + frames));
    for (const std::string frames : {"1:2", "1:2147483647"})
        EXPECT_THAT(refusal({"a.raw"}, "7x5", frames),
                    AllOf(HasSubstr("--frames " + frames), HasSubstr("2 frames")));
    EXPECT_THAT(refusal({"a.raw"}, "7x5", "all"), HasSubstr("FIRST:COUNT"));
}

TEST_F(RecordingTest, NoticesThatAFileShrankAfterwards)
{
    writeCounts("raw");
    writePfmStream(at("a.pfm"), {cv::Mat_<float>(5, 7, 1.0F)});
    Recording raw = open({"a.raw"}, "7x5");
    Recording pfm = open({"a.pfm"});
    std::filesystem::resize_file(at("a.raw"), 100);
    std::filesystem::resize_file(at("a.pfm"), 100);
    EXPECT_THROW(raw.counts(1), UsageError);
    EXPECT_THROW(pfm.values(0), UsageError);
}

TEST_F(RecordingTest, TakesNoMemoryForFramesThatAreOnlyCounted)
{
    writeText(folder_ / "long.raw", "ab");
    std::filesystem::resize_file(at("long.raw"), std::uint64_t{3} << 30);  // takes no room on the disk
    constexpr int frames = 3 << 29;
    const vxtest::AllocationCounter all;
    EXPECT_EQ(open({"long.raw"}, "1x1", "5:2").frameCount(), 2);
    EXPECT_LT(all.count(), 1000U);
    const vxtest::AllocationCounter large(std::size_t{1} << 20);
    Recording recording = open({"long.raw"}, "1x1");
    ASSERT_EQ(recording.frameCount(), frames);
    EXPECT_EQ(recording.counts(0)(0, 0), 'a' + 256 * 'b');
    EXPECT_EQ(recording.counts(frames - 1)(0, 0), 0);
    EXPECT_EQ(recording.nameOf(frames - 1), at("long.raw") + ", frame " + std::to_string(frames - 1));
    EXPECT_THROW(recording.frame(frames), std::out_of_range);
    EXPECT_EQ(large.count(), 0U);
    EXPECT_THAT(refusal({"long.raw", "long.raw"}, "1x1"),
                AllOf(HasSubstr("long.raw"), HasSubstr(std::to_string(frames) + " frames behind")));
}

TEST_F(RecordingTest, SurvivesDamagedAndRandomFiles)
{
    writeCounts("png");
    writeCounts("tif");
    writeCounts("pgm");
    writePfmStream(at("a.pfm"), {cv::Mat_<float>(5, 7, 1.0F), cv::Mat_<float>(5, 7, 2.0F)});

    std::mt19937 random(7);  // NOLINT(cert-msc51-cpp): the same bytes in every run
    const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random()) % limit; };
    for (const std::string name : {"a.png", "a.tif", "a.pgm", "a.pfm"}) {
        const std::string sound = textOf(folder_ / name);
        ASSERT_FALSE(sound.empty());
        for (int round = 0; round < 150; ++round) {
            std::string damaged = sound;
            const std::size_t hits = 1 + below(6);
            for (std::size_t hit = 0; hit < hits; ++hit)
                damaged[below(round % 2 == 0 ? 40 : damaged.size())] = static_cast<char>(below(256));
            if (round % 5 == 0)
                damaged.resize(1 + below(damaged.size()));
            const std::string path = "damaged" + name.substr(1);
            writeText(folder_ / path, damaged);
            const QuietStandardError quiet;
            try {
                Recording recording = open({path}, round % 7 == 0 ? "3x2" : "");
                for (int i = 0; i < recording.frameCount(); ++i)
                    EXPECT_EQ(recording.values(i).size(), recording.frameSize());
            } catch (const UsageError& error) {
                EXPECT_THAT(error.what(), HasSubstr("damaged"));
            }
        }
    }
}
