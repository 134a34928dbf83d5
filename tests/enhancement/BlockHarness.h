// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "doubles/BlockFrames.h"

namespace blocktest {

/// Holds a block, apart and in place, against its plain form over a stream whose settings change with every frame.
template <typename Settings, typename MakeBlock, typename MakePlain, typename FrameOf>
void compareStream(const std::vector<Settings>& stream, MakeBlock makeBlock, MakePlain makePlain,
                   FrameOf frameOf, const std::string& what)
{
    Settings settings = stream.front();
    auto block = makeBlock(settings);
    auto inPlace = makeBlock(settings);
    auto plain = makePlain(settings);
    for (int number = 0; number < static_cast<int>(stream.size()); ++number) {
        settings = stream[static_cast<std::size_t>(number)];
        std::vector<int> frame = frameOf(number);
        std::vector<int> out(frame.size());
        std::vector<int> expected(frame.size());
        block.ProcessFrame(frame.data(), out.data());
        plain.process(frame.data(), expected.data());
        inPlace.ProcessFrame(frame.data(), frame.data());
        ASSERT_EQ(out, expected) << what << ", frame " << number;
        ASSERT_EQ(frame, expected) << what << ", frame " << number << ", in place";
    }
}

}  // namespace blocktest
