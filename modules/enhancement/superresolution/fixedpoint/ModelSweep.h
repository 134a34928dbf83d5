// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <omp.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/base/ParallelPixels.h"
#include "enhancement/superresolution/fixedpoint/ModelRows.h"

namespace halvor::vx::fixedpoint {

/// Kernels and masks of a burst, one per frame.
struct ModelBurst
{
    const cv::Mat_<short>* psfX;
    const cv::Mat_<short>* psfY;
    const cv::Mat_<signed char>* masks;
    int count;
};

/// The imaging model of all frames of a burst together, for a factor of 2: what the plain convolutions give one
/// after the other, bit for bit, in two passes that share their rows.
///
/// It leaves out the checks of the plain forms and refuses, before anything changes, where one of them might raise
/// an exception. Every thread owns a stretch of rows. All memory is allocated by the constructor.
class ModelSweep
{
public:
    /// @param width, height  size of a frame
    /// @param capacity       most frames of a burst
    ModelSweep(int width, int height, int capacity);

    /// Takes a burst, whose masks must stay; false if it has kernels or masks of another kind than the engine makes.
    bool take(const ModelBurst& burst);

    /// Adds sum over frames of A^T M f to the large image.
    void addFrames(const cv::Mat_<short>* frames, cv::Mat_<short>& out);

    /// Adds sum over frames of A^T M A in to the large image; false, and only beginRow() has changed it, if the plain
    /// form might fail on an image of such values.
    ///
    /// @param beginRow  callable with each row of the large image: sets what is added to, in the same parallel region
    template <typename BeginRow>
    bool addSystem(const cv::Mat_<short>& in, cv::Mat_<short>& out, BeginRow beginRow);

private:
    struct Worker
    {
        explicit Worker(int width);
        std::array<std::vector<short>, 4> split;        // even and odd columns of a pair of rows
        std::array<std::vector<short>, 3> ignored;      // shares of rows that another thread owns
        std::array<std::vector<std::int32_t>, 2> sums;  // vertical sums of a pair of rows
        int bound = 0;
    };
    struct Range
    {
        int first;
        int end;
    };
    template <typename Pass>
    void forEachWorker(Pass pass);
    bool isWithinBound() const;
    int pairCount() const { return height_ + tapCount / 2 - 1; }
    void gather(const cv::Mat_<short>& in, Worker& worker, Range frameRows);
    void spread(cv::Mat_<short>& out, Worker& worker, Range pairs);
    short* low(int frame, int row) { return low_[frame * height_ + row]; }

    int width_;
    int height_;
    int capacity_;
    cv::Mat_<short> low_;  // all frames below each other
    std::vector<short> zeros_;
    std::vector<Taps> rowTaps_;
    std::vector<Taps> colTaps_;
    const cv::Mat_<signed char>* masks_ = nullptr;
    int count_ = 0;
    std::int64_t greatestRowSum_ = 0;  // of the taps of a row kernel
    std::vector<Worker> workers_;
};

// pass(worker, rangeOf): each thread has a worker, and rangeOf(rows) gives its stretch of so many rows.
template <typename Pass>
void ModelSweep::forEachWorker(Pass pass)
{
    const bool isLarge = 4 * low_.total() >= parallelPixels;  // frames, counted on the large grid
    const int threads = isLarge ? std::min(omp_get_max_threads(), static_cast<int>(workers_.size())) : 1;
#pragma omp parallel num_threads(threads)
    {
        const int thread = omp_get_thread_num();
        const int team = omp_get_num_threads();
        pass(workers_[static_cast<std::size_t>(thread)], [=](int rows) {
            return Range{rows * thread / team, rows * (thread + 1) / team};
        });
    }
}

template <typename BeginRow>
bool ModelSweep::addSystem(const cv::Mat_<short>& in, cv::Mat_<short>& out, BeginRow beginRow)
{
    for (Worker& worker : workers_)
        worker.bound = 0;
    forEachWorker([&](Worker& worker, auto rangeOf) {
        const Range rows = rangeOf(out.rows);
        for (int y = rows.first; y < rows.end; ++y)
            beginRow(y);
        gather(in, worker, rangeOf(height_));
#pragma omp barrier
        if (isWithinBound())
            spread(out, worker, rangeOf(pairCount()));
    });
    return isWithinBound();
}

}  // namespace halvor::vx::fixedpoint
