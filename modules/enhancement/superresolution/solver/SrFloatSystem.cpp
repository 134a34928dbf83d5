// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/solver/SrFloatSystem.h"

#include <omp.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <utility>

#include "core/diagnostics/DebugLevels.h"
#include "enhancement/superresolution/solver/SolverRows.h"

namespace halvor::vx {

namespace {

// Rows above and below its own that a thread's sweep looks at.
constexpr int haloRows = 4;

int usefulWorkers(int pairs)
{
    return std::clamp(std::max(omp_get_num_procs(), omp_get_max_threads()), 1, std::max(pairs, 1));
}

}  // namespace

SrFloatSystem::Worker::Worker(int frameWidth, int frameHeight, int capacity, const LaneLayout& layout)
    : sweep(frameWidth, frameHeight, capacity, layout.frameOrder()),
      lines(layout),
      above(4, layout.pitch + LaneOrder::lanes, 0.0F),
      halo(2 * haloRows, layout.pitch, 0.0F),
      columns(layout.size()),
      maskColumns(layout.frameOrder().size())
{}

WeightRow SrFloatSystem::Worker::weightsAbove()
{
    const auto row = [this](int kind) { return above[kind] + LaneOrder::lanes; };
    return {row(0), row(1), row(2), row(3)};
}

SrFloatSystem::SrFloatSystem(int frameWidth, int frameHeight, int capacity, float factor, int psfSize,
                             const DebugChannel& debug)
    : width_(frameWidth),
      height_(frameHeight),
      factor_(factor),
      psfSize_(psfSize),
      debug_(debug),
      layout_(
          static_cast<int>(static_cast<float>(frameWidth) * factor + static_cast<float>(psfSize) - 1.0F),
          static_cast<int>(static_cast<float>(frameHeight) * factor + static_cast<float>(psfSize) - 1.0F)),
      conv_(static_cast<int>(static_cast<float>(frameWidth) * factor),
            static_cast<int>(static_cast<float>(frameHeight) * factor), psfSize, psfSize, factor),
      b_(layout_, 0),
      u_(layout_, 1),
      lr_(layout_, 2),
      ld_(layout_, 3),
      ldl_(layout_, 4),
      ldr_(layout_, 5),
      r_(layout_, 6),
      s_(layout_, 7),
      q_(layout_, 8),
      tmpConv_(frameHeight, frameWidth),
      tmpFull_(layout_.height, layout_.width),
      plain_(layout_.height, layout_.width),
      sums_(layout_.height),
      masks_(frameWidth, frameHeight, capacity, layout_.frameOrder())
{
    models_.reserve(capacity);
    const int workers = usefulWorkers(pairCount());
    workers_.reserve(workers);
    for (int i = 0; i < workers; ++i)
        workers_.emplace_back(frameWidth, frameHeight, capacity, layout_);
}

WeightRow SrFloatSystem::weightRow(int y)
{
    return {lr_.row(y), ld_.row(y), ldl_.row(y), ldr_.row(y)};
}

bool SrFloatSystem::fusedWanted() const
{
    constexpr int fusedTaps = FrameModel::tapCount + 1;
    return factor_ == 2.0F && psfSize_ == fusedTaps && !debug_.isDebugActive(DebugLevel::step) &&
           !conv_.isDebugActive(DebugLevel::step);
}

double SrFloatSystem::backProject(const SrFloatBurst& burst)
{
    burst_ = burst;
    pendingAlpha_.reset();
    fused_ = fusedWanted();
    if (fused_) {
        models_.clear();
        for (int k = 0; k < burst.count; ++k)
            models_.push_back({FrameModel::trim(burst.psfX[k]), FrameModel::trim(burst.psfY[k])});
        forEachWorker([this](Worker& worker, PairRange range) { backProjectFused(worker, range); });
        fused_ = std::isfinite(sums_.total());
    }
    if (!fused_)
        backProjectByOperators();
    return sums_.total();
}

void SrFloatSystem::backProjectFused(Worker& worker, PairRange range)
{
    for (int frameRow = range.first; frameRow < std::min(range.end, height_); ++frameRow)
        for (int k = 0; k < burst_.count; ++k)
            masks_.setRow(k, frameRow,
                          reinterpret_cast<const std::int8_t*>(burst_.masks[k]) +
                              static_cast<std::ptrdiff_t>(frameRow) * width_,
                          worker.maskColumns.data());

    const int begin = std::max(range.first - 2, 0);
    worker.sweep.begin(models_, begin);
    for (int frameRow = begin; frameRow < range.first; ++frameRow)
        worker.sweep.load(frameRow, burst_.frames, burst_.masks);
    for (int pair = range.first; pair < range.end; ++pair) {
        worker.sweep.load(pair, burst_.frames, burst_.masks);
        const int end = std::min(2 * pair + 2, layout_.height);
        for (int y = 2 * pair; y < end; ++y)
            std::fill_n(b_.row(y), layout_.size(), 0.0F);
        if (end == 2 * pair + 2)
            worker.sweep.scatter(pair, b_.row(2 * pair), b_.row(2 * pair + 1));
        for (int y = 2 * pair; y < end; ++y) {
            std::copy_n(b_.row(y), layout_.size(), u_.row(y));
            sums_[y] = dotRow(b_.row(y), b_.row(y), layout_.size());
        }
    }
}

RowTriple SrFloatSystem::triple(const LineBuffer& lines, int y)
{
    return {lines.row(y - 1), lines.row(y), lines.row(y + 1)};
}

// Applies the system to an image, which may be updated on the way: own(y) updates a row in place and gives
// it, halo(y, row) forms a row that belongs to another thread, all of them before any row changes. Without
// an update own(y) gives any row, and no thread waits for the others. weights(worker, y, isFirst) gives the
// weights of the row above and of row y, finish(y) a finished row's share of the sum.
template <typename Halo, typename Own, typename Weights, typename Finish>
void SrFloatSystem::sweepSystem(LaneImage& out, bool isUpdated, Halo halo, Own own, Weights weights,
                                Finish finish)
{
    forEachWorker([&](Worker& worker, PairRange range) {
        const int height = layout_.height;
        const int begin = std::max(range.first - 2, 0);
        const int firstRow = 2 * range.first;
        const int endRow = std::min(2 * range.end, height);
        if (isUpdated) {
            for (int y = 2 * begin; y < firstRow; ++y)
                halo(y, worker.halo[firstRow - 1 - y]);
            for (int y = endRow; y < std::min(endRow + haloRows, height); ++y)
                halo(y, worker.halo[haloRows + y - endRow]);
#pragma omp barrier
        }
        const auto fetch = [&](int y) -> const float* {
            if (!isUpdated || (firstRow <= y && y < endRow))
                return own(y);
            return worker.halo[y < firstRow ? firstRow - 1 - y : haloRows + y - endRow];
        };
        const auto advance = [&](int pair) {
            for (int y = 2 * pair; y < std::min(2 * pair + 2, height); ++y) {
                std::copy_n(fetch(y), layout_.size(), worker.lines.open(y));
                worker.lines.close(y);
            }
            worker.sweep.gather(pair, worker.lines.row(2 * pair), worker.lines.row(2 * pair + 1));
            worker.sweep.finish(pair - 2, masks_);
        };

        worker.sweep.begin(models_, begin);
        for (int pair = begin; pair < range.first + 2; ++pair)
            advance(pair);
        for (int pair = range.first; pair < range.end; ++pair) {
            advance(pair + 2);
            const int end = std::min(2 * pair + 2, height);
            for (int y = 2 * pair; y < end; ++y) {
                const auto [above, below] = weights(worker, y, y == firstRow);
                applyLaplacian(layout_, above, below, triple(worker.lines, y), out.row(y));
            }
            // A single row at the end lies beyond the reach of all frames.
            if (end == 2 * pair + 2)
                worker.sweep.scatter(pair, out.row(2 * pair), out.row(2 * pair + 1));
            for (int y = 2 * pair; y < end; ++y)
                sums_[y] = finish(y);
        }
    });
}

double SrFloatSystem::linearise(const EdgePotential& potential)
{
    if (fused_) {
        lineariseFused(potential);
        fused_ = std::isfinite(sums_.total());
    }
    if (!fused_) {
        if (pendingAlpha_)
            forEachRow([this](int y) { advanceEstimate(y); });
        computeL(potential);
        gradient(u_, r_);
        forEachRow([this](int y) { sums_[y] = residualRow(b_.row(y), r_.row(y), layout_.size()); });
    }
    pendingAlpha_.reset();
    return sums_.total();
}

void SrFloatSystem::lineariseFused(const EdgePotential& potential)
{
    const auto halo = [this](int y, float* row) {
        axpyRow(*pendingAlpha_, s_.row(y), u_.row(y), row, layout_.size());
    };
    const auto own = [this](int y) {
        if (pendingAlpha_)
            advanceEstimate(y);
        return u_.row(y);
    };
    const auto weights = [&](Worker& worker, int y, bool isFirst) {
        WeightRow above = weightRow(y - 1);
        if (isFirst && y > 0) {
            above = worker.weightsAbove();
            fillEdgeWeights(layout_, potential, y - 1, triple(worker.lines, y - 1), above);
        }
        fillEdgeWeights(layout_, potential, y, triple(worker.lines, y), weightRow(y));
        return std::pair(above, weightRow(y));
    };
    sweepSystem(r_, pendingAlpha_.has_value(), halo, own, weights,
                [this](int y) { return residualRow(b_.row(y), r_.row(y), layout_.size()); });
    pendingAlpha_.reset();
}

double SrFloatSystem::startDirection()
{
    // S is R; the first step writes its R into the other image.
    std::swap(r_, s_);
    isFirstStep_ = true;
    return multiplyDirection(
        false, [](int, float*) {}, [this](int y) { return s_.row(y); });
}

double SrFloatSystem::nextDirection(float beta)
{
    const float alpha = pendingAlpha_.value_or(0.0F);
    const auto halo = [this, beta](int y, float* row) {
        xpayRow(beta, s_.row(y), r_.row(y), row, layout_.size());
    };
    const auto own = [this, alpha, beta](int y) {
        axpyXpayRow(alpha, beta, s_.row(y), r_.row(y), u_.row(y), layout_.size());
        return s_.row(y);
    };
    pendingAlpha_.reset();
    return multiplyDirection(true, halo, own);
}

template <typename Halo, typename Own>
double SrFloatSystem::multiplyDirection(bool isUpdated, Halo halo, Own own)
{
    const auto product = [this](int y) { return dotRow(s_.row(y), q_.row(y), layout_.size()); };
    const auto weights = [this](Worker&, int y, bool) { return std::pair(weightRow(y - 1), weightRow(y)); };
    if (fused_)
        sweepSystem(q_, isUpdated, halo, own, weights, product);
    else
        forEachRow(own);
    fused_ = fused_ && std::isfinite(sums_.total());
    if (!fused_) {
        gradient(s_, q_);
        forEachRow([&](int y) { sums_[y] = product(y); });
    }
    return sums_.total();
}

double SrFloatSystem::step(float alpha)
{
    forEachRow([this, alpha](int y) {
        sums_[y] = isFirstStep_ ? axpyDotRow(alpha, q_.row(y), s_.row(y), r_.row(y), layout_.size())
                                : axpyDotRow(alpha, q_.row(y), r_.row(y), layout_.size());
    });
    isFirstStep_ = false;
    pendingAlpha_ = alpha;
    return sums_.total();
}

// U += alpha * S for one row.
void SrFloatSystem::advanceEstimate(int y)
{
    axpyRow(*pendingAlpha_, s_.row(y), u_.row(y), u_.row(y), layout_.size());
}

void SrFloatSystem::writeResult(float scale, float offset, float* out)
{
    const int margin = (psfSize_ - 1) / 2;
    const int outWidth = static_cast<int>(static_cast<float>(width_) * factor_);
    const int outHeight = static_cast<int>(static_cast<float>(height_) * factor_);
    forEachWorker([&](Worker& worker, PairRange range) {
        for (int y = std::max(2 * range.first, margin); y < std::min(2 * range.end, outHeight + margin);
             ++y) {
            if (pendingAlpha_)
                advanceEstimate(y);
            layout_.fromLanes(u_.row(y), worker.columns.data());
            denormaliseRow(&worker.columns[margin], scale, offset,
                           out + static_cast<std::ptrdiff_t>(y - margin) * outWidth, outWidth);
        }
    });
    pendingAlpha_.reset();
}

}  // namespace halvor::vx
