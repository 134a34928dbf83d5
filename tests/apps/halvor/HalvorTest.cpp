// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "apps/TemporaryFolder.h"
#include "apps/halvor/CommandLine.h"
#include "apps/halvor/Help.h"
#include "apps/halvor/Settings.h"
#include "apps/halvor/SettingsTable.h"
#include "doubles/BlockFrames.h"
#include "doubles/PlainChain.h"
#include "enhancement/histogram.h"
#include "enhancement/peaking.h"

using blocktest::makeFrame;
using blocktest::Scene;
using blocktest::Size;
using halvorapp::readSettings;
using halvorapp::Settings;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr Size sensor{20, 9};
const std::string sensorText = "[Main_Window]\nsensor=@Size(20 9)\n";
const std::string allOn = "(spr_snr_tnr_hist_peak_t1.19).proc";
const std::string output = "scene.(spr_snr_tnr_hist_t1.19).proc";  // by default peaking is off

void appendWords(std::string& bytes, const std::vector<int>& words)
{
    for (const int word : words) {
        bytes.push_back(static_cast<char>(word & 0xFF));
        bytes.push_back(static_cast<char>(word >> 8 & 0xFF));
    }
}

std::vector<int> frame(int number)
{
    return makeFrame(Scene::calm, sensor, number);
}

// Each frame as often as a camera's capture repeats it.
std::string recording(const std::vector<int>& numbers)
{
    std::string bytes;
    for (const int number : numbers)
        appendWords(bytes, frame(number));
    return bytes;
}

// What the processor writes for these frames, by the plain form of the chain.
std::string enhanced(const std::vector<int>& numbers)
{
    halvor::vx::CamInternalSettings record;
    record.tnrGlobal = 100;
    record.sprThreshold = 26;
    record.sprMaxFrame = 18;
    record.snrGain = 16;
    record.peakCoring = 22;
    plain::Chain chain(sensor.cols, sensor.rows, record);
    std::string bytes;
    for (const int number : numbers) {
        std::vector<int> samples = frame(number);
        for (int& sample : samples)
            sample = static_cast<short>(sample);
        chain.process(samples.data());
        appendWords(bytes, chain.result);
        appendWords(bytes, {chain.binData.begin(), chain.binData.begin() + 4 * sensor.cols});
    }
    return bytes;
}

class Halvor : public TemporaryFolder
{
protected:
    // Runs the program in its own folder, where no settings lie beside it.
    std::string run(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), at("halvor"));
        std::vector<const char*> argv(arguments.size());
        std::transform(arguments.begin(), arguments.end(), argv.begin(),
                       [](const std::string& argument) { return argument.c_str(); });
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        status_ = halvorapp::runHalvor(static_cast<int>(argv.size()), argv.data());
        hint_ = testing::internal::GetCapturedStderr();
        return testing::internal::GetCapturedStdout();
    }

    std::string runWith(const std::string& settings, const std::string& stream)
    {
        writeText(folder_ / "halvor.ini", settings);
        return run({"-s", at("halvor.ini"), at(stream)});
    }

    int status_ = -1;
    std::string hint_;  // what stands on the standard error stream
};

using HalvorSettings = TemporaryFolder;

}  // namespace

TEST_F(HalvorSettings, ReadsEverySectionAndPassesOverWhatItDoesNotKnow)
{
    writeText(folder_ / "a.ini",
              "alpha=1\n[Main_Window]\nfile=run.raw and more\nlength=12\nsensor=@Size(32 24)\nalpha=2\n"
              "[TNR_Parameter] ; temporal\r\nmode=0\r\nalpha=31\r\nglobal= 32\r\ncgain=-33x\r\n"
              "[ SPR_Parameter]\nspr=0\nspr_threshold=41\nspr_max_frame=42\nspr_max_line=43\n mode=9\n"
              "[SNR_Parameter]\nmode=5\ngain=0x10\nmode\nmode=\n[]\ngain=8\n[Histogram_Parameter]\nmode=7\n");
    Settings s;
    ASSERT_TRUE(readSettings((folder_ / "a.ini").c_str(), s));
    EXPECT_EQ(s.fileName, "run.raw");
    EXPECT_THAT((std::vector<int>{s.length, s.cols, s.rows}), testing::ElementsAre(12, 32, 24));
    EXPECT_THAT((std::vector<int>{s.tnrMode, s.tnrAlpha, s.tnrGlobal, s.tnrCGain}),
                testing::ElementsAre(0, 31, 32, -33));
    EXPECT_THAT((std::vector<int>{s.sprEnable, s.sprThreshold, s.sprMaxFrame, s.sprMaxLine}),
                testing::ElementsAre(0, 41, 42, 43));
    EXPECT_THAT((std::vector<int>{s.snrMode, s.snrGain}), testing::ElementsAre(5, 0)) << "decimal only";
}

TEST_F(HalvorSettings, StartsFromTheDefaultsOnlyIfTheFileCanBeRead)
{
    Settings s;
    s.length = 7;
    EXPECT_FALSE(readSettings(at("missing.ini").c_str(), s));
    EXPECT_FALSE(readSettings(folder_.c_str(), s));
    EXPECT_EQ(s.length, 7);
    writeText(at("empty.ini"), "");
    EXPECT_TRUE(readSettings(at("empty.ini").c_str(), s));
    EXPECT_THAT((std::vector<int>{s.length, s.cols, s.rows, s.tnrGlobal, s.sprMaxFrame, s.snrGain}),
                testing::ElementsAre(1000, 160, 120, 100, 18, 16));

    // A line of 254 characters ends there: what follows is a line of its own.
    writeText(at("long.ini"), "[Main_Window]\n" + std::string(254, 'x') + "length=5\nsensor=@Size(7,8)\n" +
                                  std::string("length\0=6\n[", 11) + std::string(5000, 'y'));
    ASSERT_TRUE(readSettings(at("long.ini").c_str(), s));
    EXPECT_THAT((std::vector<int>{s.length, s.cols, s.rows}), testing::ElementsAre(5, 7, 120))
        << "only the first number of the pair can be read";
}

TEST_F(Halvor, WritesTheEnhancedFramesAndTheBinaryBlocks)
{
    // The second frame is torn once and the third stays for three captures.
    writeText(folder_ / "scene.raw", recording({1, 1, 2, 9, 2, 2, 3, 3, 3, 4, 4}));
    const std::string text = runWith(sensorText +
                                         "[Histogram_Parameter]\ngainlow=19\ngainhigh=19181\n"
                                         "[Peaking_Parameter]\nenable=1\n",
                                     "scene.raw");
    EXPECT_EQ(status_, 0);
    EXPECT_THAT(text, HasSubstr("open: " + at("scene.raw") + "\nsave: " + at("scene." + allOn) +
                                "\nproc: 1000 frames ... pgain"));
    EXPECT_THAT(text, EndsWith("5 processed\n\nmain: finished\n"));
    EXPECT_EQ(textOf(folder_ / ("scene." + allOn)), enhanced({1, 2, 3, 3, 4}));
}

TEST_F(Halvor, KeepsWhatTheBlocksLearnedForTheNextStream)
{
    const std::string settings = sensorText + "[Peaking_Parameter]\nenable=1\n";
    writeText(folder_ / "all.raw", recording({1, 1, 2, 2, 3, 3}));
    runWith(settings, "all.raw");
    writeText(folder_ / "a.raw", recording({1, 1, 2, 2}));
    // An odd number of captures leaves the buffers the other way round.
    writeText(folder_ / "b.raw", recording({8, 3, 3}));
    run({"-s", at("halvor.ini"), at("a.raw"), at("b.raw")});
    const std::string whole = textOf(folder_ / ("all." + allOn));
    const std::string second = textOf(folder_ / ("b." + allOn));
    EXPECT_EQ(textOf(folder_ / ("a." + allOn)), whole.substr(0, whole.size() / 3 * 2));
    // Frames of a second stream count from 0 again: this one sets its gain table, which the frame after would
    // show. Its own picture is that of the third frame of one stream.
    EXPECT_EQ(second, whole.substr(whole.size() / 3 * 2));
}

TEST_F(Halvor, ProcessesOneFrameLessThanTheLength)
{
    writeText(folder_ / "scene.raw", recording({1, 1, 2, 2, 3, 3}));
    const std::size_t frameBytes = 2 * (20 * 9 + 4 * 20);
    for (const auto& [length, frames] : {std::pair{3, 2}, {1, 0}, {0, 0}, {-5, 0}}) {
        const std::string text = runWith(sensorText + "length=" + std::to_string(length) + "\n", "scene.raw");
        EXPECT_EQ(std::filesystem::file_size(folder_ / output), frames * frameBytes);
        EXPECT_THAT(text, HasSubstr(std::to_string(frames + 1) + " processed\n\n"))
            << "the frame that was dropped";
    }
}

TEST_F(Halvor, NamesTheOutputByTheBlocksAndTheLastDotOfAll)
{
    const std::string off = sensorText +
                            "[TNR_Parameter]\nmode=0\n[SPR_Parameter]\nspr=0\n[SNR_Parameter]\nmode=0\n"
                            "[Histogram_Parameter]\nmode=0\n";
    writeText(folder_ / "two.dots.raw", "");
    std::filesystem::create_directory(folder_ / "v1.2");
    writeText(folder_ / "v1.2" / "plain", "");
    runWith(off, "two.dots.raw");
    runWith(off, "v1.2/plain");
    EXPECT_TRUE(std::filesystem::exists(folder_ / "two.dots.(t1.19).proc"));
    EXPECT_TRUE(std::filesystem::exists(folder_ / "v1.(t1.19).proc"));
    EXPECT_EQ(halvorapp::defaultSettingsPath("a/b/halvor"), "a/b/Marlo-Works/Halvor.ini");
    EXPECT_EQ(halvorapp::defaultSettingsPath("a/b\\c/halvor"), "a/b\\Marlo-Works/Halvor.ini");
    EXPECT_EQ(halvorapp::defaultSettingsPath("halvor"), "Marlo-Works/Halvor.ini");
}

TEST_F(Halvor, FindsItsSettingsBesideTheProgram)
{
    std::filesystem::create_directory(folder_ / "Marlo-Works");
    writeText(folder_ / "scene.raw", recording({1, 1}));
    writeText(folder_ / "Marlo-Works" / "Halvor.ini", sensorText + "file=" + at("scene.raw") + "\n");
    EXPECT_THAT(run({}), HasSubstr("open: " + at("scene.raw") + "\n"));
    EXPECT_EQ(status_, 0);
    EXPECT_GT(std::filesystem::file_size(folder_ / output), 0U);
}

TEST_F(Halvor, GreetsAndPrintsItsUsage)
{
    const std::string greeting =
        "*********************************\nHalvor Stream Processor "
        "t1.19\n*********************************\n\n";
    const std::string noSettings = "main: Cannot read " + at("Marlo-Works/Halvor.ini") + "\n";
    EXPECT_EQ(run({"-h", at("scene.raw")}), greeting + noSettings + "halvor [-h] [-s setting] [stream]\n");
    EXPECT_EQ(status_, 0);
    EXPECT_THAT(run({"-s"}), EndsWith("halvor [-h] [-s setting] [stream]\n"));
    EXPECT_EQ(status_, 1);
    EXPECT_EQ(fileCount(), 0U);
}

TEST_F(Halvor, EndsAStreamWhoseFilesCannotBeOpened)
{
    std::filesystem::create_directory(folder_ / "folder.raw");
    for (const std::string stream : {"missing.raw", "folder.raw"}) {
        const std::string text = runWith(sensorText, stream);
        EXPECT_THAT(text, EndsWith("open: Cannot load " + at(stream) + "\nmain: finished\n"));
        EXPECT_EQ(status_, 1);
    }
    EXPECT_EQ(fileCount(), 2U) << "only the settings and the folder";

    writeText(folder_ / "scene.raw", recording({1, 1}));
    std::filesystem::create_directory(folder_ / output);
    EXPECT_THAT(runWith(sensorText, "scene.raw"),
                EndsWith("save: Cannot write to " + at(output) + "\nmain: finished\n"));
    EXPECT_EQ(status_, 1);
}

TEST_F(Halvor, TellsAFrameThatCouldNotBeWrittenWhole)
{
    writeText(folder_ / "scene.raw", recording({1, 1, 2, 2}));
    std::filesystem::create_symlink("/dev/full", folder_ / output);
    const std::string text = runWith(sensorText, "scene.raw");
    EXPECT_THAT(text, HasSubstr("write: truncated frame 1\n1 processed\n\n"));
    EXPECT_EQ(status_, 1);
    writeText(folder_ / "next.raw", recording({1, 1, 2, 2}));
    run({"-s", at("halvor.ini"), at("scene.raw"), at("next.raw")});
    EXPECT_EQ(status_, 1) << "whatever follows";
}

TEST_F(Halvor, KeepsAnEarlierResultUntilTheNewOneIsWhole)
{
    writeText(folder_ / "scene.raw", recording({1, 1, 2, 2}));
    runWith(sensorText, "scene.raw");  // OpenMP's threads may need a file of their own when they start
    writeText(folder_ / output, "earlier");
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit usual
    {};
    ::getrlimit(RLIMIT_FSIZE, &usual);
    const struct rlimit small
    {
        500, usual.rlim_max
    };
    ::setrlimit(RLIMIT_FSIZE, &small);
    const std::string text = runWith(sensorText, "scene.raw");
    ::setrlimit(RLIMIT_FSIZE, &usual);
    std::signal(SIGXFSZ, before);
    EXPECT_EQ(status_, 1) << text << hint_;
    EXPECT_EQ(textOf(folder_ / output), "earlier");
    std::filesystem::remove(folder_ / output);
    std::filesystem::create_symlink("scene.raw", folder_ / output);
    runWith(sensorText, "scene.raw");
    EXPECT_EQ(status_, 1) << "the output would be the input";
    EXPECT_EQ(textOf(folder_ / "scene.raw"), recording({1, 1, 2, 2}));
    EXPECT_EQ(fileCount(), 3U);
}

TEST_F(Halvor, KeepsAnEarlierResultWhenThereIsNoFrameSize)
{
    writeText(folder_ / "scene.raw", recording({1, 1, 2, 2}));
    writeText(folder_ / output, "precious");
    for (const std::string size : {"-5 9", "5 -9", "0 9", "100000 100000", "2147483647 2147483647"}) {
        const std::string text = runWith("[Main_Window]\nsensor=@Size(" + size + ")\n", "scene.raw");
        EXPECT_THAT(text, HasSubstr("main: Cannot use a sensor of "));
        EXPECT_THAT(text, EndsWith("\nmain: finished\n"));
        EXPECT_THAT(text, Not(HasSubstr("save: "))) << "nothing was tried";
        EXPECT_EQ(status_, 1) << size;
    }
    run({at("scene.raw")});
    EXPECT_EQ(status_, 1) << "no settings at all";
    EXPECT_EQ(textOf(folder_ / output), "precious");
}

// Narrow frames, whose four lines are shorter than the binary block, and settings far out of range.
TEST_F(Halvor, SurvivesSettingsWithoutSense)
{
    const std::vector<std::pair<std::string, std::vector<std::string>>> sections = {
        {"TNR_Parameter", {"alpha", "global", "cgain"}},
        {"SPR_Parameter", {"spr_threshold", "spr_max_frame", "spr_max_line"}},
        {"SNR_Parameter", {"gain"}},
        {"Histogram_Parameter",
         {"mode", "width", "range", "offset", "speed", "gamma", "limit", "gain", "gainlow", "gainhigh"}},
        {"Peaking_Parameter", {"enable", "gain", "coring", "limit", "reduct_thres", "reduct_gain"}}};
    std::string bytes;
    for (int i = 0; i < 200; ++i)
        appendWords(bytes, {-32768, 32767});
    writeText(folder_ / "scene.raw", bytes + "x");
    for (const std::string size : {"1 30", "3 10", "2 2"})
        for (const std::string extreme : {"0", "-2147483648", "99999999999999999999", "31"}) {
            std::string settings = "[Main_Window]\nsensor=@Size(" + size + ")\n";
            for (const auto& [section, keys] : sections) {
                settings += "[" + section + "]\n";
                for (const std::string& key : keys)
                    settings.append(key).append("=").append(extreme).append("\n");
            }
            EXPECT_THAT(runWith(settings, "scene.raw"), Not(HasSubstr("... 0 processed")));
            EXPECT_EQ(status_, 0);
        }
}

TEST_F(Halvor, TellsItsHelpAndVersionBeforeAnythingElse)
{
    EXPECT_THAT(run({"--help", at("scene.raw")}),
                testing::StartsWith("halvor [-h] [-s setting] [stream]\n\nRuns"));
    EXPECT_EQ(status_, 0);
    EXPECT_EQ(run({"--version"}), "halvor t1.19\n");
    EXPECT_THAT(run({at("a.raw"), "--help"}), HasSubstr("main: Cannot read"))
        << "a stream, as any other word";
    EXPECT_THAT(run({at("a.raw"), "-h"}), testing::Not(HasSubstr("[-h]"))) << "nor this behind a stream";
    EXPECT_THAT(hint_, HasSubstr("settings name no usable sensor size"));
}

TEST_F(Halvor, HintsWhyAStreamGivesFewFrames)
{
    const auto hintOf = [this](const std::string& bytes, const std::string& size) {
        writeText(folder_ / "s.raw", bytes);
        const std::string text = runWith("[Main_Window]\nsensor=@Size(" + size + ")\n", "s.raw");
        EXPECT_THAT(text, EndsWith("processed\n\nmain: finished\n")) << "nothing but the usual";
        EXPECT_EQ(status_, 0);
        return hint_;
    };
    const std::string usual = recording({1, 1, 2, 2, 3, 3});
    EXPECT_EQ(hintOf(usual, "20 9"), "");
    EXPECT_THAT(hintOf(recording({1, 2, 3, 4, 5}), "20 9"), HasSubstr("0 of 5 frames repeat the one before"));
    EXPECT_THAT(hintOf(recording({1, 1, 2, 3, 4, 5, 6}), "20 9"), HasSubstr("1 of 7 frames repeat"));
    EXPECT_THAT(hintOf(usual + "xyz", "20 9"), HasSubstr("360 bytes (sensor=@Size): 3 bytes are left over"));
    EXPECT_THAT(hintOf("", "20 9"), HasSubstr("the stream is empty"));
    std::string large;
    for (const int value : {1, 2})
        for (int i = 0; i < 2 * 160 * 120; ++i)
            appendWords(large, {i % (160 * 120) * value});
    EXPECT_THAT(hintOf(large, "120 100"),
                HasSubstr("first 19200 samples stand in it twice: sensor=@Size(160 120)"));
    EXPECT_EQ(hintOf(large, "160 120"), "");
    runWith(sensorText, "missing.raw");
    EXPECT_EQ(hint_, "") << "told on the standard output";
    run({"-s", at("halvor.ini"), "--quiet"});
    EXPECT_THAT(hint_, HasSubstr("--quiet is taken for a stream; halvor --help"));
}

TEST_F(Halvor, DocumentsEveryKeyWithTheDefaultThatItHas)
{
    writeText(at("empty.ini"), "");
    writeText(at("example.ini"), halvorapp::exampleSettings());
    const auto values = [this](const std::string& file) {
        Settings s;
        EXPECT_TRUE(readSettings(at(file).c_str(), s));
        Histogram h(s.cols, s.rows);
        Peaking p(s.cols, s.rows);
        h.SetParam(at(file).c_str());
        p.SetParam(at(file).c_str());
        const HistogramParam& a = h.param;
        const PeakingParam& b = p.param;
        return std::vector<int>{static_cast<int>(s.fileName.size()),
                                s.length,
                                s.cols,
                                s.tnrMode,
                                s.tnrAlpha,
                                s.tnrGlobal,
                                s.tnrCGain,
                                s.sprEnable,
                                s.sprThreshold,
                                s.sprMaxFrame,
                                s.sprMaxLine,
                                s.snrMode,
                                s.snrGain,
                                a.mode,
                                a.width,
                                a.range,
                                a.offset,
                                a.speed,
                                a.gamma,
                                a.rangedis,
                                a.poffdis,
                                a.limit,
                                a.gain,
                                a.gainlow,
                                a.gainhigh,
                                b.enabled,
                                b.gain,
                                b.coring,
                                b.limit,
                                b.reductThres,
                                b.reductGain};
    };
    const std::vector<int> defaults = values("empty.ini");
    EXPECT_EQ(values("example.ini"), defaults);
    const std::string page = textOf(HALVOR_PAGE);
    ASSERT_EQ(halvorapp::settingsTable().size(), defaults.size());
    std::size_t place = 0;
    for (const halvorapp::SettingsKey& key : halvorapp::settingsTable()) {
        const std::string size = key.key == std::string("sensor") ? "@Size(" : "";
        writeText(at("one.ini"), std::string("[") + key.section + "]\n" + key.key + "=" + size + "31 24\n");
        std::vector<int> changed = values("one.ini");
        EXPECT_NE(changed[place], defaults[place]) << key.section << ' ' << key.key;
        changed[place] = defaults[place];
        if (size.empty()) {
            EXPECT_EQ(changed, defaults) << key.section << ' ' << key.key << " changes one value";
        }
        ++place;
        const std::string row =
            std::string("| `") + key.key + "=` | " + key.value + " | " + key.help + " |\n";
        EXPECT_THAT(page, HasSubstr(row));
        EXPECT_THAT(halvorapp::helpText(), HasSubstr(key.help));
    }
}
