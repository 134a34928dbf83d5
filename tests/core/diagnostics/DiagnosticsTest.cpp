// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "apps/TemporaryFolder.h"
#include "core/GroupedDigits.h"
#include "core/base/Exception.h"
#include "core/diagnostics/DebugChannel.h"
#include "core/diagnostics/DebugDeviceConsole.h"
#include "core/diagnostics/DebugDeviceFile.h"
#include "core/diagnostics/DebugSingleton.h"
#include "core/diagnostics/LogFacility.h"
#include "core/diagnostics/StopWatch.h"
#include "core/diagnostics/compareMat.h"

using namespace halvor::vx;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class RecordingDevice : public DebugDeviceBase
{
public:
    void write(std::string_view channel, std::string_view text, int /*level*/) override
    {
        lines.push_back(std::string(channel) + "|" + std::string(text));
    }

    std::vector<std::string> lines;
};

// Counts how often it is formatted.
struct Expensive
{
    int* formatted;
    friend std::ostream& operator<<(std::ostream& out, const Expensive& value)
    {
        ++*value.formatted;
        return out << "expensive";
    }
};

// Stands for a host's static object that uses the library when it is destroyed.
struct HostStatic
{
    DebugChannel channel{"host"};
    HostStatic() = default;
    HostStatic(const HostStatic&) = delete;
    HostStatic& operator=(const HostStatic&) = delete;
    ~HostStatic()
    {
        DebugSingletonInterface& registry = DebugSingleton::getInstance("host");
        VX_LOG(LogFacility::progress, "channels: " << registry.channelCount());
        registry.removeDebugChannel(&channel);
    }
};

class LogFacilityTest : public TemporaryFolder
{
protected:
    void TearDown() override
    {
        log_.resetStream();
        log_.setLogLevel(LogFacility::off);
        log_.setShowCodeInfo(false);
        TemporaryFolder::TearDown();
    }

    LogFacility& log_ = LogFacility::getInstance();
};

}  // namespace

TEST_F(LogFacilityTest, WritesLinesUpToItsLevelAndFlushesEachOne)
{
    const auto path = folder_ / "a.log";
    log_.openLogFile(path.string(), false);
    VX_LOG(LogFacility::problems, "off");
    log_.setLogLevel(LogFacility::problems);
    VX_LOG(LogFacility::problems, "problem");
    VX_LOG(LogFacility::progress, "progress");
    DebugChannel channel("DBG");
    channel.setLogLevel(11);
    channel.send("a problem", 2);
    channel.send("a step", 11);
    EXPECT_EQ(textOf(path), "problem\nDBG: a problem\n");
    log_.setLogLevel(LogFacility::progress);
    log_.setShowCodeInfo(true);
    VX_LOG(LogFacility::progress, "here");
    EXPECT_THAT(textOf(path),
                testing::ContainsRegex("tests/core/diagnostics/DiagnosticsTest\\.cpp, [0-9]+ : here\n"));
}

TEST_F(LogFacilityTest, LosesNothingUnlessToldToStartAnew)
{
    const auto path = folder_ / "b.log";
    std::ofstream(path) << "before\n";
    log_.setLogLevel(LogFacility::progress);
    log_.openLogFile(path.string(), false);
    log_.logMessage(LogFacility::progress, "one");
    std::ofstream(path, std::ios::app) << "from another process\n";
    log_.logMessage(LogFacility::progress, "two");
    log_.openLogFile(path.string(), false);
    log_.logMessage(LogFacility::progress, "three");
    EXPECT_EQ(textOf(path), "before\none\nfrom another process\ntwo\nthree\n");
    log_.openLogFile(path.string(), true);
    log_.logMessage(LogFacility::progress, "four");
    EXPECT_EQ(textOf(path), "four\n");
}

TEST_F(LogFacilityTest, TellsAnUnwritableFileOnceAndGoesOnOnStandardError)
{
    const std::string path = (folder_ / "missing" / "c.log").string();
    log_.setLogLevel(LogFacility::progress);
    testing::internal::CaptureStderr();
    log_.openLogFile(path, false);
    log_.openLogFile(path, false);
    log_.logMessage(LogFacility::progress, "still here");
    const std::string text = testing::internal::GetCapturedStderr();
    const std::size_t told = text.find(path);
    ASSERT_NE(told, std::string::npos);
    EXPECT_EQ(text.find(path, told + 1), std::string::npos);
    EXPECT_THAT(text, HasSubstr("still here\n"));
}

TEST(DebugChannel, IsSilentAndFormatsNothingUntilALevelAndADeviceAreSet)
{
    DebugChannel channel("SR");
    const auto device = std::make_shared<RecordingDevice>();
    int formatted = 0;
    channel.send("value ", Expensive{&formatted}, 11);
    channel.setOutputLevel(11);
    channel.send("value ", Expensive{&formatted}, 11);
    EXPECT_FALSE(channel.isDebugActive(11));
    channel.setDebugDevice(device);
    EXPECT_TRUE(channel.isDebugActive(11));
    EXPECT_EQ(formatted, 0);

    channel.send("value ", Expensive{&formatted}, 11);
    channel.send("detail", 12);
    const DebugChannel copy = channel;  // NOLINT(performance-unnecessary-copy-initialization)
    copy.send("from the copy", 2);
    EXPECT_EQ(formatted, 1);
    EXPECT_THAT(device->lines, ElementsAre("SR|value expensive", "SR|from the copy"));
}

TEST_F(LogFacilityTest, WritesNumbersAlikeInAnyLocaleOfTheHost)
{
    const vxtest::GroupedDigits locale;
    const auto path = folder_ / "f.log";
    log_.openLogFile(path.string(), false);
    log_.setLogLevel(LogFacility::progress);
    VX_LOG(LogFacility::progress, "pixels: " << 1200 << " sigma: " << 0.5F);
    DebugChannel channel("SR");
    channel.setLogLevel(11);
    channel.send("Pnr   :", 1200.5F, 11);
    EXPECT_EQ(textOf(path), "pixels: 1200 sigma: 0.5\nSR: Pnr   :1200.5\n");
}

TEST(DebugSingleton, ConfiguresChannelsThatAreThereAndThoseThatCome)
{
    DebugSingletonInterface& registry = DebugSingleton::getInstance("configures");
    EXPECT_EQ(&registry, &DebugSingleton::getInstance("configures"));
    EXPECT_NE(&registry, &DebugSingleton::getInstance(""));
    const auto device = std::make_shared<RecordingDevice>();
    DebugChannel before("before");
    registry.addDebugChannel(&before);
    registry.setDebugDevice(device);
    registry.setOutputLevel(11);
    DebugChannel after("after");
    registry.addDebugChannel(&after);
    before.send("1", 11);
    after.send("2", 11);

    registry.removeDebugChannel(&before);
    registry.setOutputLevel(0);
    EXPECT_TRUE(before.isDebugActive(11));
    EXPECT_FALSE(after.isDebugActive(11));
    EXPECT_EQ(registry.channelCount(), 1);
    registry.removeDebugChannel(&after);
    registry.removeDebugChannel(&after);
    EXPECT_EQ(registry.channelCount(), 0);
    EXPECT_THAT(device->lines, ElementsAre("before|1", "after|2"));
}

TEST_F(LogFacilityTest, OutlivesTheStaticsOfAHostLikeTheRegistry)
{
    // In a new process, where the host's object is older than those of the library.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto path = std::filesystem::temp_directory_path() / "vxkit-log-at-exit";
    const auto runToTheEnd = [&path] {
        static HostStatic host;
        LogFacility::getInstance().openLogFile(path.string(), false);
        LogFacility::getInstance().setLogLevel(LogFacility::progress);
        DebugSingleton::getInstance("host").addDebugChannel(&host.channel);
        std::exit(0);
    };
    EXPECT_EXIT(runToTheEnd(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(textOf(path), "channels: 1\n");
    std::filesystem::remove(path);
}

TEST(DebugDeviceConsole, NamesTheChannelOnStandardError)
{
    DebugDeviceConsole console;
    testing::internal::CaptureStderr();
    console.write("SrFloat", "start addFrame", 11);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[SrFloat] start addFrame\n");
}

TEST_F(LogFacilityTest, DebugDeviceFileHoldsEachLineAtOnceAndRefusesAFileThatCannotBeWritten)
{
    const auto path = folder_ / "trace.txt";
    std::ofstream(path) << "before\n";
    DebugDeviceFile device(path.string());
    device.write("SrFloat", "start addFrame", 11);
    EXPECT_EQ(textOf(path), "[SrFloat] start addFrame\n");
    EXPECT_TRUE(device.isComplete());
    DebugDeviceFile full("/dev/full");
    full.write("SrFloat", "lost", 11);
    EXPECT_FALSE(full.isComplete());
    testing::internal::CaptureStderr();
    EXPECT_THROW(DebugDeviceFile((folder_ / "missing" / "trace.txt").string()), Exception);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("missing"));
}

TEST(StopWatch, MeasuresBetweenStartAndStop)
{
    StopWatch watch;
    EXPECT_EQ(watch.timeElapsed(), 0.0);
    watch.start();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    watch.stop();
    const double first = watch.timeElapsed();
    EXPECT_GE(first, 0.005);
    EXPECT_EQ(watch.timeElapsed(), first);
}

TEST(CompareMat, ReportsOnlyDifferencesAboveTheTolerance)
{
    DebugChannel channel("SrInt");
    const auto device = std::make_shared<RecordingDevice>();
    channel.setDebugDevice(device);
    channel.setOutputLevel(2);
    cv::Mat_<short> a(3, 4, short{100});
    cv::Mat_<short> b = a.clone();
    b(1, 2) = 102;
    EXPECT_TRUE(compareMat(&channel, a, b, "Org", "Linewise", 2.0F));
    EXPECT_THAT(device->lines, IsEmpty());
    EXPECT_FALSE(compareMat(&channel, a, b, "Org", "Linewise", 1.0F));
    EXPECT_THAT(
        device->lines,
        ElementsAre("SrInt|Org and Linewise differ by more than 1 at 1 pixels, first at (2, 1), by up to 2"));
    EXPECT_FALSE(compareMat(nullptr, a, cv::Mat_<short>(3, 3), "Org", "Linewise", 1.0F));
}

TEST(CompareMat, TellsANotANumberFromAValue)
{
    const cv::Mat_<float> plain(2, 2, 1.0F);
    cv::Mat_<float> broken = plain.clone();
    broken(0, 1) = std::nanf("");
    EXPECT_FALSE(compareMat(nullptr, plain, broken, "a", "b", 1e30F));
    EXPECT_TRUE(compareMat(nullptr, broken, broken.clone(), "a", "b", 0.0F));
}
