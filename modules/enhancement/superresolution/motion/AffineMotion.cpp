// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/motion/AffineMotion.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "core/base/Kernel.h"
#include "core/base/RowSums.h"
#include "enhancement/superresolution/motion/DenseSystem.h"

namespace halvor::vx {

namespace {

constexpr int mostSteps = 40;
constexpr double tolerance = 1e-4;  // pixels; steps end when none is larger
constexpr double leastShare = 0.1;  // of the image that two images must have in common

struct RowView
{
    const float* across;
    const float* down;
    const float* error;
    const float* counts;
    const float* places;
};

// Sums of products of a row, each times 1, X and X squared as far as needed.
struct RowProducts
{
    std::array<double, 3> acrossAcross;
    std::array<double, 3> acrossDown;
    std::array<double, 3> downDown;
    std::array<double, 2> acrossError;
    std::array<double, 2> downError;
    std::array<double, 2> across;
    std::array<double, 2> down;
    double error;
    double count;
};

VX_KERNEL void sumProducts(const RowView& row, int n, RowProducts& sums)
{
    const float* const a = row.across;
    const float* const d = row.down;
    const float* const e = row.error;
    const float* const x = row.places;
    sums.acrossAcross = {laneSum(n, [=](int i) { return a[i] * a[i]; }),
                         laneSum(n, [=](int i) { return a[i] * a[i] * x[i]; }),
                         laneSum(n, [=](int i) { return a[i] * a[i] * (x[i] * x[i]); })};
    sums.acrossDown = {laneSum(n, [=](int i) { return a[i] * d[i]; }),
                       laneSum(n, [=](int i) { return a[i] * d[i] * x[i]; }),
                       laneSum(n, [=](int i) { return a[i] * d[i] * (x[i] * x[i]); })};
    sums.downDown = {laneSum(n, [=](int i) { return d[i] * d[i]; }),
                     laneSum(n, [=](int i) { return d[i] * d[i] * x[i]; }),
                     laneSum(n, [=](int i) { return d[i] * d[i] * (x[i] * x[i]); })};
    sums.acrossError = {laneSum(n, [=](int i) { return a[i] * e[i]; }),
                        laneSum(n, [=](int i) { return a[i] * e[i] * x[i]; })};
    sums.downError = {laneSum(n, [=](int i) { return d[i] * e[i]; }),
                      laneSum(n, [=](int i) { return d[i] * e[i] * x[i]; })};
    sums.across = {laneSum(n, [=](int i) { return a[i]; }), laneSum(n, [=](int i) { return a[i] * x[i]; })};
    sums.down = {laneSum(n, [=](int i) { return d[i]; }), laneSum(n, [=](int i) { return d[i] * x[i]; })};
    sums.error = laneSum(n, [=](int i) { return e[i]; });
    const float* const c = row.counts;
    sums.count = laneSum(n, [=](int i) { return c[i]; });
}

VX_KERNEL void slopesAndErrors(const float* above, const float* own, const float* below,
                               const float* frameAbove, const float* frame, const float* frameBelow,
                               const float* VX_RESTRICT counts, int n, float* VX_RESTRICT across,
                               float* VX_RESTRICT down, float* VX_RESTRICT error)
{
    for (int i = 1; i < n - 1; ++i) {
        const float toRight = (own[i + 1] - own[i - 1]) + (frame[i + 1] - frame[i - 1]);
        const float toBelow = (below[i] - above[i]) + (frameBelow[i] - frameAbove[i]);
        across[i] = counts[i] * (0.25F * toRight);
        down[i] = counts[i] * (0.25F * toBelow);
        error[i] = counts[i] * (own[i] - frame[i]);
    }
}

float placeOf(int position, int length)
{
    return static_cast<float>(position) / static_cast<float>(length) - 0.5F;
}

}  // namespace

void AffineMotion::fillRow(const cv::Size& size, int row, float* dx, float* dy) const
{
    const auto vertical = static_cast<double>(placeOf(row, size.height));
    for (int i = 0; i < size.width; ++i) {
        const auto across = static_cast<double>(placeOf(i, size.width));
        dx[i] = static_cast<float>(x[0] + x[2] * vertical + x[1] * across);
        dy[i] = static_cast<float>(y[0] + y[2] * vertical + y[1] * across);
    }
}

AffineMotion AffineMotion::doubled() const
{
    AffineMotion result = *this;
    for (std::size_t i = 0; i < x.size(); ++i) {
        result.x[i] *= 2.0;
        result.y[i] *= 2.0;
    }
    return result;
}

bool AffineMotion::isFinite() const
{
    const auto finite = [](double value) { return std::isfinite(value); };
    return std::all_of(x.begin(), x.end(), finite) && std::all_of(y.begin(), y.end(), finite);
}

/// The normal equations: terms 0 to 2 of dx, then those of dy.
struct AffineFit::Sums
{
    std::array<std::array<double, 6>, 6> matrix{};
    std::array<double, 6> pull{};
    std::array<double, 6> slope{};
    double error = 0.0;
    double count = 0.0;

    void add(const RowProducts& row, double place);
};

void AffineFit::Sums::add(const RowProducts& row, double place)
{
    // Term i is X to the powerX[i] times Y to the powerY[i].
    constexpr std::array<std::size_t, 3> powerX{0, 1, 0};
    const std::array<double, 3> factorY{1.0, 1.0, place};
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j) {
            const double factor = factorY[i] * factorY[j];
            const std::size_t power = powerX[i] + powerX[j];
            matrix[i][j] += factor * row.acrossAcross[power];
            matrix[i][j + 3] += factor * row.acrossDown[power];
            matrix[j + 3][i] += factor * row.acrossDown[power];
            matrix[i + 3][j + 3] += factor * row.downDown[power];
        }
        pull[i] += factorY[i] * row.acrossError[powerX[i]];
        pull[i + 3] += factorY[i] * row.downError[powerX[i]];
        slope[i] += factorY[i] * row.across[powerX[i]];
        slope[i + 3] += factorY[i] * row.down[powerX[i]];
    }
    error += row.error;
    count += row.count;
}

AffineFit::AffineFit(const cv::Size& size)
    : size_(size),
      prediction_(size),
      places_(static_cast<std::size_t>(size.width)),
      dx_(places_.size()),
      dy_(places_.size()),
      across_(places_.size()),
      down_(places_.size()),
      error_(places_.size()),
      counts_(places_.size())
{
    for (int i = 0; i < size.width; ++i)
        places_[static_cast<std::size_t>(i)] = placeOf(i, size.width);
}

bool AffineFit::run(const CubicSpline& reference, const cv::Mat_<float>& frame, Terms terms, int margin,
                    AffineMotion& motion)
{
    const int kept = std::max(1, std::min({margin, size_.width / 4, size_.height / 4}));
    const double needed = leastShare * static_cast<double>(size_.area());
    const auto count = static_cast<std::size_t>(terms);
    for (int step = 0; step < mostSteps; ++step) {
        for (int y = 0; y < size_.height; ++y) {
            motion.fillRow(size_, y, dx_.data(), dy_.data());
            reference.sampleRow(y, dx_.data(), dy_.data(), prediction_[y]);
        }
        const Sums sums = gather(frame, motion, kept);
        if (sums.count < needed)
            return false;
        DenseSystem<6> system(2 * count);
        for (std::size_t i = 0; i < 2 * count; ++i) {
            const std::size_t row = i % count + (i / count) * 3;
            system.right[i] = sums.pull[row] - sums.error / sums.count * sums.slope[row];
            for (std::size_t j = 0; j < 2 * count; ++j)
                system.matrix[i][j] = sums.matrix[row][j % count + (j / count) * 3];
        }
        if (!system.solve())
            return false;
        double largest = 0.0;
        for (std::size_t i = 0; i < count; ++i) {
            motion.x[i] += system.right[i];
            motion.y[i] += system.right[i + count];
            largest = std::max({largest, std::fabs(system.right[i]), std::fabs(system.right[i + count])});
        }
        if (!motion.isFinite())
            return false;
        if (largest < tolerance)
            break;
    }
    return true;
}

AffineFit::Sums AffineFit::gather(const cv::Mat_<float>& frame, const AffineMotion& motion, int margin)
{
    Sums sums;
    RowProducts products{};
    const RowView row{across_.data(), down_.data(), error_.data(), counts_.data(), places_.data()};
    for (int y = margin; y < size_.height - margin; ++y) {
        maskRow(motion, y, margin);
        slopesAndErrors(prediction_[y - 1], prediction_[y], prediction_[y + 1], frame[y - 1], frame[y],
                        frame[y + 1], counts_.data(), size_.width, across_.data(), down_.data(),
                        error_.data());
        sumProducts(row, size_.width, products);
        sums.add(products, static_cast<double>(placeOf(y, size_.height)));
    }
    return sums;
}

// A pixel counts that lies within the margin, and at least a pixel inside of the reference.
void AffineFit::maskRow(const AffineMotion& motion, int y, int margin)
{
    motion.fillRow(size_, y, dx_.data(), dy_.data());
    std::fill(counts_.begin(), counts_.end(), 0.0F);
    for (int x = margin; x < size_.width - margin; ++x) {
        const auto i = static_cast<std::size_t>(x);
        const float fromX = static_cast<float>(x) - dx_[i];
        const float fromY = static_cast<float>(y) - dy_[i];
        const bool isInside = fromX >= 1.0F && fromX <= static_cast<float>(size_.width - 2) &&
                              fromY >= 1.0F && fromY <= static_cast<float>(size_.height - 2);
        counts_[i] = isInside ? 1.0F : 0.0F;
    }
}

}  // namespace halvor::vx
