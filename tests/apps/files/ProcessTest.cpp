// SPDX-License-Identifier: Apache-2.0
#include "apps/files/Process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>

#include "apps/TemporaryFolder.h"
#include "apps/files/Failure.h"
#include "apps/files/OutputFile.h"

using namespace vxfiles;

namespace {

class ProcessTest : public TemporaryFolder
{
protected:
    // Is interrupted with one file in place and another half done.
    [[noreturn]] void dieBy(int number) const
    {
        std::signal(number, SIG_DFL);  // a job in the background may have been started without
        const SignalWatch watch("test");
        writeFile(folder_ / "whole", "whole", false);
        OutputFile half(folder_ / "half", false);
        half.append("ha");
        ::kill(::getpid(), number);
        for (;;)
            ::pause();
    }
};

}  // namespace

TEST_F(ProcessTest, DiesBySignalsAndLeavesNothingHalf)
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        EXPECT_EXIT(dieBy(number), testing::KilledBySignal(number), "^test: stopped by a signal .* in place");
        EXPECT_EQ(textOf(folder_ / "whole"), "whole");
        EXPECT_EQ(fileCount(), 1U);
        std::filesystem::remove(folder_ / "whole");
    }
}

TEST_F(ProcessTest, LivesOnWithIgnoredSignalsAndBrokenPipes)
{
    const auto live = [] {
        std::signal(SIGHUP, SIG_IGN);
        const SignalWatch watch("test");
        std::raise(SIGHUP);
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) != 0)
            std::_Exit(2);
        ::close(ends[0]);
        std::_Exit(writeAll(ends[1], "x") || errno != EPIPE ? 3 : 0);
    };
    EXPECT_EXIT(live(), testing::ExitedWithCode(0), "");
}

TEST_F(ProcessTest, KeepsFilesOffTheDescriptorsOfClosedStreams)
{
    const auto run = [this](int descriptor) {
        ::close(descriptor);
        takeStandardDescriptors();
        OutputFile file(folder_ / "a", true);
        file.append("kept");
        const bool isLost = !writeAll(descriptor, "lost");
        file.commit();
        std::_Exit(isLost && textOf(folder_ / "a") == "kept" ? 0 : 1);
    };
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO})
        EXPECT_EXIT(run(descriptor), testing::ExitedWithCode(0), "") << descriptor;
}

TEST_F(ProcessTest, FailsWhenTheReportIsLost)
{
    const auto report = [](int status) {
        if (std::freopen("/dev/full", "w", stdout) == nullptr)  // NOLINT(cppcoreguidelines-owning-memory)
            std::_Exit(99);
        std::printf("a report\n");
        std::_Exit(statusOfReport(status, "test"));
    };
    EXPECT_EXIT(report(0), testing::ExitedWithCode(1), "^test: the standard output did not take");
    EXPECT_EXIT(report(2), testing::ExitedWithCode(2), "");
}
