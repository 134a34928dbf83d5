// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstddef>

#include "core/diagnostics/DebugLevels.h"
#include "enhancement/superresolution/solver/SolverRows.h"
#include "enhancement/superresolution/solver/SrFloatSystem.h"

// The system with its operators one after the other, on whole images.
namespace halvor::vx {

void SrFloatSystem::backProjectByOperators()
{
    forEachRow([this](int y) { std::fill_n(b_.row(y), layout_.size(), 0.0F); });
    for (int k = 0; k < burst_.count; ++k) {
        conv_.fullConvFromSparse(burst_.frames[k], burst_.psfX[k].data(), burst_.psfY[k].data(),
                                 burst_.masks[k], tmpFull_[0]);
        addTmpFull(b_);
    }
    forEachRow([this](int y) {
        std::copy_n(b_.row(y), layout_.size(), u_.row(y));
        sums_[y] = dotRow(b_.row(y), b_.row(y), layout_.size());
    });
}

template <typename Visit>
void SrFloatSystem::forEachTriple(const LaneImage& x, Visit visit)
{
    forEachWorker([&](Worker& worker, PairRange range) {
        const auto fetch = [&](int y) {
            if (y < 0 || y >= layout_.height)
                return;
            std::copy_n(x.row(y), layout_.size(), worker.lines.open(y));
            worker.lines.close(y);
        };
        const int first = 2 * range.first;
        fetch(first - 1);
        fetch(first);
        for (int y = first; y < std::min(2 * range.end, layout_.height); ++y) {
            fetch(y + 1);
            visit(worker, y, triple(worker.lines, y));
        }
    });
}

void SrFloatSystem::computeL(const EdgePotential& potential)
{
    forEachTriple(u_, [&](Worker&, int y, const RowTriple& rows) {
        fillEdgeWeights(layout_, potential, y, rows, weightRow(y));
    });
}

void SrFloatSystem::gradient(const LaneImage& x, LaneImage& out)
{
    debug_.send("start gradient", DebugLevel::step);
    forEachTriple(x, [&](Worker& worker, int y, const RowTriple& rows) {
        applyLaplacian(layout_, weightRow(y - 1), weightRow(y), rows, out.row(y));
        layout_.fromLanes(x.row(y), worker.columns.data());
        std::copy_n(worker.columns.data(), layout_.width, plain_[y]);
    });
    for (int k = 0; k < burst_.count; ++k) {
        debug_.send("gradient for frame: ", k, DebugLevel::step);
        const float* const psfX = burst_.psfX[k].data();
        const float* const psfY = burst_.psfY[k].data();
        conv_.validCorrToSparse(plain_[0], psfX, psfY, tmpConv_[0]);
        conv_.fullConvFromSparse(tmpConv_[0], psfX, psfY, burst_.masks[k], tmpFull_[0]);
        addTmpFull(out);
    }
    debug_.send("end gradient", DebugLevel::step);
}

void SrFloatSystem::addTmpFull(LaneImage& out)
{
    forEachWorker([&](Worker& worker, PairRange range) {
        for (int y = 2 * range.first; y < std::min(2 * range.end, layout_.height); ++y) {
            std::copy_n(tmpFull_[y], layout_.width, worker.columns.data());
            std::fill(worker.columns.begin() + layout_.width, worker.columns.end(), 0.0F);
            layout_.toLanes(worker.columns.data(), worker.halo[0]);
            addRow(worker.halo[0], out.row(y), layout_.size());
        }
    });
}

}  // namespace halvor::vx
