// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "doubles/BlockFrames.h"
#include "doubles/PlainSpatial.h"
#include "enhancement/snr_cmod.h"

using namespace blocktest;

namespace {

// The gain changes behind the reference that both forms keep.
void compareGains(Size size, Scene scene, int bypass)
{
    int gain = 0;
    SnrCmod block(size.cols, size.rows, gain, bypass);
    const plain::Spatial plain(size.cols, size.rows, gain, bypass);
    const std::vector<int> in = makeFrame(scene, size, 1);
    std::vector<int> out(in.size());
    std::vector<int> expected(in.size());
    for (const int next : {0, 1, 6, 31, 1000, 200000, INT_MAX, -1, -7, INT_MIN}) {
        gain = next;
        block.ProcessFrame(in.data(), out.data());
        plain.process(in.data(), expected.data());
        ASSERT_EQ(out, expected) << describe(scene, size, bypass, gain);
    }
}

}  // namespace

TEST(SpatialBlock, EqualsItsPlainFormBitForBit)
{
    for (const Scene scene : allScenes)
        for (const int bypass : {0, 1, 2})
            for (const Size size : smallSizes)
                compareGains(size, scene, bypass);
    compareGains(sharedSize, Scene::wild, 2);
}
