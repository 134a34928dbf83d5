// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "enhancement/superresolution/engine/SlidingWindow.h"
#include "enhancement/superresolution/engine/SpectrumWindow.h"

using namespace halvor::vx;
using testing::ElementsAre;

TEST(SlidingWindow, ReusesTheOldestSlotAndStartsOverWhenCleared)
{
    SlidingWindow<int> window(std::vector<int>{10, 20, 30});
    EXPECT_EQ(window.count(), 0);
    std::vector<int> reused;
    for (int entry = 1; entry <= 5; ++entry) {
        int& slot = window.push();
        reused.push_back(slot);
        slot = entry;
        EXPECT_EQ(window.newest(), entry);
    }
    EXPECT_THAT(reused, ElementsAre(10, 20, 30, 1, 2)) << "a slot keeps what it holds until it is reused";
    EXPECT_THAT(window.slots(), ElementsAre(3, 4, 5)) << "oldest first";

    window.clear();
    EXPECT_EQ(window.count(), 0);
    EXPECT_EQ(window.push(), 3) << "the slots stay where they are";
    EXPECT_EQ(window.count(), 1);
    EXPECT_EQ(window.capacity(), 3);
}

TEST(SpectrumWindow, SlidesMemoryOfItsOwnForEachPlace)
{
    SpectrumWindow window(4, 2);
    const auto first = window.push();
    const auto second = window.push();
    EXPECT_EQ(second - first, 4);
    EXPECT_EQ(window.push(), first);
    EXPECT_THAT(std::vector(window.pointers(), window.pointers() + 2), ElementsAre(second, first));
    window.clear();
    EXPECT_EQ(window.push(), second);
}
