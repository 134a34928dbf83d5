// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/motion/MotionSolver.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "enhancement/superresolution/motion/MotionSettings.h"
#include "enhancement/superresolution/solver/SolverRows.h"

namespace halvor::vx {

namespace {

constexpr int border = MotionSettings::border;
constexpr int bandRows = 64;  // of the picture that stay in the cache

int bandCount(int rows)
{
    return (rows + bandRows - 1) / bandRows;
}

int usefulWorkers(int rows)
{
    return std::clamp(std::max(omp_get_num_procs(), omp_get_max_threads()), 1, bandCount(rows));
}

// Weights of the four pixels around a place that lies t behind the second one (Keys with a = -3/4).
std::array<float, 4> bicubicWeights(float t)
{
    constexpr float a = -0.75F;
    const auto inner = [](float x) { return ((a + 2.0F) * x - (a + 3.0F)) * x * x + 1.0F; };
    const auto outer = [](float x) { return ((a * x - 5.0F * a) * x + 8.0F * a) * x - 4.0F * a; };
    return {outer(1.0F + t), inner(t), inner(1.0F - t), outer(2.0F - t)};
}

// Where a picture's row or column lies in a frame: its four pixels' first, and their weights.
struct Enlarged
{
    explicit Enlarged(int position)
        : first(position % 2 == 0 ? position / 2 - 2 : position / 2 - 1),
          weights(bicubicWeights(position % 2 == 0 ? 0.75F : 0.25F))
    {}

    int first;
    std::array<float, 4> weights;
};

}  // namespace

MotionSolver::Worker::Worker(const LaneLayout& layout)
    : lines(layout), columns(static_cast<std::size_t>(layout.size())), lanes(columns.size())
{}

MotionSolver::MotionSolver(const cv::Size& frame, int capacity)
    : frameSize_(frame),
      size_(borderedPicture(frame)),
      layout_(size_.width, size_.height),
      table_(static_cast<double>(EngineDefaults::psfSigma)),
      frames_(static_cast<std::size_t>(capacity), FrameTaps(frame)),
      picture_(size_.height, layout_.size() + LaneOrder::lanes, 0.0F),
      direction_(picture_.size(), 0.0F),
      product_(picture_.size(), 0.0F),
      u_(layout_, 0),
      right_(layout_, 1),
      below_(layout_, 2),
      belowLeft_(layout_, 3),
      belowRight_(layout_, 4),
      r_(layout_, 5),
      s_(layout_, 6),
      q_(layout_, 7),
      sums_(size_.height)
{
    const int workers = usefulWorkers(size_.height);
    workers_.reserve(static_cast<std::size_t>(workers));
    for (int i = 0; i < workers; ++i)
        workers_.emplace_back(layout_);
}

// visit(worker, range): rows of the picture, each by one thread.
template <typename Visit>
void MotionSolver::forEachBand(Visit visit)
{
    const int rows = size_.height;
    const int threads = std::min(omp_get_max_threads(), static_cast<int>(workers_.size()));
#pragma omp parallel for schedule(static) num_threads(threads)
    for (int band = 0; band < bandCount(rows); ++band)
        visit(workers_[static_cast<std::size_t>(omp_get_thread_num())],
              RowRange{band * bandRows, std::min((band + 1) * bandRows, rows)});
}

WeightRow MotionSolver::weights(int y)
{
    return {right_.row(y), below_.row(y), belowLeft_.row(y), belowRight_.row(y)};
}

void MotionSolver::start(const cv::Mat_<float>& frame)
{
    const auto clampedRow = [&](int y) { return frame[std::clamp(y, 0, frame.rows - 1)]; };
    forEachBand([&](Worker& worker, const RowRange& range) {
        float* const mixed = worker.columns.data();
        for (int y = range.first; y < range.end; ++y) {
            const Enlarged down(std::clamp(y - border, 0, 2 * frame.rows - 1));
            std::fill_n(mixed, frame.cols, 0.0F);
            for (int k = 0; k < 4; ++k)
                for (int x = 0; x < frame.cols; ++x)
                    mixed[x] += down.weights[static_cast<std::size_t>(k)] * clampedRow(down.first + k)[x];
            for (int x = 0; x < size_.width; ++x) {
                const Enlarged across(std::clamp(x - border, 0, 2 * frame.cols - 1));
                float sum = 0.0F;
                for (int k = 0; k < 4; ++k)
                    sum += across.weights[static_cast<std::size_t>(k)] *
                           mixed[std::clamp(across.first + k, 0, frame.cols - 1)];
                picture_(y, x) = sum;
            }
        }
    });
}

void MotionSolver::toLanes(Worker& worker, const float* row, float* lanes) const
{
    std::copy_n(row, layout_.width, worker.columns.data());
    std::fill(worker.columns.begin() + layout_.width, worker.columns.end(), 0.0F);
    layout_.toLanes(worker.columns.data(), lanes);
}

void MotionSolver::solve(int count, float strength)
{
    forEachBand([this](Worker& worker, const RowRange& range) {
        for (int y = range.first; y < range.end; ++y)
            toLanes(worker, picture_[y], u_.row(y));
    });
    for (int round = 0; round < MotionSettings::rounds; ++round) {
        linearise(count, strength);
        double energy = sums_.total();
        for (int step = 0; step < MotionSettings::steps && energy > 0.0; ++step) {
            multiply(count);
            const double curvature = sums_.total();
            if (!(curvature > 0.0))
                break;
            const auto length = static_cast<float>(energy / curvature);
#pragma omp parallel for schedule(static)
            for (int y = 0; y < size_.height; ++y)
                sums_[y] = axpyDotRow(length, q_.row(y), r_.row(y), layout_.size());
            const double next = sums_.total();
            const auto beta = static_cast<float>(next / energy);
            energy = next;
#pragma omp parallel for schedule(static)
            for (int y = 0; y < size_.height; ++y)
                axpyXpayRow(length, beta, s_.row(y), r_.row(y), u_.row(y), layout_.size());
        }
        takeEstimate();
    }
}

void MotionSolver::takeEstimate()
{
    forEachBand([this](Worker& worker, const RowRange& range) {
        for (int y = range.first; y < range.end; ++y) {
            layout_.fromLanes(u_.row(y), worker.columns.data());
            std::copy_n(worker.columns.data(), layout_.width, picture_[y]);
        }
    });
}

// Freezes the prior's slopes at the estimate, and sets the residual, which is also the first direction.
void MotionSolver::linearise(int count, float strength)
{
    const EdgePotential potential{-strength, MotionSettings::priorBend, std::numeric_limits<float>::max()};
    forEachBand([&](Worker&, const RowRange& range) {
        for (int y = range.first; y < range.end; ++y)
            std::fill_n(product_[y], product_.cols, 0.0F);
        for (int k = 0; k < count; ++k)
            addResidual(table_, frame(k), picture_, range, product_);
    });
    forEachBand([&](Worker& worker, const RowRange& range) {
        const auto fetch = [&](int y) {
            if (y >= layout_.height)
                return;
            std::copy_n(u_.row(y), layout_.size(), worker.lines.open(y));
            worker.lines.close(y);
        };
        fetch(range.first);
        for (int y = range.first; y < range.end; ++y) {
            fetch(y + 1);
            fillEdgeWeights(layout_, potential, y, {nullptr, worker.lines.row(y), worker.lines.row(y + 1)},
                            weights(y));
        }
    });
    forEachBand([&](Worker& worker, const RowRange& range) { finishRows(worker, range, u_, true); });
}

// Sets q to the system applied to s, and the sums to their product.
void MotionSolver::multiply(int count)
{
    forEachBand([&](Worker& worker, const RowRange& range) {
        for (int y = range.first; y < range.end; ++y) {
            layout_.fromLanes(s_.row(y), worker.columns.data());
            std::copy_n(worker.columns.data(), layout_.width, direction_[y]);
        }
    });
    forEachBand([&](Worker& worker, const RowRange& range) {
        for (int y = range.first; y < range.end; ++y)
            std::fill_n(product_[y], product_.cols, 0.0F);
        for (int k = 0; k < count; ++k)
            addNormal(table_, frame(k), direction_, range, product_);
        finishRows(worker, range, s_, false);
    });
}

// Joins the prior's part of rows to that of the frames, which stands in product_.
void MotionSolver::finishRows(Worker& worker, const RowRange& range, const LaneImage& image, bool isResidual)
{
    const auto fetch = [&](int y) {
        if (y < 0 || y >= layout_.height)
            return;
        std::copy_n(image.row(y), layout_.size(), worker.lines.open(y));
        worker.lines.close(y);
    };
    fetch(range.first - 1);
    fetch(range.first);
    for (int y = range.first; y < range.end; ++y) {
        fetch(y + 1);
        const RowTriple rows{worker.lines.row(y - 1), worker.lines.row(y), worker.lines.row(y + 1)};
        applyLaplacian(layout_, weights(y - 1), weights(y), rows, q_.row(y));
        if (isResidual) {
            toLanes(worker, product_[y], r_.row(y));
            sums_[y] = residualRow(r_.row(y), q_.row(y), layout_.size());
            std::copy_n(q_.row(y), layout_.size(), r_.row(y));
            std::copy_n(r_.row(y), layout_.size(), s_.row(y));
        } else {
            toLanes(worker, product_[y], worker.lanes.data());
            addRow(worker.lanes.data(), q_.row(y), layout_.size());
            sums_[y] = dotRow(s_.row(y), q_.row(y), layout_.size());
        }
    }
}

void MotionSolver::coverage(int count, cv::Mat_<float>& out)
{
    out.create(frameSize_);
    forEachBand([&](Worker&, const RowRange& range) {
        for (int y = range.first; y < range.end; ++y)
            std::fill_n(product_[y], product_.cols, 0.0F);
        for (int k = 0; k < count; ++k)
            addCoverage(table_, frame(k), range, product_);
    });
#pragma omp parallel for schedule(static)
    for (int y = 0; y < frameSize_.height; ++y) {
        const float* const upper = product_[2 * y + border] + border;
        const float* const lower = product_[2 * y + 1 + border] + border;
        for (int x = 0; x < frameSize_.width; ++x)
            out(y, x) = (upper[2 * x] + upper[2 * x + 1]) + (lower[2 * x] + lower[2 * x + 1]);
    }
}

}  // namespace halvor::vx
