// SPDX-License-Identifier: Apache-2.0
// The operators between the grids of the fast solver and of the reference one.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <random>

#include "core/base/Exception.h"
#include "enhancement/superresolution/LineRecorder.h"
#include "enhancement/superresolution/SrFloatConvolution.h"
#include "enhancement/superresolution/reference/SuperResolutionConvolution.h"

using namespace halvor::vx;

namespace {

std::vector<float> randomValues(std::size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> values(-2.0F, 2.0F);
    std::vector<float> result(count);
    for (float& value : result)
        value = values(random);
    return result;
}

double dot(const std::vector<float>& a, const std::vector<float>& b)
{
    return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}

// A pair of operators with their sizes, kernels and arrays.
template <typename Operators>
struct Model
{
    Model(int width, int height, int taps, float factor)
        : operators(static_cast<int>(static_cast<float>(width) * factor),
                    static_cast<int>(static_cast<float>(height) * factor), taps, taps, factor),
          kernelX(randomValues(taps, 1)),
          kernelY(randomValues(taps, 2)),
          fullWidth(static_cast<int>(static_cast<float>(width) * factor) + taps - 1),
          fullHeight(static_cast<int>(static_cast<float>(height) * factor) + taps - 1),
          sparse(randomValues(static_cast<std::size_t>(width) * height, 3)),
          mask(sparse.size(), 1),
          full(randomValues(static_cast<std::size_t>(fullWidth) * fullHeight, 4))
    {}

    std::vector<float> scatter()
    {
        std::vector<float> out(full.size(), 7.0F);
        operators.fullConvFromSparse(sparse.data(), kernelX.data(), kernelY.data(), mask.data(), out.data());
        return out;
    }
    std::vector<float> gather()
    {
        std::vector<float> out(sparse.size(), 7.0F);
        operators.validCorrToSparse(full.data(), kernelX.data(), kernelY.data(), out.data());
        return out;
    }

    Operators operators;
    std::vector<float> kernelX;
    std::vector<float> kernelY;
    int fullWidth;
    int fullHeight;
    std::vector<float> sparse;
    std::vector<char> mask;
    std::vector<float> full;
};

using Fast = Model<SrFloatConvolution>;
using Serial = Model<SuperResolutionConvolution>;

// What a pixel in the third column of the second row becomes at a factor of 3.
template <typename Operators>
void expectTapsFromRow(int top)
{
    Model<Operators> model(4, 3, 9, 3.0F);
    std::fill(model.sparse.begin(), model.sparse.end(), 0.0F);
    model.sparse[1 * 4 + 2] = 1.0F;
    const std::vector<float> full = model.scatter();
    for (int y = 0; y < model.fullHeight; ++y)
        for (int x = 0; x < model.fullWidth; ++x) {
            const bool inside = y >= top && y < top + 9 && x >= 6 && x < 15;
            const float expected = inside ? model.kernelY[y - top] * model.kernelX[x - 6] : 0.0F;
            ASSERT_EQ(full[y * model.fullWidth + x], expected) << x << ", " << y;
        }
}

}  // namespace

TEST(SparseConvolution, OfTheFastSolverEqualsTheReferenceOperatorsBitForBit)
{
    for (const auto& [width, height] : {std::pair(1, 1), {2, 5}, {17, 6}, {40, 33}}) {
        Fast fast(width, height, 6, 2.0F);
        Serial serial(width, height, 6, 2.0F);
        for (std::size_t i = 0; i < fast.mask.size(); i += 3)
            fast.mask[i] = serial.mask[i] = 0;
        EXPECT_EQ(fast.scatter(), serial.scatter());
        EXPECT_EQ(fast.gather(), serial.gather());
    }
}

TEST(SparseConvolution, OperatorsAreTransposesOfEachOther)
{
    Fast fast(31, 22, 6, 2.0F);
    EXPECT_NEAR(dot(fast.scatter(), fast.full), dot(fast.sparse, fast.gather()), 1e-3);
    Serial serial(5, 4, 9, 3.0F);
    EXPECT_NEAR(dot(serial.scatter(), serial.full), dot(serial.sparse, serial.gather()), 1e-4);
}

TEST(SparseConvolution, StepsByTwoRowsWhateverTheFactorAndInTheReferenceByTheFactor)
{
    expectTapsFromRow<SrFloatConvolution>(2);
    expectTapsFromRow<SuperResolutionConvolution>(3);
}

TEST(SparseConvolution, ReadsMasksAsSignedBytes)
{
    Fast model(9, 7, 6, 2.0F);
    const std::vector<float> kept = model.scatter();
    std::fill(model.mask.begin(), model.mask.end(), static_cast<char>(255));
    std::vector<float> negated = model.scatter();
    for (float& value : negated)
        value = -value;
    EXPECT_EQ(negated, kept);
}

TEST(SparseConvolution, CopiesShareTheIntermediateAndOutliveTheOriginal)
{
    Fast model(12, 9, 6, 2.0F);
    const std::vector<float> expected = model.scatter();
    model.operators = SrFloatConvolution(SrFloatConvolution(24, 18, 6, 6, 2.0F));
    EXPECT_EQ(model.scatter(), expected);
}

TEST(SparseConvolution, RefusesFactorsForWhichRowsWouldLeaveTheGrid)
{
    Fast model(6, 6, 4, 1.5F);
    EXPECT_THROW(model.scatter(), Exception);
    EXPECT_THROW(model.gather(), Exception);
}

TEST(SparseConvolution, OfTheReferenceReportsItsCallsOneLevelBelowTheSolver)
{
    Serial model(2, 2, 1, 2.0F);
    const auto recorder = vxtest::listenTo(model.operators.getInternalDebugChannelObjects(), 12);
    model.scatter();
    model.gather();
    EXPECT_THAT(recorder->textsOf("SR", 12),
                testing::ElementsAre("start SuperResolutionConvolution.fullConvFromSparse",
                                     "end SuperResolutionConvolution.fullConvFromSparse",
                                     "start SuperResolutionConvolution.validCorrToSparse",
                                     "end SuperResolutionConvolution.validCorrToSparse"));
}
