// SPDX-License-Identifier: Apache-2.0
#include "support/Sensor.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "core/base/Kernel.h"
#include "core/base/ParallelExceptions.h"
#include "support/PortableMath.h"

namespace vxsupport {

namespace {

constexpr int cellsPerLargePixel = FineScene::cellsPerPixel / 2;

// Weights of consecutive cells; sample i begins at cell first + i * stride.
struct CellWeights
{
    int first;
    int stride;
    std::vector<double> taps;
};

int reachInLargePixels(double psfSigma)
{
    return static_cast<int>(std::ceil(5.0 * psfSigma)) + 1;
}

// Point spread over whole pixels of the doubled grid, laid over the cells at a place between them.
CellWeights frameWeights(double shift, int margin, double psfSigma)
{
    const int reach = reachInLargePixels(psfSigma);
    const double centre = FineScene::cellsPerPixel * (margin + 0.5 - shift);
    const double left = centre - reach * cellsPerLargePixel;
    const int first = static_cast<int>(std::floor(left));
    const double fraction = left - first;

    std::vector<double> taps(static_cast<std::size_t>(2 * reach * cellsPerLargePixel + 1));
    double total = 0.0;
    for (int pixel = -reach; pixel < reach; ++pixel) {
        const double share = gaussianShare(pixel, pixel + 1, psfSigma) / cellsPerLargePixel;
        total += share * cellsPerLargePixel;
        double* tap = &taps[static_cast<std::size_t>(pixel + reach) * cellsPerLargePixel];
        for (int i = 0; i < cellsPerLargePixel; ++i) {
            tap[i] += share * (1.0 - fraction);
            tap[i + 1] += share * fraction;
        }
    }
    for (double& tap : taps)
        tap /= total;
    return {first, FineScene::cellsPerPixel, taps};
}

// The plain mean over a pixel of the doubled grid.
CellWeights truthWeights(double shift, int margin)
{
    const double left = FineScene::cellsPerPixel * (margin - shift);
    const int first = static_cast<int>(std::floor(left));
    const double fraction = left - first;
    std::vector<double> taps(cellsPerLargePixel + 1, 1.0 / cellsPerLargePixel);
    taps.front() *= 1.0 - fraction;
    taps.back() *= fraction;
    return {first, cellsPerLargePixel, taps};
}

VX_KERNEL void addScaled(const float* cells, double tap, double* sums, int n)
{
    for (int i = 0; i < n; ++i)
        sums[i] += tap * static_cast<double>(cells[i]);
}

void requireInside(const CellWeights& weights, int samples, int cells)
{
    const int last = weights.first + (samples - 1) * weights.stride + static_cast<int>(weights.taps.size());
    if (weights.first < 0 || last > cells)
        throw std::invalid_argument("the scene's margin is too small for the displacement");
}

cv::Mat_<float> sample(const cv::Mat_<float>& cells, cv::Size size, const CellWeights& across,
                       const CellWeights& down)
{
    requireInside(across, size.width, cells.cols);
    requireInside(down, size.height, cells.rows);
    cv::Mat_<float> samples(size);
    const int threads = omp_get_max_threads();
    cv::Mat_<double> rows(threads, cells.cols);  // ahead of the region, which no exception may leave
#pragma omp parallel for schedule(static) num_threads(threads)
    for (int r = 0; r < size.height; ++r) {
        double* const sums = rows[omp_get_thread_num()];
        std::fill_n(sums, cells.cols, 0.0);
        int row = down.first + r * down.stride;
        for (const double tap : down.taps)
            addScaled(cells[row++], tap, sums, cells.cols);
        for (int c = 0; c < size.width; ++c) {
            const double* from = sums + across.first + static_cast<std::ptrdiff_t>(c) * across.stride;
            double sum = 0.0;
            for (const double tap : across.taps)
                sum += tap * *from++;
            samples(r, c) = static_cast<float>(sum);
        }
    }
    return samples;
}

float weighedSum(const cv::Mat_<float>& cells, const CellWeights& across, const CellWeights& down)
{
    double sum = 0.0;
    int row = down.first;
    for (const double tap : down.taps) {
        const float* from = cells[row++] + across.first;
        double rowSum = 0.0;
        for (const double weight : across.taps)
            rowSum += weight * static_cast<double>(*from++);
        sum += tap * rowSum;
    }
    return static_cast<float>(sum);
}

}  // namespace

cv::Mat_<float> sampleTruth(const FineScene& scene, cv::Size frame, PointF shift)
{
    return sample(scene.cells, frame * 2, truthWeights(static_cast<double>(shift.x), scene.margin),
                  truthWeights(static_cast<double>(shift.y), scene.margin));
}

cv::Mat_<float> sampleFrame(const FineScene& scene, cv::Size frame, PointF shift, double psfSigma)
{
    if (!isPsfSigma(psfSigma))
        throw std::invalid_argument("the point spread's deviation is out of range");
    return sample(scene.cells, frame, frameWeights(static_cast<double>(shift.x), scene.margin, psfSigma),
                  frameWeights(static_cast<double>(shift.y), scene.margin, psfSigma));
}

cv::Mat_<float> sampleMovedFrame(const FineScene& scene, cv::Size frame,
                                 const std::function<cv::Point2d(int, int)>& motion, double psfSigma)
{
    if (!isPsfSigma(psfSigma))
        throw std::invalid_argument("the point spread's deviation is out of range");
    cv::Mat_<float> samples(frame);
    halvor::vx::ParallelExceptions exceptions;
#pragma omp parallel for schedule(static)
    for (int r = 0; r < frame.height; ++r)
        exceptions.run(r, [&] {
            for (int c = 0; c < frame.width; ++c) {
                const cv::Point2d moved = motion(c, r);
                const CellWeights across = frameWeights(moved.x - c, scene.margin, psfSigma);
                const CellWeights down = frameWeights(moved.y - r, scene.margin, psfSigma);
                requireInside(across, 1, scene.cells.cols);
                requireInside(down, 1, scene.cells.rows);
                samples(r, c) = weighedSum(scene.cells, across, down);
            }
        });
    exceptions.rethrow();
    return samples;
}

int requiredMargin(double largestShift, double psfSigma)
{
    return static_cast<int>(std::ceil(largestShift)) + reachInLargePixels(psfSigma) / 2 + 2;
}

}  // namespace vxsupport
