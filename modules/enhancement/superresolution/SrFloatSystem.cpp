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
// Rows of the large image within reach of a pair: one above, two pairs below. Rounded up to a ring.
constexpr int reachRows = 8;

int usefulWorkers(int pairs)
{
    return std::clamp(std::max(omp_get_num_procs(), omp_get_max_threads()), 1, std::max(pairs, 1));
}

}  // namespace

SrFloatSystem::Worker::Worker(int frameWidth, int frameHeight, int capacity, const SplitLayout& layout)
    : sweep(frameWidth, frameHeight, capacity),
      border(reachRows, layout.pitch, 0.0F),
      above(4, layout.pitch, 0.0F)
{}

WeightRow SrFloatSystem::Worker::aboveWeights()
{
    return {above[0], above[1], above[2], above[3], nullptr};
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
      sums_(layout_.height)
{
    models_.reserve(capacity);
    const int workers = usefulWorkers(pairCount());
    workers_.reserve(workers);
    for (int i = 0; i < workers; ++i)
        workers_.emplace_back(frameWidth, frameHeight, capacity, layout_);
}

template <typename Pass>
void SrFloatSystem::forEachWorker(Pass pass)
{
    const int threads = std::min(omp_get_max_threads(), static_cast<int>(workers_.size()));
#pragma omp parallel num_threads(threads)
    {
        const int thread = omp_get_thread_num();
        const int team = omp_get_num_threads();
        const int pairs = pairCount();
        pass(workers_[thread], PairRange{pairs * thread / team, pairs * (thread + 1) / team});
    }
}

template <typename Work>
void SrFloatSystem::forEachRow(Work work)
{
#pragma omp parallel for schedule(static)
    for (int y = 0; y < layout_.height; ++y)
        work(y);
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
            models_.push_back({FrameModel::trim(burst.psfX[k]), FrameModel::trim(burst.psfY[k]),
                               reinterpret_cast<const std::int8_t*>(burst.masks[k])});
        forEachWorker([this](Worker& worker, PairRange range) { backProjectFused(worker, range); });
        fused_ = std::isfinite(sums_.total());
    }
    if (!fused_)
        backProjectByOperators();
    return sums_.total();
}

void SrFloatSystem::backProjectFused(Worker& worker, PairRange range)
{
    worker.sweep.begin(models_);
    for (int frameRow = std::max(range.first - 2, 0); frameRow < range.first; ++frameRow)
        worker.sweep.load(frameRow, burst_.frames);
    for (int pair = range.first; pair < range.end; ++pair) {
        const int rows = std::min(2, layout_.height - 2 * pair);
        for (int y = 2 * pair; y < 2 * pair + rows; ++y)
            std::fill_n(B.row(y), layout_.pitch, 0.0F);
        worker.sweep.load(pair, burst_.frames);
        if (rows == 2)
            worker.sweep.scatter(pair, B.row(2 * pair), B.row(2 * pair + 1), layout_);
        for (int y = 2 * pair; y < 2 * pair + rows; ++y) {
            layout_.clearPadding(B.row(y));
            std::copy_n(B.row(y), layout_.pitch, U.row(y));
            sums_[y] = dotRow(B.row(y), B.row(y), layout_.blocks());
        }
    }
}

void SrFloatSystem::backProjectByOperators()
{
    forEachRow([this](int y) { std::fill_n(B.row(y), layout_.pitch, 0.0F); });
    for (int k = 0; k < burst_.count; ++k) {
        conv.fullConvFromSparse(burst_.frames[k], burst_.psfX[k].data(), burst_.psfY[k].data(),
                                burst_.masks[k], TmpFull.data());
        addTmpFull(B);
    }
    forEachRow([this](int y) {
        std::copy_n(B.row(y), layout_.pitch, U.row(y));
        sums_[y] = dotRow(B.row(y), B.row(y), layout_.blocks());
    });
}

// Rows are fetched from source in ascending order, each once, up to the border that the first and last pair
// reach; weights gives those of the row above and of the row itself; finish takes a row's image and result.
template <typename RowSource, typename Weights, typename Finish>
void SrFloatSystem::sweepSystem(Worker& worker, PairRange range, SplitImage& out, RowSource source,
                                Weights weights, Finish finish)
{
    std::array<const float*, reachRows> rows{};
    rows.fill(U.row(-1));
    const auto fetch = [&](int pair) {
        for (int y = 2 * pair; y < 2 * pair + 2; ++y)
            rows[y % reachRows] = y < layout_.height ? source(y) : U.row(-1);
        if (pair < pairCount())
            worker.sweep.collect(pair, rows[2 * pair % reachRows], rows[(2 * pair + 1) % reachRows], layout_);
    };

    const int begin = std::max(range.first - 2, 0);
    const auto advance = [&](int pair) {
        fetch(pair);
        if (pair >= begin + 2)
            worker.sweep.sample(pair - 2);
    };

    worker.sweep.begin(models_);
    for (int pair = begin; pair < range.first + 2; ++pair)
        advance(pair);
    for (int pair = range.first; pair < range.end; ++pair) {
        advance(pair + 2);
        const int end = std::min(2 * pair + 2, layout_.height);
        for (int y = 2 * pair; y < end; ++y) {
            const RowTriple image{y > 0 ? rows[(y - 1) % reachRows] : U.row(-1), rows[y % reachRows],
                                  rows[(y + 1) % reachRows]};
            const auto [above, own] = weights(y);
            applyLaplacian(layout_, above, own, image, out.row(y));
        }
        // A single row at the end lies beyond the reach of all frames.
        if (end == 2 * pair + 2)
            worker.sweep.scatter(pair, out.row(2 * pair), out.row(2 * pair + 1), layout_);
        for (int y = 2 * pair; y < end; ++y) {
            layout_.clearPadding(out.row(y));
            sums_[y] = finish(y, rows[y % reachRows]);
        }
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
        forEachRow([this](int y) { sums_[y] = residualRow(B.row(y), R.row(y), layout_.blocks()); });
    }
    return sums_.total();
}

void SrFloatSystem::lineariseFused(Worker& worker, PairRange range, const EdgePotential& potential)
{
    const int firstRow = 2 * range.first;
    const WeightRow border = worker.aboveWeights();
    if (firstRow > 0 && range.first < range.end)
        fillEdgeWeights(layout_, potential, firstRow - 1, U.row(firstRow - 1), U.row(firstRow), border);
    const auto weights = [&](int y) {
        const WeightRow above = y == firstRow && y > 0 ? border : weightRow(y - 1);
        const WeightRow own = weightRow(y);
        fillEdgeWeights(layout_, potential, y, U.row(y), U.row(y + 1), own);
        fillDiagonal(layout_, above, own);
        return std::pair(above, own);
    };
    sweepSystem(
        worker, range, R, [this](int y) { return U.row(y); }, weights,
        [this](int y, const float*) { return residualRow(B.row(y), R.row(y), layout_.blocks()); });
}

double SrFloatSystem::startDirection()
{
    return multiplyDirection([this](int y, float* out) { std::copy_n(R.row(y), layout_.pitch, out); });
}

double SrFloatSystem::nextDirection(float beta)
{
    const bool finite = std::isfinite(beta);
    return multiplyDirection([this, beta, finite](int y, float* out) {
        directionRow(beta, S.row(y), R.row(y), out, layout_.blocks());
        if (!finite)
            layout_.clearPadding(out);
    });
}

template <typename Direction>
double SrFloatSystem::multiplyDirection(Direction direction)
{
    if (fused_) {
        forEachWorker([&](Worker& worker, PairRange range) {
            const auto source = [&](int y) {
                const bool own = y >= 2 * range.first && y < 2 * range.end;
                float* const row = own ? nextS_.row(y) : worker.borderRow(y);
                direction(y, row);
                return row;
            };
            const auto weights = [this](int y) { return std::pair(weightRow(y - 1), weightRow(y)); };
            sweepSystem(worker, range, Q, source, weights,
                        [this](int y, const float* s) { return dotRow(s, Q.row(y), layout_.blocks()); });
        });
        std::swap(S, nextS_);
        fused_ = std::isfinite(sums_.total());
    } else {
        forEachRow([&](int y) { direction(y, nextS_.row(y)); });
        std::swap(S, nextS_);
    }
    if (!fused_) {
        gradient(S, Q);
        forEachRow([this](int y) { sums_[y] = dotRow(S.row(y), Q.row(y), layout_.blocks()); });
    }
    return sums_.total();
}

double SrFloatSystem::step(float alpha)
{
    const bool finite = std::isfinite(alpha);
    forEachRow([this, alpha, finite](int y) {
        sums_[y] = stepRow(alpha, S.row(y), Q.row(y), U.row(y), R.row(y), layout_.blocks());
        if (!finite) {
            layout_.clearPadding(U.row(y));
            layout_.clearPadding(R.row(y));
            sums_[y] = dotRow(R.row(y), R.row(y), layout_.blocks());
        }
    });
    return sums_.total();
}

void SrFloatSystem::writeResult(float scale, float offset, float* out) const
{
    const int margin = (psfSize_ - 1) / 2;
    const int outWidth = static_cast<int>(static_cast<float>(width_) * factor_);
    const int outHeight = static_cast<int>(static_cast<float>(height_) * factor_);
#pragma omp parallel for schedule(static)
    for (int r = 0; r < outHeight; ++r) {
        const float* const row = U.row(r + margin);
        denormaliseRow(row + layout_.place(margin), row + layout_.place(margin + 1), scale, offset,
                       out + static_cast<std::ptrdiff_t>(r) * outWidth, outWidth);
    }
}

void SrFloatSystem::computeL(const EdgePotential& potential)
{
    forEachRow([&](int y) { fillEdgeWeights(layout_, potential, y, U.row(y), U.row(y + 1), weightRow(y)); });
    forEachRow([this](int y) { fillDiagonal(layout_, weightRow(y - 1), weightRow(y)); });
}

void SrFloatSystem::gradient(const SplitImage& x, SplitImage& out)
{
    debug_.send("start gradient", debugLevel);
    const int last = layout_.width - 1;
    forEachRow([&](int y) {
        applyLaplacian(layout_, weightRow(y - 1), weightRow(y), {x.row(y - 1), x.row(y), x.row(y + 1)},
                       out.row(y));
        layout_.clearPadding(out.row(y));
        // The linear index wraps round the ends of a row. The weights there are zero, but not their products
        // with a value that is not finite.
        for (const int column : {0, last})
            out.row(y)[layout_.place(column)] = laplacianAt(x, y * layout_.width + column);
        joinRow(x.row(y), layout_.half, &plain_[static_cast<std::size_t>(y) * layout_.width], layout_.width);
    });
    for (int k = 0; k < burst_.count; ++k) {
        debug_.send("gradient for frame: ", k, debugLevel);
        const float* const psfX = burst_.psfX[k].data();
        const float* const psfY = burst_.psfY[k].data();
        conv.validCorrToSparse(plain_.data(), psfX, psfY, TmpConv.data());
        conv.fullConvFromSparse(TmpConv.data(), psfX, psfY, burst_.masks[k], TmpFull.data());
        addTmpFull(out);
    }
    debug_.send("end gradient", debugLevel);
}

void SrFloatSystem::addTmpFull(SplitImage& out)
{
    forEachRow([&](int y) {
        addSplitRow(&TmpFull[static_cast<std::size_t>(y) * layout_.width], layout_.width, out.row(y),
                    layout_.half);
    });
}

float SrFloatSystem::laplacianAt(const SplitImage& x, int index) const
{
    const int width = layout_.width;
    const int count = width * layout_.height;
    float sum = 0.0F;
    const auto add = [&](const SplitImage& weights, int edge, int neighbour) {
        sum += weights.row(edge / width)[layout_.place(edge % width)] *
               x.row(neighbour / width)[layout_.place(neighbour % width)];
    };
    if (index > width)
        add(Ldr, index - width - 1, index - width - 1);
    if (index >= width) {
        add(Ld, index - width, index - width);
        add(Ldl, index - width + 1, index - width + 1);
    }
    if (index > 0)
        add(Lr, index - 1, index - 1);
    add(Lc, index, index);
    if (index < count - 1)
        add(Lr, index, index + 1);
    if (index > 0 && index < count - width)
        add(Ldl, index, index + width - 1);
    if (index < count - width)
        add(Ld, index, index + width);
    if (index < count - width - 1)
        add(Ldr, index, index + width + 1);
    return sum;
}

}  // namespace halvor::vx
