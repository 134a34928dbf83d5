// SPDX-License-Identifier: Apache-2.0
#include "core/imaging/PointSpread.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numeric>
#include <vector>

using namespace halvor::vx;

TEST(PointSpread, ApproximatesTheErrorFunction)
{
    EXPECT_EQ(approxErf(0.0F), 0.0F);
    for (float x = 0.01F; x < 4.0F; x += 0.01F) {
        EXPECT_NEAR(approxErf(x), std::erf(x), 4e-4F * std::erf(x)) << x;
        EXPECT_EQ(approxErf(-x), -approxErf(x));
    }
}

TEST(PointSpread, KernelIsSymmetricWithAnEmptyTapAtEachEnd)
{
    std::array<float, 6> taps{};
    fillBasePsf(0.683F, 2.0F, taps);
    EXPECT_EQ(taps[0], 0.0F);
    EXPECT_EQ(taps[5], 0.0F);
    EXPECT_EQ(taps[1], taps[4]);
    EXPECT_EQ(taps[2], taps[3]);
    EXPECT_NEAR(std::accumulate(taps.begin(), taps.end(), 0.0F), 1.0F, 1e-6F);
    // The share of a Gaussian of that width between 1 and 2 pixels from its middle, against that within 1.
    const double inner = std::erf(1.0 / (0.683 * std::sqrt(2.0)));
    const double outer = std::erf(2.0 / (0.683 * std::sqrt(2.0))) - inner;
    EXPECT_NEAR(taps[1] / taps[2], outer / inner, 1e-3);
}

TEST(PointSpread, PositiveShiftMovesTheKernelTowardsLowerIndices)
{
    const std::vector<float> base{0.0F, 1.0F, 3.0F, 3.0F, 1.0F, 0.0F};
    std::vector<float> taps(6);
    shiftPsf(base, 1.0F, taps);
    EXPECT_EQ(taps, (std::vector<float>{1.0F, 3.0F, 3.0F, 1.0F, 0.0F, 0.0F}));
    shiftPsf(base, -1.0F, taps);
    EXPECT_EQ(taps, (std::vector<float>{0.0F, 0.0F, 1.0F, 3.0F, 3.0F, 1.0F}));
    shiftPsf(base, 0.25F, taps);
    EXPECT_EQ(taps, (std::vector<float>{0.25F, 1.5F, 3.0F, 2.5F, 0.75F, 0.0F}));
    shiftPsf(base, 0.0F, taps);
    EXPECT_EQ(taps, base);
}
