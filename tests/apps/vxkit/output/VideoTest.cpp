// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include "apps/FrameSamples.h"
#include "apps/TemporaryFolder.h"
#include "apps/vxkit/input/FrameFile.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/ColourLimits.h"
#include "apps/vxkit/output/FrameSink.h"
#include "apps/vxkit/output/ResultFiles.h"
#include "apps/vxkit/terminal/Failure.h"

using namespace vxapp;
using testing::HasSubstr;

namespace {

// The scene of a video: noise of `spread` counts on a level that each frame has for itself.
std::vector<cv::Mat_<std::uint16_t>> noisyFrames(cv::Size size, int count, int spread, int step)
{
    cv::RNG random(7);
    std::vector<cv::Mat_<std::uint16_t>> frames;
    for (int i = 0; i < count; ++i) {
        frames.emplace_back(size);
        random.fill(frames.back(), cv::RNG::UNIFORM, i * step, i * step + spread);
    }
    return frames;
}

class Videos : public TemporaryFolder
{
protected:
    std::string write(const SequenceOptions& options, const std::vector<cv::Mat_<std::uint16_t>>& frames,
                      vxsupport::ValueRange usual = {0.0F, 0.0F}) const
    {
        std::filesystem::remove(at("in.raw"));
        for (const cv::Mat_<std::uint16_t>& frame : frames)
            appendRaw(at("in.raw"), frame);
        const cv::Size size = frames.front().size();
        const Recording input(
            {{at("in.raw")}, std::to_string(size.width) + "x" + std::to_string(size.height), ""});
        const std::unique_ptr<FrameSink> sink = openFrameSink(options, input, usual);
        for (const cv::Mat_<std::uint16_t>& frame : frames)
            sink->add(frame);
        return sink->finish();
    }

    std::string refusal(const std::string& name) const
    {
        try {
            Recording({{at(name)}, "", ""});
        } catch (const UsageError& error) {
            return error.what();
        }
        return "accepted";
    }

    std::vector<cv::Mat> pictures(const std::string& name) const
    {
        cv::VideoCapture video(at(name));
        std::vector<cv::Mat> all;
        for (cv::Mat picture; video.read(picture);)
            all.push_back(picture.clone());
        return all;
    }
};

// No file of this process grows beyond a limit, as on a full disk.
class SmallDisk
{
public:
    explicit SmallDisk(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &old_);
        const rlimit small{bytes, old_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
    }
    ~SmallDisk()
    {
        setrlimit(RLIMIT_FSIZE, &old_);
        std::signal(SIGXFSZ, handler_);
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

private:
    rlimit old_{};
    void (*handler_)(int);
};

}  // namespace

TEST_F(Videos, LosslessOnesKeepEveryBitOfEverySize)
{
    for (const cv::Size size : {cv::Size(2, 2), cv::Size(21, 13), cv::Size(401, 289), cv::Size(400, 4)})
        for (const double rate : {0.1, 1000.0}) {
            const auto frames = noisyFrames(size, 5, 65536, 0);
            write({.path = at("out.mkv"), .framesPerSecond = rate, .force = true}, frames);
            const std::unique_ptr<FrameFile> video = openImageFile(at("out.mkv"));
            ASSERT_EQ(video->frameCount(), 5) << size << rate;
            for (const int i : {4, 0, 1, 3, 2})
                EXPECT_TRUE(sameBits(video->read(i), frames[static_cast<std::size_t>(i)])) << size << i;
        }
}

TEST_F(Videos, LosslessOnesRefuseWhatTheirCodecLoses)
{
    for (const cv::Size size : {cv::Size(1, 8), cv::Size(8, 1), cv::Size(400, 3), cv::Size(2, 300)})
        EXPECT_THROW(write({.path = at("out.mkv")}, noisyFrames(size, 1, 9, 0)), UsageError) << size;
}

TEST_F(Videos, ColouredOnesDecodeToWhatWasShown)
{
    // 641x481 is odd and not enlarged; 20x10 is enlarged.
    for (const cv::Size size : {cv::Size(641, 481), cv::Size(20, 10)})
        for (const std::string name : {"out.avi", "out.mp4"}) {
            const auto frames = noisyFrames(size, 24, 400, 100);
            write({.path = at(name), .range = "0:3000", .colourMap = "gray", .force = true}, frames);
            const std::vector<cv::Mat> shown = pictures(name);
            ASSERT_EQ(shown.size(), frames.size()) << name << size;
            const int times = std::max(1, 480 / size.height);
            for (std::size_t i = 0; i < shown.size(); ++i) {
                EXPECT_EQ(shown[i].size(), (size * times + cv::Size(1, 1)) / 2 * 2);
                cv::Mat_<float> values;
                frames[i].convertTo(values, CV_32F);
                const cv::Mat expected = vxsupport::magnified(
                    vxsupport::falseColours(vxsupport::greyLevels(values, {0.0F, 3000.0F}), "gray"), times);
                const cv::Mat part = shown[i](cv::Rect({0, 0}, expected.size()));
                EXPECT_LT(cv::norm(part, expected, cv::NORM_L1) / static_cast<double>(3 * part.total()), 3.0)
                    << name << size << ", frame " << i;
            }
        }
}

TEST_F(Videos, TakeTheirColoursFromAllFramesOrFollowThem)
{
    // The level jumps out of the first frame's range.
    std::vector<cv::Mat_<std::uint16_t>> frames = noisyFrames({40, 30}, 60, 100, 0);
    for (std::size_t i = 30; i < frames.size(); ++i)
        frames[i] += 5000;
    EXPECT_THAT(write({.path = at("all.avi"), .colourMap = "gray"}, frames), HasSubstr("gray from 0 to 50"));
    EXPECT_THAT(write({.path = at("follow.avi"), .range = "follow", .colourMap = "gray"}, frames),
                HasSubstr("following the scene"));
    EXPECT_EQ(fileCount(), 3U) << "input and videos";
    for (const auto& [range, told] : {std::pair("", "from 7 to 8"), std::pair("recording", "from 0 to 50")})
        EXPECT_THAT(write({.path = at("usual.avi"), .range = range, .force = true}, frames, {7.0F, 8.0F}),
                    HasSubstr(told));
    const auto spread = [](const cv::Mat& picture) {
        cv::Scalar mean;
        cv::Scalar deviation;
        cv::meanStdDev(picture, mean, deviation);
        return deviation[0];
    };
    EXPECT_LT(cv::mean(pictures("all.avi").front())[0], 10.0);
    EXPECT_GT(cv::mean(pictures("all.avi").back())[0], 245.0);
    EXPECT_GT(spread(pictures("follow.avi").front()), 60.0);
    EXPECT_GT(spread(pictures("follow.avi").back()), 60.0);
}

TEST(ColourLimits, FollowWithoutAJumpAndWithoutCuttingAFrame)
{
    ColourLimits limits;
    std::vector<int> levels(50, 1000);
    std::fill(levels.begin() + 25, levels.end(), 3000);
    for (const int level : levels) {
        cv::Mat_<std::uint16_t> frame(40, 30, static_cast<std::uint16_t>(level));
        frame.row(0) = static_cast<std::uint16_t>(level + 100);
        limits.add(frame);
    }
    const auto following = limits.following(5);
    for (std::size_t i = 0; i < levels.size(); ++i) {
        EXPECT_LE(following[i].low, static_cast<float>(levels[i]) + 0.1F) << i;
        EXPECT_GE(following[i].high, static_cast<float>(levels[i]) + 99.9F) << i;
        if (i > 0) {
            EXPECT_LE(std::abs(following[i].low - following[i - 1].low), 2000.0F / 11.0F + 0.1F) << i;
        }
    }
    EXPECT_NEAR(following.front().high, 1100.0F, 0.1F);
    EXPECT_NEAR(following.back().low, 3000.0F, 0.1F);

    cv::Mat_<std::uint16_t> hot(100, 100, std::uint16_t{2000});
    hot.row(50) = 2500;
    hot(3, 3) = 65535;
    hot(4, 4) = 0;
    ColourLimits one;
    one.add(hot);
    EXPECT_EQ(one.ofRecording().low, 2000.0F);
    EXPECT_EQ(one.ofRecording().high, 2500.0F);
}

TEST_F(Videos, DamagedOrOfAnotherKindAreRefusedByName)
{
    const auto frames = noisyFrames({64, 48}, 6, 300, 1000);
    write({.path = at("whole.mkv")}, frames);
    const std::string whole = textOf(at("whole.mkv"));
    for (std::size_t part = 1; part < 20; ++part) {
        writeText(at("cut.mkv"), whole.substr(0, whole.size() * part / 20));
        EXPECT_THAT(refusal("cut.mkv"), HasSubstr("cut.mkv")) << part;
        std::string flipped = whole;
        flipped[whole.size() * part / 20] ^= 4;
        writeText(at("flipped.mkv"), flipped);
        EXPECT_THAT(refusal("flipped.mkv"), HasSubstr("flipped.mkv")) << part;
    }
    // Wherever a file is cut, between two frames too, none is lost without a word.
    write({.path = at("small.mkv")}, noisyFrames({2, 2}, 3, 300, 0));
    const std::string small = textOf(at("small.mkv"));
    for (std::size_t bytes = 1; bytes < small.size(); ++bytes) {
        writeText(at("cut.mkv"), small.substr(0, bytes));
        if (refusal("cut.mkv") == "accepted") {
            EXPECT_EQ(Recording({{at("cut.mkv")}, "", ""}).frameCount(), 3) << bytes;
        }
    }
    writeText(at("list.mov"), "ffconcat version 1.0\nfile whole.mkv\n");
    EXPECT_THAT(refusal("list.mov"), HasSubstr("list.mov: can't be read as a video"))
        << "a list of other files";
    for (const std::string name : {"out.avi", "out.mp4"}) {
        write({.path = at(name)}, frames);
        EXPECT_THAT(refusal(name), HasSubstr(name + ": video of yuv")) << "pixels of colours";
    }
}

TEST_F(Videos, AndStacksTakeAllResultsOfARun)
{
    std::vector<cv::Mat_<float>> results;
    for (int i = 0; i < 3; ++i) {
        noisyFrames({20, 10}, 1, 3000, 0)[0].convertTo(results.emplace_back(), CV_32F, 0.01,
                                                       10.0 * i + 0.004);
    }
    appendRaw(at("in.raw"), sampleCounts({20, 10}));
    const Recording input({{at("in.raw")}, "20x10", ""});
    const auto written = [&](const ResultOptions& options, std::size_t count) {
        ResultFiles files(options, 4, 3, Unit::degrees, input);
        for (std::size_t i = 0; i < count; ++i)
            files.write(4 + static_cast<int>(i), results[i]);
        return files.finish(input);
    };
    EXPECT_EQ(written({.path = at("none.mkv")}, 0), "");
    EXPECT_EQ(fileCount(), 1U);
    EXPECT_THAT(written({.path = at("all.tif"), .stack = true}, 3), HasSubstr("all.tif (3 frames of 20x10"));
    EXPECT_THAT(written({.path = at("two.mkv")}, 2),
                testing::AllOf(HasSubstr("count * 0.01 - 273.15"), HasSubstr("without 1 of the results")));
    Recording floats({{at("all.tif")}, "", ""});
    Recording counts({{at("two.mkv")}, "", ""});
    ASSERT_EQ(floats.frameCount(), 3);
    ASSERT_EQ(counts.frameCount(), 2);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(sameBits(floats.values(i), results[static_cast<std::size_t>(i)])) << i;
    cv::Mat_<float> degrees;
    counts.values(1).convertTo(degrees, CV_32F, 0.01, -273.15);
    EXPECT_LT(cv::norm(degrees, results[1], cv::NORM_INF), 0.0051);
    EXPECT_THROW(written({.path = at("x.pfm"), .stack = true}, 1), UsageError);
    EXPECT_THROW(written({.path = at("x.raw")}, 1), UsageError) << "does not tell its size";
    EXPECT_THROW(written({.path = at("all.tif"), .stack = true}, 1), UsageError) << "is there";
}

TEST_F(Videos, LeaveNothingOnAFullDisk)
{
    const auto frames = noisyFrames({160, 120}, 12, 3000, 0);
    for (const std::string name : {"out.mkv", "out.avi", "out.mp4"})
        for (const std::string range : {"0:3000", "recording"}) {
            write({.path = at("other.mkv"), .force = true}, frames);  // the input is there
            const Recording input({{at("in.raw")}, "160x120", ""});
            const auto before = fileCount();
            const SmallDisk disk(20000);
            EXPECT_THROW(
                {
                    const std::unique_ptr<FrameSink> sink =
                        openFrameSink({.path = at(name), .range = range}, input);
                    for (const cv::Mat_<std::uint16_t>& frame : frames)
                        sink->add(frame);
                    sink->finish();
                },
                WriteError)
                << name << range;
            EXPECT_EQ(fileCount(), before) << name;
        }
}
