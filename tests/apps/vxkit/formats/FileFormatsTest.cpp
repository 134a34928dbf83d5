// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/formats/FileFormats.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <tiffio.h>

#include <cmath>
#include <future>
#include <limits>
#include <random>

#include "apps/FrameSamples.h"
#include "apps/TemporaryFolder.h"
#include "apps/vxkit/formats/ByteOrder.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/FrameSink.h"
#include "apps/vxkit/terminal/Failure.h"

using namespace vxapp;
using testing::HasSubstr;

namespace {

const cv::Size frameSize{5, 3};

// A page of 16x16 tiles behind a small copy of it.
void writeTiles(const std::string& path, const cv::Mat_<float>& frame, const cv::Mat_<float>& copy)
{
    const std::unique_ptr<TIFF, void (*)(TIFF*)> tiff(TIFFOpen(path.c_str(), "w"), TIFFClose);
    const auto begin = [&tiff](const cv::Mat& page) {
        TIFFSetField(tiff.get(), TIFFTAG_IMAGEWIDTH, page.cols);
        TIFFSetField(tiff.get(), TIFFTAG_IMAGELENGTH, page.rows);
        TIFFSetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, 32);
        TIFFSetField(tiff.get(), TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_IEEEFP);
        TIFFSetField(tiff.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    };
    begin(copy);
    TIFFSetField(tiff.get(), TIFFTAG_SUBFILETYPE, FILETYPE_REDUCEDIMAGE);
    std::string bytes = encodeSamples(copy, SampleType::f32, std::endian::native);
    TIFFWriteEncodedStrip(tiff.get(), 0, bytes.data(), static_cast<tmsize_t>(bytes.size()));
    TIFFWriteDirectory(tiff.get());
    begin(frame);
    TIFFSetField(tiff.get(), TIFFTAG_TILEWIDTH, 16);
    TIFFSetField(tiff.get(), TIFFTAG_TILELENGTH, 16);
    TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    cv::Mat padded;
    cv::copyMakeBorder(frame, padded, 0, 16, 0, 16, cv::BORDER_CONSTANT, 9.0);
    std::uint32_t number = 0;
    for (int y = 0; y < frame.rows; y += 16)
        for (int x = 0; x < frame.cols; x += 16) {
            bytes = encodeSamples(padded({x, y, 16, 16}), SampleType::f32, std::endian::native);
            TIFFWriteEncodedTile(tiff.get(), number++, bytes.data(), static_cast<tmsize_t>(bytes.size()));
        }
}

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

TEST_F(FileFormatsTest, CsvTakesSeparatorsDecimalCommasRemarksAndSeveralFrames)
{
    const cv::Mat_<float> expected = (cv::Mat_<float>(2, 2) << 20.5F, -0.25F, 1000.0F, 7.0F);
    for (const std::string text :
         {"20.5,-0.25\n1e3,7\n", "20,5;-0,25\r\n1000;+7\r\n", "20,5\t-0,25\n1000,0\t7,0",
          " 20.5 -0.25\n1000   7\n", "\xEF\xBB\xBF# camera\n20.5; -0.25;\n# row\n1000;7;\n\n\n1;2\n3;4\n"}) {
        writeText(folder_ / "a.txt", text);
        Recording recording({{at("a.txt")}, "", ""});
        EXPECT_EQ(recording.sampleType(), SampleType::f32);
        EXPECT_TRUE(sameBits(recording.values(0), expected)) << text;
        EXPECT_TRUE(recording.frameCount() == 1 || recording.values(1)(1, 0) == 3.0F);
    }
    writeText(folder_ / "long.csv", "20.1500000000,nan\n16777217,inf\n");
    Recording precise({{at("long.csv")}, "", ""});
    EXPECT_EQ(precise.frame(0).at<double>(0, 0), 20.15);
    EXPECT_EQ(precise.frame(0).at<double>(1, 0), 16777217.0);

    const std::vector<std::pair<std::string, std::string>> bad = {
        {"1,2\n3\n", "line 2 has 1 numbers; expected 2"},
        {"1;2\n3;4,5.6\n", "'4,5.6' is no number"},
        {"Time,T\n1,2\n", "'Time' is no number"},
        {"1,2\n\n1,2\n3,4\n", "line 3 begins a frame of 2 rows"},
        {"# nothing\n", "no numbers"},
        {"1,,2\n", "'' is no number"},
    };
    for (const auto& [text, told] : bad) {
        writeText(folder_ / "bad.csv", text);
        EXPECT_THAT(refusal({{at("bad.csv")}, "", ""}), HasSubstr(told)) << text;
    }
    writeText(folder_ / "halves.csv", "1,2.5\n");
    RecordingOptions counts{{at("halves.csv")}, "", ""};
    counts.hints.samples = SampleType::u16;
    EXPECT_THAT(refusal(counts), HasSubstr("column 1: no value of u16"));
}

TEST_F(FileFormatsTest, JpegGivesTheImageInsideItsSegments)
{
    cv::Mat_<std::uint16_t> frame(60, 90);
    for (int y = 0; y < frame.rows; ++y)
        for (int x = 0; x < frame.cols; ++x)
            frame(y, x) = static_cast<std::uint16_t>(15000 + (x * 7 + y * 3) % 40);
    for (const std::string ending : {".png", ".tif"}) {
        std::vector<unsigned char> image;
        ASSERT_TRUE(cv::imencode(ending, frame, image));
        const std::string bytes = "lead" + std::string(image.begin(), image.end());
        std::string file = "\xFF\xD8";
        const auto append = [&file](const std::string& segment) {
            file += "\xFF\xE1";
            file += static_cast<char>((segment.size() + 2) >> 8U);
            file += static_cast<char>((segment.size() + 2) & 0xFFU);
            file += segment;
        };
        append(std::string("Exif\0\0II*\0\x08\0\0\0", 14));
        const std::size_t part = bytes.size() / 3 + 1;
        for (std::size_t i = 0; i < 3; ++i)
            append(std::string("RAW\0\1", 5) + static_cast<char>(i) + '\2' + bytes.substr(i * part, part));
        writeText(folder_ / "a.jpg", file + "\xFF\xDA");
        Recording recording({{at("a.jpg")}, "", ""});
        EXPECT_TRUE(sameBits(recording.counts(0), frame)) << ending;
    }
    writeText(folder_ / "plain.jpg", "\xFF\xD8\xFF\xE0");
    EXPECT_THAT(refusal({{at("plain.jpg")}, "", ""}),
                HasSubstr("plain.jpg: a JPEG picture without a raw image"));
}

TEST_F(FileFormatsTest, TiffTakesTilesAndPassesOverSmallCopies)
{
    const cv::Mat_<float> values = (cv::Mat_<float>(1, 2) << 1.5F, -2.5F);
    cv::Mat_<float> frame(20, 37);
    for (int i = 0; i < 20 * 37; ++i)
        frame(i / 37, i % 37) = static_cast<float>(i) - 0.5F;
    writeTiles(at("a.tif"), frame, values);
    Recording recording({{at("a.tif")}, "", ""});
    ASSERT_EQ(recording.frameCount(), 1);
    EXPECT_TRUE(sameBits(recording.frame(0), cv::Mat(frame)));
}

TEST_F(FileFormatsTest, PipesAreReadAndWritten)
{
    const std::string pipe = at("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    auto fed = std::async(std::launch::async, [&] {
        const Recording source({{at("in.raw")}, "5x3", ""});
        const auto sink =
            openFrameSink({.path = pipe, .format = "pgm"}, source, {frameSize, 2, SampleType::u16});
        sink->add(sampleCounts(frameSize, 1));
        sink->add(sampleCounts(frameSize, 2));
        sink->finish();
    });
    Recording recording({{pipe}, "", ""});
    fed.get();
    ASSERT_EQ(recording.frameCount(), 2);
    EXPECT_TRUE(sameBits(recording.counts(1), sampleCounts(frameSize, 2)));
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
}

TEST_F(FileFormatsTest, UnknownFilesAreToldByWhatTheyLookLike)
{
    const std::vector<std::pair<std::string, std::string>> files = {{"GIF89a", "a GIF picture"},
                                                                    {"P6 1 1 255 abc", "colours"},
                                                                    {"hello", "looks like text"},
                                                                    {"\1\2\3", "no known format"}};
    for (const auto& [start, told] : files) {
        writeText(folder_ / "a.bin", start);
        EXPECT_THAT(refusal({{at("a.bin")}, "", ""}),
                    testing::AllOf(HasSubstr(told), HasSubstr(".npy"), HasSubstr("--size WIDTHxHEIGHT")));
    }
}

TEST_F(FileFormatsTest, SurviveDamage)
{
    std::mt19937 random(11);  // NOLINT(cert-msc51-cpp): the same bytes in every run
    const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random()) % limit; };
    for (const char* name : {"npy", "csv", "tiff", "fits"}) {
        const FileFormat* format = formatNamed(name);
        if (format == nullptr)
            continue;
        const std::string sound = textOf(write(*format, SampleType::s16).front());
        for (int round = 0; round < 150; ++round) {
            std::string damaged = sound;
            for (std::size_t hit = 0; hit < 1 + below(4); ++hit)
                damaged[below(round % 2 == 0 ? std::min<std::size_t>(160, sound.size()) : sound.size())] =
                    static_cast<char>(below(256));
            damaged.resize(round % 5 == 0 ? 1 + below(damaged.size()) : damaged.size());
            writeText(folder_ / (std::string("damaged.") + name), damaged);
            const std::string told = refusal({{at(std::string("damaged.") + name)}, "", ""});
            EXPECT_TRUE(told == "accepted" || told.find("damaged.") != std::string::npos) << told;
        }
    }
}

TEST(ByteOrderTest, IsGuessedFromTheRoughnessOfTheSamples)
{
    cv::Mat_<std::uint16_t> smooth(8, 50);
    for (int y = 0; y < smooth.rows; ++y)
        for (int x = 0; x < smooth.cols; ++x)
            smooth(y, x) = static_cast<std::uint16_t>(3000 + (x * 5 + y) % 17);
    const auto read = [](const cv::Mat& frame, SampleType type) {
        return decodeSamples(encodeSamples(frame, type, std::endian::little), frame.size(), type,
                             std::endian::big);
    };
    EXPECT_EQ(guessByteOrder(smooth), OrderGuess::asRead);
    EXPECT_EQ(guessByteOrder(read(smooth, SampleType::u16)), OrderGuess::swapped);
    EXPECT_EQ(guessByteOrder((smooth - 2990) * 256), OrderGuess::unknown) << "8 bits, shifted";
    EXPECT_EQ(guessByteOrder(sampleCounts({50, 8})), OrderGuess::unknown);
    for (const int depth : {CV_16U, CV_32S, CV_32F, CV_64F}) {
        cv::Mat samples;
        smooth.convertTo(samples, depth, depth < CV_32F ? 1.0 : 0.0101);
        const cv::Mat_<std::uint16_t> parts(smooth.rows, static_cast<int>(samples.step[0] / 2),
                                            samples.ptr<std::uint16_t>());
        EXPECT_EQ(looksLikeWiderSamples(parts), depth != CV_16U) << depth;
    }
    EXPECT_FALSE(looksTurned(smooth));
    EXPECT_TRUE(looksTurned(cv::Mat(smooth).reshape(1, smooth.cols)));
    cv::Mat degrees;
    smooth.convertTo(degrees, CV_32F, 0.01, -10.0);
    EXPECT_EQ(guessByteOrder(degrees), OrderGuess::asRead);
    EXPECT_EQ(guessByteOrder(read(degrees, SampleType::f32)), OrderGuess::swapped);
}
