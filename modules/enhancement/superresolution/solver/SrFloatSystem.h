// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <omp.h>

#include <algorithm>
#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <optional>
#include <vector>

#include "core/base/RowSums.h"
#include "core/diagnostics/DebugChannel.h"
#include "enhancement/superresolution/SrFloatConvolution.h"
#include "enhancement/superresolution/solver/FrameSweep.h"
#include "enhancement/superresolution/solver/LaneImage.h"
#include "enhancement/superresolution/solver/LineBuffer.h"
#include "enhancement/superresolution/solver/TotalVariationRows.h"

namespace halvor::vx {

/// A burst as the solver sees it: one entry per frame.
struct SrFloatBurst
{
    const float* const* frames;
    const std::vector<float>* psfX;
    const std::vector<float>* psfY;
    const char* const* masks;
    int count;
};

/// The linear system of SrFloatMinimization and the vectors of its conjugate gradients, on the full grid.
///
/// (sum over frames of A^T M A + L) U = B, with A the imaging model of a frame, M its mask, L the
/// total-variation term with frozen weights and B the masked frames, projected back.
///
/// Each operation is one pass over the large image. Every thread owns a stretch of rows and runs all stages
/// on a few of them at a time, while they are in the cache; sums are kept per row, so that no result depends
/// on the number of threads. Where that short cut is not exact (a value is not finite) or not wanted (the
/// operators' debug lines are, or the factor is not 2) the operators run one after the other instead, to the
/// same bits.
///
/// A value that is not finite makes each step length not a number, and with it all of the result: what such a
/// value leaves beyond the image's edges does not matter. The next burst overwrites it.
class SrFloatSystem
{
public:
    /// @param debug  takes the lines of the operators; outlives this object
    SrFloatSystem(int frameWidth, int frameHeight, int capacity, float factor, int psfSize,
                  const DebugChannel& debug);

    /// Takes the burst, whose arrays must stay, and sets B and U to its back-projection.
    /// @return the squared norm of B
    double backProject(const SrFloatBurst& burst);
    /// Freezes the weights at U and sets R to B minus the system applied to U.
    /// @return the squared norm of R
    double linearise(const EdgePotential& potential);
    /// Sets S to R and Q to the system applied to S. R has no value then before step().
    /// @return the inner product of S and Q
    double startDirection();
    /// As startDirection(), with S = beta * S + R.
    double nextDirection(float beta);
    /// Adds alpha * S to U and takes alpha * Q from R.
    /// @return the squared norm of R
    double step(float alpha);

    /// Writes U without its margin, denormalised: U * scale + offset.
    void writeResult(float scale, float offset, float* out);

private:
    struct Worker
    {
        Worker(int frameWidth, int frameHeight, int capacity, const LaneLayout& layout);
        WeightRow weightsAbove();

        FrameSweep sweep;
        LineBuffer lines;
        cv::Mat_<float> above;       // weights of the row above the first own one, one kind per row
        cv::Mat_<float> halo;        // rows of other threads, as this thread's sweep needs them
        std::vector<float> columns;  // one row in the image's own order of columns
        std::vector<std::int8_t> maskColumns;
    };
    struct PairRange
    {
        int first;
        int end;
    };

    int pairCount() const { return (layout_.height + 1) / 2; }
    template <typename Pass>
    void forEachWorker(Pass pass);
    template <typename Work>
    void forEachRow(Work work);
    template <typename Halo, typename Own, typename Weights, typename Finish>
    void sweepSystem(LaneImage& out, bool isUpdated, Halo halo, Own own, Weights weights, Finish finish);
    template <typename Visit>
    void forEachTriple(const LaneImage& x, Visit visit);

    static RowTriple triple(const LineBuffer& lines, int y);
    WeightRow weightRow(int y);
    bool fusedWanted() const;

    void backProjectFused(Worker& worker, PairRange range);
    void backProjectByOperators();
    void lineariseFused(const EdgePotential& potential);
    template <typename Halo, typename Own>
    double multiplyDirection(bool isUpdated, Halo halo, Own own);
    void computeL(const EdgePotential& potential);
    void gradient(const LaneImage& x, LaneImage& out);
    void advanceEstimate(int y);
    void addTmpFull(LaneImage& out);

    int width_;
    int height_;
    float factor_;
    int psfSize_;
    const DebugChannel& debug_;
    LaneLayout layout_;
    SrFloatConvolution conv_;
    LaneImage b_;
    LaneImage u_;
    LaneImage lr_;
    LaneImage ld_;
    LaneImage ldl_;
    LaneImage ldr_;
    LaneImage r_;
    LaneImage s_;
    LaneImage q_;
    // Row-major arrays of the operators.
    cv::Mat_<float> tmpConv_;
    cv::Mat_<float> tmpFull_;
    cv::Mat_<float> plain_;
    RowSums<double> sums_;
    std::vector<FrameModel> models_;
    LaneMasks masks_;
    std::vector<Worker> workers_;
    SrFloatBurst burst_{};
    bool fused_ = false;
    bool isFirstStep_ = false;  // of the round
    // The last step's alpha. U takes alpha * S when it is passed over for the next time.
    std::optional<float> pendingAlpha_;
};

// pass(worker, pairs): each thread has a worker and a stretch of row pairs of its own.
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

}  // namespace halvor::vx
