#include <algorithm>
#include <cstddef>

#include "enhancement/superresolution/SolverRows.h"
#include "enhancement/superresolution/SrFloatSystem.h"

// The system with its operators one after the other, on whole images.
namespace halvor::vx {

namespace {

constexpr int debugLevel = 11;

}  // namespace

void SrFloatSystem::backProjectByOperators()
{
    forEachRow([this](int y) { std::fill_n(B.row(y), layout_.pitch, 0.0F); });
    for (int k = 0; k < burst_.count; ++k) {
        conv.fullConvFromSparse(burst_.frames[k], burst_.psfX[k].data(), burst_.psfY[k].data(),
                                burst_.masks[k], TmpFull[0]);
        addTmpFull(B);
    }
    forEachRow([this](int y) {
        std::copy_n(B.row(y), layout_.pitch, U.row(y));
        sums_[y] = dotRow(B.row(y), B.row(y), layout_.pitch);
    });
}

template <typename Visit>
void SrFloatSystem::forEachTriple(const LaneImage& x, Visit visit)
{
    forEachWorker([&](Worker& worker, PairRange range) {
        const auto fetch = [&](int y) {
            if (y < 0 || y >= layout_.height)
                return;
            std::copy_n(x.row(y), layout_.size(), worker.window.open(y));
            worker.window.close(y);
        };
        const int first = 2 * range.first;
        fetch(first - 1);
        fetch(first);
        for (int y = first; y < std::min(2 * range.end, layout_.height); ++y) {
            fetch(y + 1);
            visit(worker, y, triple(worker.window, y));
        }
    });
}

void SrFloatSystem::computeL(const EdgePotential& potential)
{
    forEachTriple(U, [&](Worker&, int y, const RowTriple& rows) {
        fillEdgeWeights(layout_, potential, y, rows, weightRow(y));
    });
}

void SrFloatSystem::gradient(const LaneImage& x, LaneImage& out)
{
    debug_.send("start gradient", debugLevel);
    const int last = layout_.width - 1;
    forEachTriple(x, [&](Worker& worker, int y, const RowTriple& rows) {
        applyLaplacian(layout_, weightRow(y - 1), weightRow(y), rows, out.row(y));
        layout_.clearPadding(out.row(y));
        // The linear index wraps round the ends of a row. The weights there are zero, but not their products
        // with a value that is not finite.
        for (const int column : {0, last})
            out.row(y)[layout_.place(column)] = laplacianAt(x, y * layout_.width + column);
        layout_.fromLanes(x.row(y), worker.columns.data());
        std::copy_n(worker.columns.data(), layout_.width, plain_[y]);
    });
    for (int k = 0; k < burst_.count; ++k) {
        debug_.send("gradient for frame: ", k, debugLevel);
        const float* const psfX = burst_.psfX[k].data();
        const float* const psfY = burst_.psfY[k].data();
        conv.validCorrToSparse(plain_[0], psfX, psfY, TmpConv[0]);
        conv.fullConvFromSparse(TmpConv[0], psfX, psfY, burst_.masks[k], TmpFull[0]);
        addTmpFull(out);
    }
    debug_.send("end gradient", debugLevel);
}

void SrFloatSystem::addTmpFull(LaneImage& out)
{
    forEachWorker([&](Worker& worker, PairRange range) {
        for (int y = 2 * range.first; y < std::min(2 * range.end, layout_.height); ++y) {
            std::copy_n(TmpFull[y], layout_.width, worker.columns.data());
            std::fill(worker.columns.begin() + layout_.width, worker.columns.end(), 0.0F);
            layout_.toLanes(worker.columns.data(), worker.border[0]);
            addRow(worker.border[0], out.row(y), layout_.size());
        }
    });
}

float SrFloatSystem::laplacianAt(const LaneImage& x, int index) const
{
    const int width = layout_.width;
    const int count = width * layout_.height;
    const auto at = [&](const LaneImage& image, int i) {
        return image.row(i / width)[layout_.place(i % width)];
    };
    float centre = 0.0F;
    float sum = 0.0F;
    const auto touch = [&](const LaneImage& weights, int edge) { centre -= at(weights, edge); };
    const auto add = [&](float weight, int neighbour) { sum += weight * at(x, neighbour); };

    const bool hasAbove = index >= width;
    const bool hasBelow = index < count - width;
    if (index > width)
        touch(Ldr, index - width - 1);
    if (hasAbove) {
        touch(Ld, index - width);
        touch(Ldl, index - width + 1);
    }
    if (index > 0)
        touch(Lr, index - 1);
    touch(Lr, index);
    touch(Ldr, index);
    touch(Ld, index);
    touch(Ldl, index);

    if (index > width)
        add(at(Ldr, index - width - 1), index - width - 1);
    if (hasAbove) {
        add(at(Ld, index - width), index - width);
        add(at(Ldl, index - width + 1), index - width + 1);
    }
    if (index > 0)
        add(at(Lr, index - 1), index - 1);
    add(centre, index);
    if (index < count - 1)
        add(at(Lr, index), index + 1);
    if (index > 0 && hasBelow)
        add(at(Ldl, index), index + width - 1);
    if (hasBelow)
        add(at(Ld, index), index + width);
    if (index < count - width - 1)
        add(at(Ldr, index), index + width + 1);
    return sum;
}

}  // namespace halvor::vx
