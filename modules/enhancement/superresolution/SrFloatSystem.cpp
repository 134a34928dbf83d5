#include "enhancement/superresolution/SrFloatSystem.h"

#include <omp.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <utility>

#include "enhancement/superresolution/SolverRows.h"

namespace halvor::vx {

namespace {

constexpr int debugLevel = 11;

int usefulWorkers(int pairs)
{
    return std::clamp(std::max(omp_get_num_procs(), omp_get_max_threads()), 1, std::max(pairs, 1));
}

}  // namespace

SrFloatSystem::Worker::Worker(int frameWidth, int frameHeight, int capacity, const LaneLayout& layout)
    : sweep(frameWidth, frameHeight, capacity, layout.frameOrder()),
      window(layout),
      above(4, layout.pitch + LaneOrder::lanes, 0.0F),
      unused(layout.pitch),
      columns(layout.size()),
      maskColumns(layout.frameOrder().size())
{}

WeightRow SrFloatSystem::Worker::weightsAbove()
{
    const auto row = [this](int kind) { return above[kind] + LaneOrder::lanes; };
    return {row(0), row(1), row(2), row(3), nullptr};
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
      conv(static_cast<int>(static_cast<float>(frameWidth) * factor),
           static_cast<int>(static_cast<float>(frameHeight) * factor), psfSize, psfSize, factor),
      B(layout_, 0),
      U(layout_, 1),
      Lr(layout_, 2),
      Ld(layout_, 3),
      Ldl(layout_, 4),
      Ldr(layout_, 5),
      Lc(layout_, 6),
      R(layout_, 7),
      S(layout_, 8),
      nextS_(layout_, 9),
      Q(layout_, 10),
      TmpConv(static_cast<std::size_t>(frameWidth) * frameHeight),
      TmpFull(static_cast<std::size_t>(layout_.width) * layout_.height),
      plain_(TmpFull.size()),
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
    return {Lr.row(y), Ld.row(y), Ldl.row(y), Ldr.row(y), Lc.row(y)};
}

bool SrFloatSystem::fusedWanted() const
{
    constexpr int fusedTaps = FrameModel::tapCount + 1;
    return factor_ == 2.0F && psfSize_ == fusedTaps && !debug_.isDebugActive(debugLevel) &&
           !conv.isDebugActive(debugLevel);
}

double SrFloatSystem::backProject(const SrFloatBurst& burst)
{
    burst_ = burst;
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
            std::fill_n(B.row(y), layout_.pitch, 0.0F);
        if (end == 2 * pair + 2)
            worker.sweep.scatter(pair, B.row(2 * pair), B.row(2 * pair + 1));
        for (int y = 2 * pair; y < end; ++y) {
            std::copy_n(B.row(y), layout_.pitch, U.row(y));
            sums_[y] = dotRow(B.row(y), B.row(y), layout_.pitch);
        }
    }
}

RowTriple SrFloatSystem::triple(const RowWindow& window, int y)
{
    return {window.row(y - 1), window.row(y), window.row(y + 1)};
}

// fetch puts a row of the image into the window; each row is fetched once, in ascending order, up to the
// border that the first and last pair reach. weights gives the weights of a row and of the row above;
// finish takes each finished row of out and gives its share of the sum.
template <typename Fetch, typename Weights, typename Finish>
void SrFloatSystem::sweepSystem(Worker& worker, PairRange range, LaneImage& out, Fetch fetch, Weights weights,
                                Finish finish)
{
    const int height = layout_.height;
    const auto advance = [&](int pair) {
        for (int y = 2 * pair; y < std::min(2 * pair + 2, height); ++y) {
            fetch(y);
            worker.window.close(y);
        }
        worker.sweep.gather(pair, worker.window.row(2 * pair), worker.window.row(2 * pair + 1));
        worker.sweep.finish(pair - 2, masks_);
    };

    const int begin = std::max(range.first - 2, 0);
    worker.sweep.begin(models_, begin);
    for (int pair = begin; pair < range.first + 2; ++pair)
        advance(pair);
    for (int pair = range.first; pair < range.end; ++pair) {
        advance(pair + 2);
        const int end = std::min(2 * pair + 2, height);
        for (int y = 2 * pair; y < end; ++y) {
            const auto [above, own] = weights(y);
            applyLaplacian(layout_, above, own, triple(worker.window, y), out.row(y));
        }
        // A single row at the end lies beyond the reach of all frames.
        if (end == 2 * pair + 2)
            worker.sweep.scatter(pair, out.row(2 * pair), out.row(2 * pair + 1));
        for (int y = 2 * pair; y < end; ++y)
            sums_[y] = finish(y);
    }
}

double SrFloatSystem::linearise(const EdgePotential& potential)
{
    if (fused_) {
        forEachWorker([&](Worker& worker, PairRange range) { lineariseFused(worker, range, potential); });
        fused_ = std::isfinite(sums_.total());
    }
    if (!fused_) {
        computeL(potential);
        gradient(U, R);
        forEachRow([this](int y) { sums_[y] = residualRow(B.row(y), R.row(y), layout_.pitch); });
    }
    return sums_.total();
}

void SrFloatSystem::lineariseFused(Worker& worker, PairRange range, const EdgePotential& potential)
{
    const int firstRow = 2 * range.first;
    const WeightRow border = worker.weightsAbove();
    const auto weights = [&](int y) {
        WeightRow above = weightRow(y - 1);
        if (y == firstRow && y > 0) {
            fillEdgeWeights(layout_, potential, y - 1, triple(worker.window, y - 1), border);
            above = border;
        }
        const WeightRow own = weightRow(y);
        fillEdgeWeights(layout_, potential, y, triple(worker.window, y), own);
        fillDiagonal(layout_, above, own);
        return std::pair(above, own);
    };
    sweepSystem(
        worker, range, R, [&](int y) { std::copy_n(U.row(y), layout_.size(), worker.window.open(y)); },
        weights, [this](int y) { return residualRow(B.row(y), R.row(y), layout_.pitch); });
}

double SrFloatSystem::startDirection()
{
    return multiplyDirection([this](int y, float* stored) { std::copy_n(R.row(y), layout_.pitch, stored); });
}

double SrFloatSystem::nextDirection(float beta)
{
    return multiplyDirection([this, beta](int y, float* stored) {
        directionRow(beta, S.row(y), R.row(y), stored, layout_.pitch);
        if (!std::isfinite(beta))
            layout_.clearPadding(stored);
    });
}

// direction forms a row of S.
template <typename Direction>
double SrFloatSystem::multiplyDirection(Direction direction)
{
    const bool wasFused = fused_;
    if (fused_) {
        forEachWorker([&](Worker& worker, PairRange range) {
            const auto fetch = [&](int y) {
                const bool own = y >= 2 * range.first && y < 2 * range.end;
                float* const stored = own ? nextS_.row(y) : worker.unused.data();
                direction(y, stored);
                std::copy_n(stored, layout_.size(), worker.window.open(y));
            };
            sweepSystem(
                worker, range, Q, fetch, [this](int y) { return std::pair(weightRow(y - 1), weightRow(y)); },
                [this](int y) { return dotRow(nextS_.row(y), Q.row(y), layout_.pitch); });
        });
        fused_ = std::isfinite(sums_.total());
    }
    if (!fused_) {
        if (!wasFused)
            forEachRow([&](int y) { direction(y, nextS_.row(y)); });
        gradient(nextS_, Q);
        forEachRow([this](int y) { sums_[y] = dotRow(nextS_.row(y), Q.row(y), layout_.pitch); });
    }
    std::swap(S, nextS_);
    return sums_.total();
}

double SrFloatSystem::step(float alpha)
{
    const bool finite = std::isfinite(alpha);
    forEachRow([this, alpha, finite](int y) {
        sums_[y] = stepRow(alpha, S.row(y), Q.row(y), U.row(y), R.row(y), layout_.pitch);
        if (!finite) {
            layout_.clearPadding(U.row(y));
            layout_.clearPadding(R.row(y));
            sums_[y] = dotRow(R.row(y), R.row(y), layout_.pitch);
        }
    });
    return sums_.total();
}

void SrFloatSystem::writeResult(float scale, float offset, float* out)
{
    const int margin = (psfSize_ - 1) / 2;
    const int outWidth = static_cast<int>(static_cast<float>(width_) * factor_);
    const int outHeight = static_cast<int>(static_cast<float>(height_) * factor_);
    forEachWorker([&](Worker& worker, PairRange range) {
        for (int y = std::max(2 * range.first, margin); y < std::min(2 * range.end, outHeight + margin);
             ++y) {
            layout_.fromLanes(U.row(y), worker.columns.data());
            denormaliseRow(&worker.columns[margin], scale, offset,
                           out + static_cast<std::ptrdiff_t>(y - margin) * outWidth, outWidth);
        }
    });
}

}  // namespace halvor::vx
