// SPDX-License-Identifier: Apache-2.0
#include "support/Threads.h"

#include <gtest/gtest.h>

using vxsupport::runningTasks;
using vxsupport::threadsFor;

TEST(Threads, AreAsManyAsFreeCoresAndPixelsAllow)
{
    constexpr std::size_t large = std::size_t{1} << 20;
    EXPECT_EQ(threadsFor(large, 4, 4, 1), 4) << "alone";
    EXPECT_EQ(threadsFor(large, 4, 4, 3), 2) << "beside two others";
    EXPECT_EQ(threadsFor(large, 4, 4, 9), 1);
    EXPECT_EQ(threadsFor(large, 2, 64, 11), 2) << "bound to two cores of a large machine";
    EXPECT_EQ(threadsFor(80 * 60, 4, 4, 1), 1) << "a small frame";
    EXPECT_EQ(threadsFor(160 * 120, 4, 4, 1), 2);
    EXPECT_EQ(threadsFor(large, 4, 4, 0), 4) << "a machine that counts none";
    EXPECT_EQ(runningTasks("8.89 9.27 7.50 8/141 15409\n"), 8);
    EXPECT_EQ(runningTasks(""), std::nullopt);
    EXPECT_EQ(runningTasks("0.1 0.2 0.3 idle"), std::nullopt);
}
