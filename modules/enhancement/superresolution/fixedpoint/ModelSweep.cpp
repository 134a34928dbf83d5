// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/fixedpoint/ModelSweep.h"

#include <omp.h>

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace halvor::vx::fixedpoint {

namespace {

// Bound of the sums of 32 bits in the plain forms, and of a tap with its sign.
constexpr std::int64_t sumLimit = 0x7FFF8000;
constexpr std::int32_t greatestTap = 0x7FFF;

// Rows of the large image that a row of a frame reaches, in pairs.
constexpr int pairReach = tapCount / 2;

bool takeTaps(const cv::Mat_<short>& kernel, Taps& taps)
{
    if (kernel.rows != 1 || kernel.cols != tapCount)
        return false;
    std::copy_n(kernel[0], tapCount, taps.begin());
    return std::all_of(taps.begin(), taps.end(),
                       [](std::int32_t tap) { return tap >= 0 && tap <= greatestTap; });
}

// A frame's sample meets every second tap of a column; no sum exceeds the limit then, whatever the samples.
bool isColumnSafe(const Taps& taps)
{
    constexpr std::int64_t greatestSample = 32768;
    return greatestSample * (taps[0] + taps[2] + taps[4]) <= sumLimit &&
           greatestSample * (taps[1] + taps[3] + taps[5]) <= sumLimit;
}

int usefulWorkers(int rows)
{
    return std::clamp(std::max(omp_get_num_procs(), omp_get_max_threads()), 1, std::max(rows, 1));
}

}  // namespace

ModelSweep::Worker::Worker(int width)
{
    ignored.fill(std::vector<short>(static_cast<std::size_t>(width)));
    for (std::vector<short>& columns : split)
        columns.resize(static_cast<std::size_t>(width) + spreadMargin);
    for (std::vector<std::int32_t>& row : sums)
        row.resize(static_cast<std::size_t>(width) + 2 * spreadMargin);
}

ModelSweep::ModelSweep(int width, int height, int capacity)
    : width_(width),
      height_(height),
      capacity_(capacity),
      low_(capacity * height, width),
      zeros_(static_cast<std::size_t>(width)),
      rowTaps_(static_cast<std::size_t>(capacity)),
      colTaps_(static_cast<std::size_t>(capacity)),
      workers_(static_cast<std::size_t>(usefulWorkers(height)), Worker(width))
{}

bool ModelSweep::take(const ModelBurst& burst)
{
    if (burst.count < 0 || burst.count > capacity_)
        return false;
    greatestRowSum_ = 0;
    for (int k = 0; k < burst.count; ++k) {
        Taps& rowTaps = rowTaps_[static_cast<std::size_t>(k)];
        Taps& colTaps = colTaps_[static_cast<std::size_t>(k)];
        const cv::Mat_<signed char>& mask = burst.masks[k];
        if (!takeTaps(burst.psfX[k], rowTaps) || !takeTaps(burst.psfY[k], colTaps) ||
            !isColumnSafe(colTaps) || mask.rows != height_ || mask.cols != width_)
            return false;
        greatestRowSum_ =
            std::max(greatestRowSum_, std::accumulate(rowTaps.begin(), rowTaps.end(), std::int64_t{0}));
        int bits = 0;
        for (int y = 0; y < height_; ++y)
            bits |= maskBits(mask[y], width_);
        if (bits > 1)
            return false;
    }
    masks_ = burst.masks;
    count_ = burst.count;
    return true;
}

void ModelSweep::addFrames(const cv::Mat_<short>* frames, cv::Mat_<short>& out)
{
    forEachWorker([&](Worker& worker, auto rangeOf) {
        const Range rows = rangeOf(height_);
        for (int k = 0; k < count_; ++k)
            for (int y = rows.first; y < rows.end; ++y)
                maskRow(frames[k][y], masks_[k][y], low(k, y), width_);
#pragma omp barrier
        spread(out, worker, rangeOf(pairCount()));
    });
}

bool ModelSweep::isWithinBound() const
{
    int bound = 0;
    for (const Worker& worker : workers_)
        bound = std::max(bound, worker.bound);
    return (bound + 1) * greatestRowSum_ <= sumLimit;
}

void ModelSweep::gather(const cv::Mat_<short>& in, Worker& worker, Range frameRows)
{
    if (frameRows.first == frameRows.end)
        return;
    const int columns = width_ + spreadMargin;
    // No frame reaches the last row, but the plain form checks it, too.
    if (frameRows.end == height_)
        worker.bound = std::max(
            worker.bound, splitRow(in[in.rows - 1], worker.split[0].data(), worker.split[1].data(), columns));
    for (int pair = frameRows.first; pair < frameRows.end + pairReach - 1; ++pair) {
        for (int row = 0; row < 2; ++row)
            worker.bound = std::max(worker.bound, splitRow(in[2 * pair + row], worker.split[2 * row].data(),
                                                           worker.split[2 * row + 1].data(), columns));
        for (int k = 0; k < count_; ++k) {
            const auto target = [&](int back) {
                const int y = pair - back;
                const bool isOwn = y >= frameRows.first && y < frameRows.end;
                return isOwn ? low(k, y) : worker.ignored[static_cast<std::size_t>(back)].data();
            };
            const int finished = std::clamp(pair - 2, 0, height_ - 1);
            gatherRows({worker.split[0].data(), worker.split[1].data(), worker.split[2].data(),
                        worker.split[3].data(), target(0), target(1), target(2), masks_[k][finished]},
                       rowTaps_[static_cast<std::size_t>(k)], colTaps_[static_cast<std::size_t>(k)], width_);
        }
    }
}

void ModelSweep::spread(cv::Mat_<short>& out, Worker& worker, Range pairs)
{
    const int columns = width_ + spreadMargin;
    for (int pair = pairs.first; pair < pairs.end; ++pair) {
        for (std::vector<short>& row : worker.split)
            std::fill(row.begin(), row.end(), short{0});
        for (int k = 0; k < count_; ++k) {
            const auto source = [&](int y) -> const short* {
                return y >= 0 && y < height_ ? low(k, y) : zeros_.data();
            };
            const Taps& rowTaps = rowTaps_[static_cast<std::size_t>(k)];
            spreadColumns(source(pair), source(pair - 1), source(pair - 2),
                          colTaps_[static_cast<std::size_t>(k)], &worker.sums[0][spreadMargin],
                          &worker.sums[1][spreadMargin], width_);
            for (int row = 0; row < 2; ++row)
                spreadRow(&worker.sums[row][spreadMargin], rowTaps, worker.split[2 * row].data(),
                          worker.split[2 * row + 1].data(), width_);
        }
        for (int row = 0; row < 2; ++row)
            addSplitRow(worker.split[2 * row].data(), worker.split[2 * row + 1].data(), out[2 * pair + row],
                        columns);
    }
}

}  // namespace halvor::vx::fixedpoint
