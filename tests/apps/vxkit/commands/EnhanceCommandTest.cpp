// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <sstream>

#include "apps/FrameSamples.h"
#include "apps/ProgramRun.h"
#include "apps/halvor/StreamProcessor.h"
#include "apps/vxkit/input/FrameFile.h"
#include "enhancement/MARLOImageEnhancer.h"
#include "support/Counts.h"
#include "support/Stream.h"

using namespace testing;
using halvor::vx::MARLOImageEnhancer;

namespace {

const cv::Size frameSize{132, 40};
constexpr int frameCount = 6;

const char* const settingsText =
    "[Main_Window]\nfile=elsewhere.raw\nsensor=@Size(132 40)\n[TNR_Parameter]\nmode=1\nalpha=70\n"
    "[SPR_Parameter]\nspr_threshold=30\n[SNR_Parameter]\nmode=0\n[Histogram_Parameter]\nmode=3\n"
    "gamma=-2\nlimit=40\n[Peaking_Parameter]\nenable=1\ncoring=9\n";

// Of the file above; what it doesn't name is as in the stream processor.
const std::string sameAsFile =
    "--tnr-global 100 --spr-threshold 30 --no-snr --hist-gamma -2 --hist-limit 40 --peak-coring 9 "
    "--spr-max-frame 18 --tnr-alpha ";

class EnhanceCommand : public ProgramFolder
{
protected:
    void SetUp() override
    {
        TemporaryFolder::SetUp();
        vxsupport::StreamSettings settings;
        settings.scene.frame = frameSize;
        settings.frameCount = frameCount;
        const vxsupport::StreamSimulator stream(settings);
        for (int i = 0; i < frameCount; ++i) {
            // On both sides of count 32768, where two's complement samples change their sign.
            frames_.push_back(vxsupport::toCounts(stream.frame(i), {0.01, 18.0 - 327.68}));
            appendRaw(at("in.raw"), frames_.back());
        }
        writeText(at("camera.ini"), settingsText);
    }

    // The bytes that the command writes.
    std::string enhanced(const std::string& options) const
    {
        const ProgramRun result =
            run("enhance in.raw --size 132x40 -o out.raw --force --bad-pixels off " + options +
                (options.find("--look") == options.npos ? " --look device" : ""));
        EXPECT_EQ(result.status, 0) << result.error;
        EXPECT_THAT(result.out, HasSubstr("frames in"));
        EXPECT_THAT(result.out, Not(HasSubstr("pgain")));
        return textOf(at("out.raw"));
    }

    // The bytes that the chain makes of words, each of which is changed by the bits ahead of and behind it.
    std::string direct(MARLOImageEnhancer& chain, int flippedBefore, int flippedBehind) const
    {
        internal::CaptureStdout();
        cv::Mat_<short> image(frameSize);
        std::string bytes;
        for (const cv::Mat_<std::uint16_t>& frame : frames_) {
            std::transform(frame.begin(), frame.end(), image.begin(),
                           [&](std::uint16_t word) { return static_cast<short>(word ^ flippedBefore); });
            chain.processFrame(image, image);
            for (const short pixel : image)
                for (const int shift : {0, 8})
                    bytes.push_back(static_cast<char>(((pixel ^ flippedBehind) >> shift) & 0xFF));
        }
        internal::GetCapturedStdout();
        return bytes;
    }

    std::vector<cv::Mat_<std::uint16_t>> frames_;
};

}  // namespace

TEST_F(EnhanceCommand, WritesWhatTheChainMakes)
{
    MARLOImageEnhancer chain(frameSize.width, frameSize.height);
    EXPECT_TRUE(enhanced("") == direct(chain, 0x8000, 0)) << "counts";
    MARLOImageEnhancer signedChain(frameSize.width, frameSize.height);
    EXPECT_TRUE(enhanced("--signed") == direct(signedChain, 0, 0)) << "samples";
    MARLOImageEnhancer unequalised(frameSize.width, frameSize.height);
    unequalised.histSetMode(0);
    EXPECT_TRUE(enhanced("--no-hist") == direct(unequalised, 0x8000, 0x8000)) << "back in counts";
}

TEST_F(EnhanceCommand, HandsEverySettingOn)
{
    halvor::vx::CamInternalSettings record;
    record.tnrAlpha = 50;
    record.tnrGlobal = 100;
    record.tnrCGain = 14;
    record.sprThreshold = 300;
    record.sprMaxFrame = 50;
    record.sprMaxLine = 60;
    record.snrGain = 11;
    record.histMode = 2;
    record.histGain = 9;
    record.histGainLow = 70;
    record.histGainHigh = 5000;
    record.histLimit = 33;
    record.peakGain = 21;
    record.peakCoring = 4;
    record.peakLimit = 100;
    record.peakReductThres = 2;
    record.peakReductGain = 44;
    record.sprDelay = 2;
    const std::vector<std::string> options = {
        "--tnr-alpha=50",     "--tnr-global=100",  "--tnr-cgain=14",        "--spr-threshold=300",
        "--spr-max-frame=50", "--spr-max-line=60", "--spr-delay=2",         "--snr-gain=11",
        "--hist-gain=9",      "--hist-gainlow=70", "--hist-gainhigh=5000",  "--hist-limit=33",
        "--hist-speed=2",     "--hist-gamma=7",    "--hist-offset=-900",    "--peak-gain=21",
        "--peak-coring=4",    "--peak-limit=100",  "--peak-reduct-thres=2", "--peak-reduct-gain=44"};
    for (const auto& [mode, name] : {std::pair{2, "bounded"}, {3, "3"}}) {
        record.histMode = mode;
        MARLOImageEnhancer chain(frameSize.width, frameSize.height, &record);
        chain.histSetSpeed(2);
        chain.histSetGamma(7);
        chain.histSetOffset(-900);
        chain.sprSetBypass(0);  // the delay takes effect with a rebuilt block
        chain.sprSetBypass(2);
        const std::string expected = direct(chain, 0x8000, 0);
        const std::string modeOption = std::string("--hist-mode ") + name;
        const auto enhancedWithout = [&](const std::string& left) {
            std::string line = modeOption;
            for (const std::string& option : options)
                line += option == left ? "" : " " + option;
            return enhanced(line);
        };
        EXPECT_TRUE(enhancedWithout("") == expected) << name;
        for (const std::string& option : options) {
            const bool isOfOther = option.find(mode == 2 ? "hist-limit" : "hist-gain") != std::string::npos;
            EXPECT_EQ(enhancedWithout(option) == expected, isOfOther) << option << ", mode " << name;
        }
    }
}

TEST_F(EnhanceCommand, SettingsFileEqualsItsOptionsWhichWinOverIt)
{
    const std::string byFile = enhanced("--settings camera.ini");
    EXPECT_TRUE(byFile == enhanced(sameAsFile + "70"));
    const std::string byOptions = enhanced(sameAsFile + "20");
    EXPECT_TRUE(byFile != byOptions);
    EXPECT_TRUE(enhanced("--settings camera.ini --tnr-alpha 20") == byOptions);
    EXPECT_TRUE(enhanced("--settings camera.ini --snr") != byFile);
}

TEST_F(EnhanceCommand, AgreesWithTheStreamProcessor)
{
    for (const cv::Mat_<std::uint16_t>& frame : frames_)
        for (int copy = 0; copy < 2; ++copy)
            appendRaw(at("doubled.raw"), frame);
    internal::CaptureStdout();
    halvorapp::StreamProcessor processor(at("camera.ini").c_str());
    const bool isWhole = processor.process(at("camera.ini").c_str(), at("doubled.raw").c_str());
    internal::GetCapturedStdout();
    ASSERT_TRUE(isWhole);

    const std::string processed = textOf(at("doubled.(spr_tnr_hist_peak_t1.19).proc"));
    const std::size_t frameBytes = 2 * frames_[0].total();
    const std::size_t stride = frameBytes + 2 * 4 * static_cast<std::size_t>(frameSize.width);
    const std::string result = enhanced("--signed --settings camera.ini");
    ASSERT_EQ(processed.size(), frameCount * stride);
    for (std::size_t i = 0; i < frameCount; ++i)
        EXPECT_TRUE(result.substr(i * frameBytes, frameBytes) == processed.substr(i * stride, frameBytes))
            << i;
}

TEST_F(EnhanceCommand, ContactSheetShowsEveryStage)
{
    const ProgramRun result =
        run("enhance in.raw --size 132x40 --frames 1:4 --contact-sheet sheet.png --sheet-frames 4,2");
    ASSERT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(result.out, HasSubstr("the stages of 2 frames"));
    const cv::Mat sheet = image("sheet.png");
    const cv::Size panel = frameSize * 2;
    const cv::Size cell = panel + cv::Size(10, 38);
    ASSERT_EQ(sheet.size(), cv::Size(4 * cell.width + 10, 4 * cell.height));
    std::vector<cv::Mat> panels;
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column) {
            panels.push_back(sheet(cv::Rect({10 + column * cell.width, 10 + row * cell.height}, panel)));
            cv::Scalar mean;
            cv::Scalar deviation;
            cv::meanStdDev(panels.back(), mean, deviation);
            EXPECT_GT(cv::norm(deviation), 10.0) << row << ' ' << column;
            for (std::size_t other = 0; other + 1 < panels.size(); ++other)
                EXPECT_GT(cv::norm(panels.back(), panels[other], cv::NORM_INF), 0.0) << "a stage shown twice";
        }
    EXPECT_EQ(fileCount(), 3U) << "nothing but the sheet";
}

TEST_F(EnhanceCommand, LooksGiveWayToOptionsOfABlock)
{
    const std::string every = sameAsFile + "70 --tnr --spr --peak --peak-gain 14 ";
    EXPECT_TRUE(enhanced(every) == enhanced("--look strong " + every)) << "one of the equaliser's among them";
    const std::string noEqualiser =
        "--no-hist --spr-threshold 22 --no-peak --look ";  // in counts, as the input
    EXPECT_TRUE(enhanced(noEqualiser + "flat") == enhanced(noEqualiser + "device"));
    EXPECT_TRUE(enhanced("--look natural --tnr-alpha 60") == enhanced("--look natural"));
    EXPECT_FALSE(enhanced("--look natural") == enhanced("--look natural --tnr-alpha 10"));
    EXPECT_FALSE(enhanced("--look natural") == enhanced("--look flat"));
    EXPECT_FALSE(enhanced("--look strong") == enhanced("--look strong --no-peak"));
}

TEST_F(EnhanceCommand, LooksFillTheDisplayAndSeeAheadAsFarAsAsked)
{
    for (const std::string look : {"natural", "strong", "flat"}) {
        const ProgramRun result = run("enhance in.raw --size 132x40 --measure --look " + look);
        ASSERT_EQ(result.status, 0) << result.error;
        std::istringstream row(result.out.substr(result.out.find("enhanced") + 8));
        double range = 0.0;
        row >> range;
        EXPECT_GE(range, 0.97) << look;
    }
    EXPECT_EQ(fileCount(), 2U) << "the input and the settings: nothing was written";
    const std::string fixed = "--look natural --spr-threshold 9 --peak-coring 2 --lookahead ";
    const auto begins = [&](const std::string& ahead, const std::string& frames) {
        return enhanced(fixed + ahead + frames).substr(0, 3 * 2 * frames_[0].total());
    };
    EXPECT_TRUE(begins("0", "") == begins("0", " --frames 0:4"));
    EXPECT_FALSE(begins("3", "") == begins("3", " --frames 0:4"));
}

TEST_F(EnhanceCommand, TakesFramesWithoutContrast)
{
    for (const int count : {0, 65535, 3000}) {
        std::filesystem::remove(at("even.raw"));
        for (int frame = 0; frame < 2; ++frame)
            appendRaw(at("even.raw"), cv::Mat_<std::uint16_t>(frameSize, static_cast<std::uint16_t>(count)));
        const ProgramRun result =
            run("enhance even.raw --size 132x40 -o out.raw --force --contact-sheet even.png");
        EXPECT_EQ(result.status, 0) << count << ": " << result.error;
    }
}

TEST_F(EnhanceCommand, MendsBadPixelsByWhatItLearnsOrByAMap)
{
    std::filesystem::remove(at("in.raw"));
    for (cv::Mat_<std::uint16_t>& frame : frames_) {
        frame(2, 128) = static_cast<std::uint16_t>(frame(2, 128) + 9000);
        appendRaw(at("in.raw"), frame);
    }
    const std::string line = "enhance in.raw --size 132x40 --force ";
    const ProgramRun learning = run(line + "-o auto.raw --write-bad-pixels map.png");
    ASSERT_EQ(learning.status, 0) << learning.error;
    EXPECT_THAT(learning.out, HasSubstr("bad pixels: 1 hot and 0 cold, learned from 6 frames, mended"));
    const ProgramRun byMap = run(line + "-o map.raw --bad-pixels map.png");
    EXPECT_THAT(byMap.out, HasSubstr("bad pixels: 1 by "));
    EXPECT_TRUE(textOf(at("auto.raw")) == textOf(at("map.raw")));
    EXPECT_EQ(run(line + "-o off.raw --bad-pixels off").status, 0);
    EXPECT_FALSE(textOf(at("auto.raw")) == textOf(at("off.raw")));

    cv::imwrite(at("small.png"), cv::Mat_<std::uint8_t>::zeros(2, 2));
    cv::imwrite(at("other.bmp"), cv::Mat_<std::uint8_t>::zeros(40, 132));
    expectRefusals(line + "-o bad.raw",
                   {{"--bad-pixels small.png", "small.png: has 2x2 pixels"},
                    {"--bad-pixels none.png", "none.png: can't be read"},
                    {"--bad-pixels other.bmp", "other.bmp: can't be read"},
                    {"--bad-pixels off --write-bad-pixels m.png", "there is no map"},
                    {"--write-bad-pixels m.jpg", "m.jpg: expected"},
                    {"--look dark", "--look dark: expected one of natural, strong"},
                    {"--look flat --settings camera.ini", "--look flat: expected no look"},
                    {"--measure --no-hist", "--measure: expected"}});
    const ProgramRun filtered = run("filter --spatial --size 132x40 in.raw -o even.raw");
    EXPECT_THAT(filtered.out, HasSubstr("1 hot and 0 cold"));
    EXPECT_EQ(run("filter --spatial --bad-pixels off --size 132x40 in.raw -o rough.raw").status, 0);
    EXPECT_FALSE(textOf(at("even.raw")) == textOf(at("rough.raw")));
    EXPECT_EQ(run("filter --cluster --bad-pixels auto --size 132x40 in.raw -o c.raw").status, 2);
}

TEST_F(EnhanceCommand, RefusesBadInputInOneLineAndWritesNoFile)
{
    writeText(at("taken.raw"), "kept");
    writeText(at("range.ini"), "[TNR_Parameter]\nalpha=101\n");
    writeText(at("width.ini"), "[Histogram_Parameter]\nwidth=10\n");
    expectRefusals("enhance in.raw --size 132x40",
                   {{"", "-o OUT or --contact-sheet"},
                    {"-o taken.raw", "taken.raw exists already"},
                    {"-o o.raw --contact-sheet sheet.jpg", "sheet.jpg: expected"},
                    {"-o o.png --contact-sheet o.png", "o.png: expected different"},
                    {"--contact-sheet s.png --sheet-frames 2,6", "--sheet-frames 6: expected"},
                    {"-o o.raw --peak-limit 501", "--peak-limit"},
                    {"-o o.raw --hist-gamma dark", "--hist-gamma"},
                    {"-o o.raw --hist-mode 5", "expected one of off, linear"},
                    {"-o o.raw --hist-gainhigh 4", "--hist-gainlow 5"},
                    {"-o o.raw --tnr --no-tnr", "--no-tnr"},
                    {"-o o.raw --settings none.ini", "none.ini: can't be read"},
                    {"-o o.raw --settings in.raw", "in.raw: names no setting"},
                    {"-o o.raw --settings range.ini", "[TNR_Parameter] alpha=101: expected 0 to 100"},
                    {"-o o.raw --settings width.ini", "width=10"}});
}
