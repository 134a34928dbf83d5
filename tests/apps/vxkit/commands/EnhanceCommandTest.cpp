#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <opencv2/imgcodecs.hpp>

#include "FrameSamples.h"
#include "ProgramRun.h"
#include "TemporaryFolder.h"
#include "apps/halvor/StreamProcessor.h"
#include "apps/vxkit/FrameFile.h"
#include "enhancement/MARLOImageEnhancer.h"
#include "support/Counts.h"
#include "support/Stream.h"

using namespace testing;
using halvor::vx::MARLOImageEnhancer;

namespace {

const cv::Size frameSize{132, 40};
constexpr int frameCount = 6;

const char* const settingsText = R"([Main_Window]
file=elsewhere.raw
sensor=@Size(132 40)
[TNR_Parameter]
mode=1
alpha=70
[SPR_Parameter]
spr_threshold=30
[SNR_Parameter]
mode=0
[Histogram_Parameter]
mode=3
gamma=-2
limit=40
[Peaking_Parameter]
enable=1
coring=9
)";

// Of the file above; what it doesn't name is as in the stream processor.
const std::vector<std::string> sameAsFile = {
    "--tnr-alpha",  "70", "--tnr-global",  "100", "--spr-threshold", "30", "--no-snr", "--hist-gamma", "-2",
    "--hist-limit", "40", "--peak-coring", "9",   "--spr-max-frame", "18"};

class EnhanceCommand : public TemporaryFolder
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
            frames.push_back(vxsupport::toCounts(stream.frame(i), {0.01, 18.0 - 327.68}));
            appendRaw(at("in.raw"), frames.back());
        }
        writeText(at("camera.ini"), settingsText);
    }

    std::string at(const std::string& name) const { return (folder / name).string(); }

    ProgramRun run(std::vector<std::string> options) const
    {
        options.insert(options.begin(), {"enhance", at("in.raw"), "--size", "132x40"});
        return runVxkit(options);
    }

    // The bytes that the command writes.
    std::string enhanced(std::vector<std::string> options) const
    {
        options.insert(options.end(), {"-o", at("out.raw"), "--force"});
        const ProgramRun result = run(options);
        EXPECT_EQ(result.status, 0) << result.error;
        EXPECT_THAT(result.out, HasSubstr("6 frames in"));
        EXPECT_THAT(result.out, Not(HasSubstr("pgain")));
        return textOf(at("out.raw"));
    }

    // The bytes that the chain makes of words, each of which is changed by the bits ahead of and behind it.
    std::string direct(MARLOImageEnhancer& chain, int flippedBefore, int flippedBehind) const
    {
        internal::CaptureStdout();
        cv::Mat_<short> image(frameSize);
        std::string bytes;
        for (const cv::Mat_<std::uint16_t>& frame : frames) {
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

    std::vector<cv::Mat_<std::uint16_t>> frames;
};

struct BadInput
{
    std::string name;
    std::vector<std::string> options;
    std::string message;
};

class BadEnhanceInput : public EnhanceCommand, public WithParamInterface<BadInput>
{};

}  // namespace

TEST_F(EnhanceCommand, WritesWhatTheChainMakes)
{
    MARLOImageEnhancer chain(frameSize.width, frameSize.height);
    EXPECT_TRUE(enhanced({}) == direct(chain, 0x8000, 0)) << "counts";
    MARLOImageEnhancer signedChain(frameSize.width, frameSize.height);
    EXPECT_TRUE(enhanced({"--signed"}) == direct(signedChain, 0, 0)) << "samples";
    MARLOImageEnhancer unequalised(frameSize.width, frameSize.height);
    unequalised.histSetMode(0);
    EXPECT_TRUE(enhanced({"--no-hist"}) == direct(unequalised, 0x8000, 0x8000)) << "back in counts";
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
        std::vector<std::string> all = options;
        all.insert(all.end(), {"--hist-mode", name});
        const std::string expected = direct(chain, 0x8000, 0);
        EXPECT_TRUE(enhanced(all) == expected) << name;
        for (const std::string& option : options) {
            const bool isOfOther = option.find(mode == 2 ? "hist-limit" : "hist-gain") != std::string::npos;
            std::vector<std::string> less = all;
            less.erase(std::find(less.begin(), less.end(), option));
            EXPECT_EQ(enhanced(less) == expected, isOfOther) << option << " has its effect, mode " << name;
        }
    }
}

TEST_F(EnhanceCommand, SettingsFileEqualsItsOptionsWhichWinOverIt)
{
    const std::string byFile = enhanced({"--settings", at("camera.ini")});
    EXPECT_TRUE(byFile == enhanced(sameAsFile));
    std::vector<std::string> changed = sameAsFile;
    changed[1] = "20";
    const std::string byOptions = enhanced(changed);
    EXPECT_TRUE(byFile != byOptions);
    EXPECT_TRUE(enhanced({"--settings", at("camera.ini"), "--tnr-alpha", "20"}) == byOptions);
    EXPECT_TRUE(enhanced({"--settings", at("camera.ini"), "--snr"}) != byFile);
}

TEST_F(EnhanceCommand, AgreesWithTheStreamProcessor)
{
    for (const cv::Mat_<std::uint16_t>& frame : frames)
        for (int copy = 0; copy < 2; ++copy)
            appendRaw(at("doubled.raw"), frame);
    internal::CaptureStdout();
    halvorapp::StreamProcessor processor(at("camera.ini").c_str());
    const bool isWhole = processor.process(at("camera.ini").c_str(), at("doubled.raw").c_str());
    internal::GetCapturedStdout();
    ASSERT_TRUE(isWhole);

    const std::string processed = textOf(at("doubled.(spr_tnr_hist_peak_t1.19).proc"));
    const std::size_t frameBytes = 2 * frames[0].total();
    const std::size_t stride = frameBytes + 2 * 4 * static_cast<std::size_t>(frameSize.width);
    const std::string result = enhanced({"--signed", "--settings", at("camera.ini")});
    ASSERT_EQ(processed.size(), frameCount * stride);
    for (std::size_t i = 0; i < frameCount; ++i)
        EXPECT_TRUE(result.substr(i * frameBytes, frameBytes) == processed.substr(i * stride, frameBytes))
            << i;
}

TEST_F(EnhanceCommand, ContactSheetShowsEveryStage)
{
    const ProgramRun result =
        run({"--frames", "1:4", "--contact-sheet", at("sheet.png"), "--sheet-frames", "4,2"});
    ASSERT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(result.out, HasSubstr("the stages of 2 frames"));
    const cv::Mat sheet = cv::imread(at("sheet.png"));
    const cv::Size panel = frameSize * 2;
    const cv::Size cell = panel + cv::Size(10, 40);
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

TEST_P(BadEnhanceInput, EndsWithOneLineAndNoFile)
{
    writeText(at("taken.raw"), "kept");
    writeText(at("range.ini"), "[TNR_Parameter]\nalpha=101\n");
    writeText(at("width.ini"), "[Histogram_Parameter]\nwidth=10\n");
    const std::size_t before = fileCount();
    std::vector<std::string> options = GetParam().options;
    for (std::string& option : options)
        if (option.find('.') != std::string::npos)
            option = at(option);
    const ProgramRun result = run(options);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.error, HasSubstr(GetParam().message));
    EXPECT_TRUE(isOneLine(result.error)) << result.error;
    EXPECT_EQ(fileCount(), before);
    EXPECT_EQ(textOf(at("taken.raw")), "kept");
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BadEnhanceInput,
    Values(BadInput{"Nowhere", {}, "-o OUT or --contact-sheet"},
           BadInput{"Taken", {"-o", "taken.raw"}, "taken.raw exists already"},
           BadInput{"SheetInput", {"-o", "o.raw", "--contact-sheet", "sheet.jpg"}, "sheet.jpg: expected"},
           BadInput{"SameName", {"-o", "o.png", "--contact-sheet", "o.png"}, "o.png: expected different"},
           BadInput{"SheetFrame",
                    {"--contact-sheet", "s.png", "--sheet-frames", "2,6"},
                    "--sheet-frames 6: expected"},
           BadInput{"TooLarge", {"-o", "o.raw", "--peak-limit", "501"}, "--peak-limit"},
           BadInput{"NoNumber", {"-o", "o.raw", "--hist-gamma", "dark"}, "--hist-gamma"},
           BadInput{"Mode", {"-o", "o.raw", "--hist-mode", "5"}, "expected one of off, linear"},
           BadInput{"Ranks", {"-o", "o.raw", "--hist-gainhigh", "4"}, "--hist-gainlow 5"},
           BadInput{"OnAndOff", {"-o", "o.raw", "--tnr", "--no-tnr"}, "--no-tnr"},
           BadInput{"NoFile", {"-o", "o.raw", "--settings", "none.ini"}, "none.ini: can't be read"},
           BadInput{"OtherFile", {"-o", "o.raw", "--settings", "in.raw"}, "in.raw: names no setting"},
           BadInput{"FileRange",
                    {"-o", "o.raw", "--settings", "range.ini"},
                    "[TNR_Parameter] alpha=101: expected 0 to 100"},
           BadInput{"FileWidth", {"-o", "o.raw", "--settings", "width.ini"}, "width=10"}),
    [](const TestParamInfo<BadInput>& input) { return input.param.name; });
