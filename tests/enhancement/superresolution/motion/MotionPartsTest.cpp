// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/core.hpp>
#include <vector>

#include "doubles/SameBits.h"
#include "enhancement/superresolution/motion/BandedSystem.h"
#include "enhancement/superresolution/motion/ControlPoints.h"
#include "enhancement/superresolution/motion/CubicSpline.h"
#include "enhancement/superresolution/motion/DenseSystem.h"
#include "enhancement/superresolution/motion/FrameMotion.h"
#include "enhancement/superresolution/motion/FrameTaps.h"
#include "enhancement/superresolution/motion/Smoothing.h"
#include "support/Random.h"

using namespace halvor::vx;
using vxsupport::Random;

namespace {

cv::Mat_<float> noise(cv::Size size, std::uint64_t seed, double deviation = 1.0)
{
    Random random(seed);
    cv::Mat_<float> image(size);
    for (float& pixel : image)
        pixel = static_cast<float>(deviation * random.normal());
    return image;
}

// The share of tap n of a pixel whose centre lies at `centre`, by the method's formula.
double plainTap(int n, double centre, double sigma)
{
    double sum = 0.0;
    double total = 0.0;
    for (int cell = -2; cell < 2; ++cell) {
        const double share =
            std::erf((cell + 1) / (std::sqrt(2.0) * sigma)) - std::erf(cell / (std::sqrt(2.0) * sigma));
        const double x = std::fabs(n - centre - (cell + 0.5));
        total += share;
        if (x < 1.0)
            sum += share * ((1.5 * x - 2.5) * x * x + 1.0);
        else if (x < 2.0)
            sum += share * (((2.5 - 0.5 * x) * x - 4.0) * x + 2.0);
    }
    return sum / total;
}

}  // namespace

TEST(CubicSpline, GoesThroughPixelsAndReproducesCubics)
{
    for (const cv::Size size : {cv::Size(40, 30), cv::Size(5, 9)}) {
        const cv::Mat_<float> image = noise(size, 1);
        CubicSpline spline(size);
        spline.fit(image);
        const std::vector<float> still(static_cast<std::size_t>(size.width), 0.0F);
        const std::vector<float> mirrored(static_cast<std::size_t>(size.width), -1.0F);
        std::vector<float> out(still.size());
        for (int y = 0; y < size.height; ++y) {
            spline.sampleRow(y, still.data(), still.data(), out.data());
            for (int x = 0; x < size.width; ++x)
                EXPECT_NEAR(out[static_cast<std::size_t>(x)], image(y, x), 2e-5F);
        }
        spline.sampleRow(size.height - 1, mirrored.data(), mirrored.data(), out.data());
        EXPECT_NEAR(out[0], image(size.height - 2, 1), 2e-5F);
        EXPECT_NEAR(out.back(), image(size.height - 2, size.width - 2), 2e-5F);
    }
    const auto cubic = [](double x, double y) {
        return 0.001 * x * x * x - 0.02 * x * y + 0.003 * y * y * x;
    };
    cv::Mat_<float> image(60, 60);
    for (int y = 0; y < 60; ++y)
        for (int x = 0; x < 60; ++x)
            image(y, x) = static_cast<float>(cubic(x - 30, y - 30));
    CubicSpline spline(image.size());
    spline.fit(image);
    std::vector<float> out(60);
    spline.sampleRow(30, std::vector<float>(60, 0.37F).data(), std::vector<float>(60, -1.61F).data(),
                     out.data());
    for (int x = 22; x < 38; ++x)
        EXPECT_NEAR(out[static_cast<std::size_t>(x)], cubic(x - 30 - 0.37, 1.61), 2e-4);
}

TEST(FrameTaps, PredictAsTheFormulaTells)
{
    const cv::Size frame(20, 16);
    const cv::Size size = borderedPicture(frame);
    cv::Mat_<float> picture(size.height, size.width + 16, 0.0F);
    noise(size, 2).copyTo(picture(cv::Rect({0, 0}, size)));
    for (const double sigma : {0.3, 0.683}) {
        const TapTable table(sigma);
        for (const double d : {0.0, 0.24, -0.51, 2.75, 3.9}) {
            const std::vector<float> dx(20, static_cast<float>(d));
            const std::vector<float> dy(20, static_cast<float>(-0.5 * d));
            std::vector<float> seen(20);
            predictRow(table, picture, size, 7, dx.data(), dy.data(), 20, seen.data());
            for (const int x : {0, 9, 19}) {
                const double across = 2.0 * (x - d) + 8.5;
                const double down = 2.0 * (7 + 0.5 * d) + 8.5;
                double sum = 0.0;
                bool fits = true;
                for (int i = 0; i < 7; ++i)
                    for (int j = 0; j < 7; ++j) {
                        const int column = static_cast<int>(std::floor(across - 2.5)) + i;
                        const int row = static_cast<int>(std::floor(down - 2.5)) + j;
                        fits = fits && column >= 0 && column < size.width;
                        if (fits)
                            sum += plainTap(column, across, sigma) * plainTap(row, down, sigma) *
                                   static_cast<double>(picture(row, column));
                    }
                EXPECT_NEAR(seen[static_cast<std::size_t>(x)], fits ? sum : 0.0, 1e-5) << sigma << ' ' << d;
            }
        }
    }
}

// The normal operator is A^T W A, in whole and in parts.
TEST(FrameTaps, AddTheTransposeOfWhatTheyPredict)
{
    const cv::Size frame(37, 33);
    const cv::Size size = borderedPicture(frame);
    const TapTable table(0.5);
    FrameTaps taps(frame);
    const cv::Mat_<float> dx = noise(frame, 3);
    const cv::Mat_<float> dy = noise(frame, 4, 3.0);
    cv::Mat_<float> weight = noise(frame, 5);
    cv::max(weight, 0.0F, weight);
    const cv::Mat_<float> value = noise(frame, 6);
    const auto padded = [&](std::uint64_t seed) {
        cv::Mat_<float> image(size.height, size.width + 16, 0.0F);
        noise(size, seed).copyTo(image(cv::Rect({0, 0}, size)));
        return image;
    };
    const cv::Mat_<float> u = padded(7);
    const cv::Mat_<float> v = padded(8);
    double expected = 0.0;
    double residual = 0.0;
    std::vector<float> seenU(37);
    std::vector<float> seenV(37);
    for (int y = 0; y < frame.height; ++y) {
        taps.setRow(y, dx[y], dy[y], weight[y], value[y]);
        predictRow(table, u, size, y, dx[y], dy[y], frame.width, seenU.data());
        predictRow(table, v, size, y, dx[y], dy[y], frame.width, seenV.data());
        for (int x = 0; x < frame.width; ++x) {
            const auto i = static_cast<std::size_t>(x);
            expected += static_cast<double>(weight(y, x) * seenU[i] * seenV[i]);
            residual += static_cast<double>(weight(y, x) * seenV[i] * (value(y, x) - seenU[i]));
        }
    }
    cv::Mat_<float> whole(u.size(), 0.0F);
    addNormal(table, taps, u, {0, size.height}, whole);
    EXPECT_NEAR(whole.dot(v), expected, 1e-3 * std::fabs(expected));
    cv::Mat_<float> left(u.size(), 0.0F);
    addResidual(table, taps, u, {0, size.height}, left);
    EXPECT_NEAR(left.dot(v), residual, 1e-2);
    cv::Mat_<float> parts(u.size(), 0.0F);
    for (int first = 0; first < size.height; first += 11)
        addNormal(table, taps, u, {first, std::min(first + 11, size.height)}, parts);
    EXPECT_TRUE(vxtest::sameBits(whole, parts));
}

TEST(BandedSystem, SolvesAsADenseOne)
{
    constexpr int n = 12;
    Random random(9);
    BandedSystem banded(n, 3);
    DenseSystem<n> dense(n);
    for (int solve = 0; solve < 2; ++solve) {
        banded.clear();
        dense = DenseSystem<n>(n);
        for (int i = 0; i < n; ++i) {
            for (int j = std::max(0, i - 3); j <= i; ++j) {
                const double value = i == j ? 9.0 : random.normal();
                banded.add(i, j, value);
                dense.matrix[static_cast<std::size_t>(i)][static_cast<std::size_t>(j)] = value;
                dense.matrix[static_cast<std::size_t>(j)][static_cast<std::size_t>(i)] = value;
            }
            banded.right(i) = dense.right[static_cast<std::size_t>(i)] = random.normal();
        }
        ASSERT_TRUE(banded.solve());
        ASSERT_TRUE(dense.solve());
        for (int i = 0; i < n; ++i)
            EXPECT_NEAR(banded.right(i), dense.right[static_cast<std::size_t>(i)], 1e-12);
    }
    banded.clear();
    EXPECT_FALSE(banded.solve());
    dense = DenseSystem<n>(2);
    dense.matrix[0][0] = dense.matrix[0][1] = dense.matrix[1][0] = dense.matrix[1][1] = 1.0;
    EXPECT_FALSE(dense.solve());
}

// A field that is linear between the points is found at once where the images have structure everywhere.
TEST(ControlPoints, FindAMotionThatTheyCanHold)
{
    for (const cv::Size size : {cv::Size(81, 49), cv::Size(49, 81), cv::Size(9, 9)}) {
        ControlPoints points(size);
        points.beginStep();
        const cv::Mat_<float> across = noise(size, 10, 100.0);
        const cv::Mat_<float> down = noise(size, 11, 100.0);
        const std::vector<float> weight(static_cast<std::size_t>(size.width), 0.5F);
        std::vector<float> error(weight.size());
        const auto motion = [&](int x, int y) {
            return PointF{0.01F * static_cast<float>(x) - 0.3F, 0.02F - 0.006F * static_cast<float>(y)};
        };
        for (int y = 0; y < size.height; ++y) {
            for (int x = 0; x < size.width; ++x)
                error[static_cast<std::size_t>(x)] =
                    across(y, x) * motion(x, y).x + down(y, x) * motion(x, y).y;
            points.add(y, {across[y], down[y], error.data(), weight.data()});
        }
        EXPECT_GT(points.finishStep(), 0.0F);
        for (int y = 0; y < size.height; y += 7) {
            std::vector<float> dx(weight.size(), 1.0F);
            std::vector<float> dy(weight.size(), 0.0F);
            points.addToRow(y, dx.data(), dy.data());
            for (int x = 0; x < size.width; ++x) {
                EXPECT_NEAR(dx[static_cast<std::size_t>(x)], 1.0F + motion(x, y).x, 0.02F);
                EXPECT_NEAR(dy[static_cast<std::size_t>(x)], motion(x, y).y, 0.02F);
            }
        }
    }
}

TEST(FrameNoise, IsThatOfTheNoiseWhateverTheRamp)
{
    cv::Mat_<float> frame = noise({160, 120}, 12, 3.0);
    for (int y = 0; y < frame.rows; ++y)
        for (int x = 0; x < frame.cols; ++x)
            frame(y, x) += static_cast<float>(5 * x - 7 * y);
    std::vector<float> scratch(frame.total());
    EXPECT_NEAR(frameNoise(frame, scratch), 3.0F, 0.1F);
    EXPECT_EQ(frameNoise(cv::Mat_<float>(4, 50, 1.0F), scratch), 0.0F);
    std::vector<float> four{4.0F, 1.0F, 3.0F, 9.0F};
    EXPECT_EQ(medianOf(four), 3.5F);
    std::vector<float> three{4.0F, 1.0F, 9.0F};
    EXPECT_EQ(medianOf(three), 4.0F);
}
