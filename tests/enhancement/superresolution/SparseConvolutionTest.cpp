#include "enhancement/superresolution/SrFloatConvolution.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <opencv2/core.hpp>
#include <random>
#include <utility>
#include <vector>

#include "core/base/Exception.h"
#include "enhancement/superresolution/PlainSolver.h"

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
    double sum = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i)
        sum += static_cast<double>(a[i]) * b[i];
    return sum;
}

// A pair of operators with their sizes, kernels and arrays.
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

    SrFloatConvolution operators;
    std::vector<float> kernelX;
    std::vector<float> kernelY;
    int fullWidth;
    int fullHeight;
    std::vector<float> sparse;
    std::vector<char> mask;
    std::vector<float> full;
};

}  // namespace

TEST(SparseConvolution, EqualsThePlainLoopsBitForBit)
{
    for (const auto& [width, height] : {std::pair(1, 1), {2, 5}, {17, 6}, {40, 33}}) {
        Model model(width, height, 6, 2.0F);
        for (std::size_t i = 0; i < model.mask.size(); i += 3)
            model.mask[i] = 0;
        plain::Convolution expected{width, height, 6, 2};
        std::vector<float> full(model.full.size());
        expected.fullConvFromSparse(model.sparse.data(), model.kernelX.data(), model.kernelY.data(),
                                    model.mask.data(), full.data());
        EXPECT_EQ(model.scatter(), full);
        std::vector<float> sparse(model.sparse.size());
        expected.validCorrToSparse(model.full.data(), model.kernelX.data(), model.kernelY.data(),
                                   sparse.data());
        EXPECT_EQ(model.gather(), sparse);
    }
}

TEST(SparseConvolution, OperatorsAreTransposesOfEachOther)
{
    Model model(31, 22, 6, 2.0F);
    EXPECT_NEAR(dot(model.scatter(), model.full), dot(model.sparse, model.gather()), 1e-3);
}

TEST(SparseConvolution, StepsByTwoRowsWhateverTheFactor)
{
    Model model(4, 3, 9, 3.0F);
    std::fill(model.sparse.begin(), model.sparse.end(), 0.0F);
    model.sparse[1 * 4 + 2] = 1.0F;
    const std::vector<float> full = model.scatter();
    for (int y = 0; y < model.fullHeight; ++y)
        for (int x = 0; x < model.fullWidth; ++x) {
            const bool inside = y >= 2 && y < 11 && x >= 6 && x < 15;
            const float expected = inside ? model.kernelY[y - 2] * model.kernelX[x - 6] : 0.0F;
            EXPECT_EQ(full[y * model.fullWidth + x], expected) << x << ", " << y;
        }
}

TEST(SparseConvolution, ReadsMasksAsSignedBytes)
{
    Model model(9, 7, 6, 2.0F);
    const std::vector<float> kept = model.scatter();
    std::fill(model.mask.begin(), model.mask.end(), static_cast<char>(255));
    std::vector<float> negated = model.scatter();
    for (float& value : negated)
        value = -value;
    EXPECT_EQ(negated, kept);
    std::fill(model.mask.begin(), model.mask.end(), 0);
    EXPECT_EQ(model.scatter(), std::vector<float>(model.full.size(), 0.0F));
}

TEST(SparseConvolution, CopiesShareTheIntermediateAndOutliveTheOriginal)
{
    Model model(12, 9, 6, 2.0F);
    const std::vector<float> expected = model.scatter();
    model.operators = SrFloatConvolution(SrFloatConvolution(24, 18, 6, 6, 2.0F));
    EXPECT_EQ(model.scatter(), expected);
}

TEST(SparseConvolution, RefusesFactorsForWhichRowsWouldLeaveTheGrid)
{
    Model model(6, 6, 4, 1.5F);
    EXPECT_THROW(model.scatter(), Exception);
    EXPECT_THROW(model.gather(), Exception);
}

namespace {

// The running sum along one line of a box filter, in the order of its additions.
std::vector<float> filteredLine(const std::vector<float>& line, int radius)
{
    const int n = static_cast<int>(line.size());
    std::vector<float> out(line.size());
    const float inv = 1.0F / (static_cast<float>(radius) * 2.0F + 1.0F);
    float sum = 0.0F;
    for (int i = 0; i < radius; ++i)
        sum += line[i];
    int count = radius + 1;
    for (int i = 0; i < n; ++i) {
        const bool head = i < radius;
        const bool tail = i >= n - radius;
        if (!tail)
            sum += line[i + radius];
        if (tail)
            --count;
        out[i] = head || tail ? sum / static_cast<float>(count) : sum * inv;
        if (head)
            ++count;
        else
            sum -= line[i - radius];
    }
    return out;
}

}  // namespace

TEST(MeanFilter, EqualsTheRunningSumsBitForBit)
{
    for (const auto& [size, radius] : {std::pair(cv::Size(300, 11), 0), std::pair(cv::Size(300, 11), 1),
                                       std::pair(cv::Size(9, 8), 4), std::pair(cv::Size(20, 61), 4)}) {
        cv::Mat_<float> src(size);
        const std::vector<float> values = randomValues(src.total(), 9);
        std::copy(values.begin(), values.end(), src.begin());
        cv::Mat_<float> expected(src.size());
        for (int r = 0; r < src.rows; ++r)
            cv::Mat(filteredLine(src.row(r), radius)).reshape(1, 1).copyTo(expected.row(r));
        for (int c = 0; c < src.cols; ++c)
            cv::Mat(filteredLine(expected.col(c), radius)).copyTo(expected.col(c));
        cv::Mat_<float> dst;
        SrFloatConvolution::blurImageMeanFilter(src, radius, dst);
        ASSERT_EQ(dst.size(), src.size());
        EXPECT_EQ(cv::countNonZero(dst != expected), 0) << size << ", radius " << radius;
    }
}

TEST(MeanFilter, KeepsAFlatImageFlatUpToTheCorners)
{
    const cv::Mat_<float> src(9, 13, 21.5F);
    cv::Mat_<float> dst;
    SrFloatConvolution::blurImageMeanFilter(src, 3, dst);
    double least = 0.0;
    double greatest = 0.0;
    cv::minMaxLoc(dst, &least, &greatest);
    EXPECT_NEAR(least, 21.5, 1e-4);
    EXPECT_NEAR(greatest, 21.5, 1e-4);
}
