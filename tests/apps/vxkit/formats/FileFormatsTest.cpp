// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/formats/FileFormats.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "apps/FrameSamples.h"
#include "apps/TemporaryFolder.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/FrameSink.h"
#include "apps/vxkit/terminal/Failure.h"

using namespace vxapp;
using testing::HasSubstr;

namespace {

const cv::Size frameSize{5, 3};

// Frames with the type's least and largest values, for floats also halves and what is no number.
cv::Mat sampleFrame(SampleType type, int seed)
{
    const SampleFacts& facts = factsOf(type);
    cv::Mat_<double> values(frameSize);
    for (int y = 0; y < values.rows; ++y)
        for (int x = 0; x < values.cols; ++x)
            values(y, x) = y * 20 + x * 3 + seed;
    values(0, 1) = isFloatType(type) ? -0.1F : facts.low;
    values(2, 4) = isFloatType(type) ? 1e30F : facts.high;
    if (type == SampleType::f32)
        values(1, 0) = std::nextafter(20.15F, 21.0F);
    if (type == SampleType::f64)
        values(1, 0) = 20.15;
    if (isFloatType(type))
        values(1, 1) = std::numeric_limits<double>::quiet_NaN();
    cv::Mat frame;
    values.convertTo(frame, facts.storage);
    return frame;
}

class FileFormatsTest : public TemporaryFolder
{
protected:
    void SetUp() override
    {
        TemporaryFolder::SetUp();
        for (int i = 0; i < 3; ++i)
            appendRaw(folder_ / "in.raw", sampleCounts(frameSize, i));
    }

    // Writes three frames and names the files.
    std::vector<std::string> write(const FileFormat& format, SampleType type) const
    {
        const Recording source({{at("in.raw")}, "5x3", ""});
        const std::string name = "out-" + std::string(factsOf(type).name);
        SequenceOptions options{.path = at(name + std::string(format.endings.front()))};
        options.order = std::endian::big;
        const auto sink = openFrameSink(options, source, {frameSize, 3, type});
        for (int i = 0; i < 3; ++i)
            sink->add(sampleFrame(type, i));
        sink->finish();
        if (!format.oneFilePerFrame)
            return {options.path};
        std::vector<std::string> names;
        for (const char* number : {"-0000", "-0001", "-0002"})
            names.push_back(at(name + number + std::string(format.endings.front())));
        return names;
    }
};

std::string refusal(const RecordingOptions& options)
{
    try {
        Recording recording(options);
        for (int i = 0; i < recording.frameCount(); ++i)
            recording.frame(i);
        return "accepted";
    } catch (const UsageError& error) {
        return error.what();
    }
}

}  // namespace

TEST_F(FileFormatsTest, KeepEveryValueOfEveryTypeThatTheyTake)
{
    for (const FileFormat& format : fileFormats())
        for (const SampleFacts& facts : sampleTypes()) {
            const bool isRaw = format.name == "raw";
            const bool isForTheEye = format.name == "mp4" || format.name == "avi";
            if (isForTheEye || format.openSink == nullptr || !format.takes(facts.type) ||
                (format.open == nullptr && !isRaw))
                continue;
            SCOPED_TRACE(std::string(format.name) + " " + std::string(facts.name));
            RecordingOptions options{write(format, facts.type), isRaw ? "5x3" : "", ""};
            options.takesBytes = true;
            if (isRaw)
                options.hints = {.order = std::endian::big, .samples = facts.type};
            Recording written(options);
            EXPECT_EQ(written.frameCount(), 3);
            EXPECT_TRUE(format.name == "csv" || written.sampleType() == facts.type);
            for (const int i : {2, 0}) {
                cv::Mat frame;
                written.frame(i).convertTo(frame, facts.storage);
                EXPECT_TRUE(sameBits(frame, sampleFrame(facts.type, i))) << frame;
            }
        }
}

TEST_F(FileFormatsTest, RefuseTypesThatTheyDontTake)
{
    const Recording source({{at("in.raw")}, "5x3", ""});
    try {
        openFrameSink({.path = at("out.png")}, source, {frameSize, 3, SampleType::s16});
        FAIL();
    } catch (const UsageError& error) {
        EXPECT_THAT(error.what(), HasSubstr("don't hold signed 16-bit counts"));
        EXPECT_THAT(error.what(), HasSubstr(".npy"));
    }
}

TEST_F(FileFormatsTest, NpyTakesFortranOrderBothByteOrdersAndLaterVersions)
{
    const auto write = [&](const std::string& kind, const std::string& order, const std::string& shape,
                           const std::string& samples) {
        const std::string header =
            "{'descr': '" + kind + "', 'fortran_order': " + order + ", 'shape': " + shape + ", }\n";
        writeText(folder_ / "a.npy", std::string("\x93NUMPY\x02\0", 8) + static_cast<char>(header.size()) +
                                         std::string(3, '\0') + header + samples);
    };
    write(">i2", "True", "(2, 1, 3)", std::string("\0\1\xFF\xFE\0\3\0\4\0\5\0\6", 12));
    Recording recording({{at("a.npy")}, "", ""});
    EXPECT_EQ(recording.sampleType(), SampleType::s16);
    EXPECT_TRUE(sameBits(recording.frame(1), cv::Mat((cv::Mat_<short>(1, 3) << -2, 4, 6))));
    write("<u2", "False", "(1, 2)", "abc");
    EXPECT_THAT(refusal({{at("a.npy")}, "", ""}), HasSubstr("cut off"));
    write("<i8", "False", "(1, 1)", "abcdefgh");
    EXPECT_THAT(refusal({{at("a.npy")}, "", ""}), HasSubstr("<i8; expected u1"));
    write("<u2", "False", "(1, 1, 1, 1)", "ab");
    EXPECT_THAT(refusal({{at("a.npy")}, "", ""}), HasSubstr("(1, 1, 1, 1); expected (rows, columns)"));
}

TEST_F(FileFormatsTest, RawTakesHeadersTypesAndByteOrders)
{
    writeText(folder_ / "a.raw", std::string("head!\1\2x\0\0\0\7y\xFF\xFF\xFF\xFE", 17));
    RecordingOptions options{{at("a.raw")}, "1x1", ""};
    options.hints = {.order = std::endian::big, .samples = SampleType::s32};
    options.header = 7;
    options.frameHeader = 1;
    EXPECT_EQ(Recording(options).frame(1).at<int>(0, 0), -2);
}

TEST_F(FileFormatsTest, PgmTakesTextCommentsAndSeveralImages)
{
    writeText(folder_ / "a.pgm",
              std::string("P2 # plain\n2 1\n1000\n7 # seven\n1000\nP5 2 1 999\n\0\5\3\xE7\n", 51));
    Recording recording({{at("a.pgm")}, "", ""});
    EXPECT_TRUE(
        sameBits(recording.counts(0), cv::Mat_<std::uint16_t>((cv::Mat_<std::uint16_t>(1, 2) << 7, 1000))));
    EXPECT_TRUE(
        sameBits(recording.counts(1), cv::Mat_<std::uint16_t>((cv::Mat_<std::uint16_t>(1, 2) << 5, 999))));
    writeText(folder_ / "b.pgm", "P2 2 1 1000 7 1001");
    EXPECT_THAT(refusal({{at("b.pgm")}, "", ""}), HasSubstr("column 1"));
}
