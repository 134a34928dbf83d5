// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <limits>
#include <string>

#include "core/base/Exception.h"
#include "core/base/ParallelExceptions.h"
#include "core/base/RowSums.h"
#include "core/base/WrapArithmetic.h"
#include "doubles/ThreadCount.h"

using namespace halvor::vx;

TEST(Exception, ReportsOnceAndCopiesSilently)
{
    testing::internal::CaptureStderr();
    const Exception original("no light", "modules/a.cpp:7 : halvor::vx::f(..)");
    const Exception copy = original;  // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "exception raised: \"no light\"\n   at: modules/a.cpp:7 : halvor::vx::f(..)\n");
    EXPECT_STREQ(copy.what(), "no light");
    EXPECT_EQ(copy.where(), original.where());
}

TEST(Exception, WhereTextNamesThePathBelowTheProject)
{
    const std::string text = VX_WHERE("halvor::vx::Some::member");
    EXPECT_THAT(text, testing::MatchesRegex(
                          "tests/core/base/BaseTest\\.cpp:[0-9]+ : halvor::vx::Some::member\\(\\.\\.\\)"));
}

TEST(WrapArithmetic, WrapsAtBothEndsOfTheRange)
{
    constexpr std::int32_t low = std::numeric_limits<std::int32_t>::min();
    constexpr std::int32_t high = std::numeric_limits<std::int32_t>::max();
    EXPECT_EQ(wrapAdd(high, 1), low);
    EXPECT_EQ(wrapSub(low, 1), high);
    EXPECT_EQ(wrapMul(high, high), 1);
    EXPECT_EQ(wrapMul(65536, 65536), 0);
    EXPECT_EQ(wrapNeg(low), low);
    EXPECT_EQ(wrapAbs(low), low);
    EXPECT_EQ(wrapAbs(-5), 5);
    EXPECT_EQ(wrapAdd64(std::numeric_limits<std::int64_t>::max(), 1),
              std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(lowSigned16(0x12348000), -32768);
}

TEST(RowSums, AddTheRowsInOrderForAnyNumberOfThreads)
{
    double expected = 0.0;
    for (int y = 0; y < 101; ++y)
        expected += 1e6 / (y + 0.3);
    for (const int threads : {1, 2, 7}) {
        RowSums<double> sums(101);
        const vxtest::ThreadCount count(threads);
#pragma omp parallel for schedule(static)
        for (int y = 0; y < 101; ++y)
            sums[y] = 1e6 / (y + 0.3);
        EXPECT_EQ(sums.total(), expected);
    }
}

TEST(RowSums, LaneSumTakesEveryElementOnce)
{
    for (int n = 0; n < 20; ++n)
        EXPECT_EQ(laneSum(n, [](int i) { return i + 1; }), n * (n + 1) / 2) << n;
}

TEST(ParallelExceptions, RaisesTheLowestIndexBehindTheLoopAndLosesNoOtherWork)
{
    ParallelExceptions failures;
    EXPECT_NO_THROW(failures.rethrow());
    std::atomic<int> done = 0;
#pragma omp parallel for schedule(static) num_threads(4)
    for (int i = 0; i < 100; ++i) {
        failures.run(i, [&] {
            if (i % 30 == 20)
                throw i;
            ++done;
        });
    }
    EXPECT_EQ(done, 97);
    try {
        failures.rethrow();
        FAIL() << "nothing was raised";
    } catch (int index) {
        EXPECT_EQ(index, 20);
    }
}
