// SPDX-License-Identifier: Apache-2.0
// The operator as the solver uses it: edge weights by table.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

#include "core/base/Exception.h"
#include "core/base/ParallelPixels.h"
#include "core/diagnostics/DebugLevels.h"
#include "enhancement/superresolution/SrIntMinimization.h"
#include "enhancement/superresolution/fixedpoint/VariationRows.h"

namespace halvor::vx {

using fixedpoint::EdgeIndex;
using fixedpoint::EdgeRow;
using fixedpoint::weightEntries;

namespace {

constexpr int stepLevel = DebugLevel::step;
constexpr int weightLimit = 30000;

bool isAllowed(short weight)
{
    return weight >= -weightLimit && weight <= weightLimit;
}

// epsilon or its inverse in samples of an image of exponent e.
short boundInSamples(const Fixpoint& bound, signed char e)
{
    const int shift = std::clamp(bound.getExponent() - e, -128, 127);
    return static_cast<short>(
        std::clamp(shiftRound32(bound.getMantissa(), static_cast<std::int8_t>(shift)), 1, 0x7FFF));
}

}  // namespace

void SrIntMinimization::computeLambdaDivByEpsLut(const Fixpoint& lambda)
{
    lambdaLut_.assign(weightEntries, 0);
    const auto shift = static_cast<std::int8_t>(lambda.getExponent() - 1);
    for (int i = 1; i < weightEntries; ++i)
        lambdaLut_[i] = static_cast<short>(shiftRound32(lambda.getMantissa() * 65536 / i, shift));
}

void SrIntMinimization::computeLSimplified(const cv::Mat_<short>& X, const Fixpoint& epsilon,
                                           const Fixpoint& invEpsilon, const Fixpoint& lambda, signed char e)
{
    if (X.rows != fullHeight_ || X.cols != fullWidth_ || !X.isContinuous())
        throw Exception("invalid input frame size",
                        VX_WHERE("halvor::vx::SrIntMinimization::computeLSimplified"));
    const short lo = boundInSamples(epsilon, e);
    const short hi = boundInSamples(invEpsilon, e);
    if (debugChannel_.isDebugActive(stepLevel)) {
        fillWeightsByPixel(X, epsilon, invEpsilon, lo, hi, lambda, e);
        return;
    }
    std::array<short, weightEntries> table{};
    for (int i = 0; i < weightEntries; ++i)
        table[i] = isAllowed(lambdaLut_[i]) ? lambdaLut_[i] : short{0};
    const EdgeIndex index(lo, hi, e);
#pragma omp parallel for schedule(static) if (X_.total() >= parallelPixels)
    for (int y = 0; y < fullHeight_; ++y)
        fillWeightRow(index, table.data(), X, y);
}

void SrIntMinimization::fillWeightRow(const EdgeIndex& index, const short* table, const cv::Mat_<short>& X,
                                      int y)
{
    const int last = fullWidth_ - 1;
    const short* const own = X[y];
    fixedpoint::fillEdges(index, table, own, own + 1, false, Lr_[y], last);
    Lr_[y][last] = 0;
    if (y == fullHeight_ - 1) {
        for (cv::Mat_<short>* plane : {&Ld_, &Ldl_, &Ldr_})
            std::fill_n((*plane)[y], fullWidth_, short{0});
        return;
    }
    const short* const below = X[y + 1];
    fixedpoint::fillEdges(index, table, own, below, false, Ld_[y], fullWidth_);
    fixedpoint::fillEdges(index, table, own, below + 1, true, Ldr_[y], last);
    Ldr_[y][last] = 0;
    fixedpoint::fillEdges(index, table, own + 1, below, true, Ldl_[y] + 1, last);
    Ldl_[y][0] = 0;
}

// With the lines about single weights, in the order of the pixels.
void SrIntMinimization::fillWeightsByPixel(const cv::Mat_<short>& X, const Fixpoint& epsilon,
                                           const Fixpoint& invEpsilon, short lo, short hi,
                                           const Fixpoint& lambda, signed char e)
{
    const auto weight = [&](int y1, int x1, int y0, int x0, bool diagonal) {
        return computeLpixelSimplified(X[0], static_cast<short>(y1), static_cast<short>(x1),
                                       static_cast<short>(y0), static_cast<short>(x0), diagonal, epsilon,
                                       invEpsilon, lo, hi, lambda, e);
    };
    for (int y = 0; y < fullHeight_; ++y)
        for (int x = 0; x < fullWidth_; ++x) {
            Lr_[y][x] = weight(y, x + 1, y, x, false);
            Ld_[y][x] = weight(y + 1, x, y, x, false);
            Ldr_[y][x] = weight(y + 1, x + 1, y, x, true);
            Ldl_[y][x] = weight(y + 1, x - 1, y, x, true);
        }
}

short SrIntMinimization::computeLpixelSimplified(const short* X, short y1, short x1, short y0, short x0,
                                                 bool diagonal, Fixpoint /*epsilon*/, Fixpoint /*invEpsilon*/,
                                                 short lo, short hi, Fixpoint /*lambda*/, signed char e)
{
    if (!checkAddrWithinFrame(static_cast<unsigned short>(y1), static_cast<unsigned short>(x1),
                              static_cast<unsigned short>(fullHeight_),
                              static_cast<unsigned short>(fullWidth_)))
        return 0;
    std::int32_t difference = std::abs(X[y1 * fullWidth_ + x1] - X[y0 * fullWidth_ + x0]);
    if (diagonal)
        difference = fixedpoint::diagonalDifference(difference);
    const short weight = lambdaLut_[EdgeIndex(lo, hi, e)(difference)];
    if (isAllowed(weight))
        return weight;
    debugChannel_.send("computeLpixel out of allowed range", stepLevel);
    return 0;
}

void SrIntMinimization::applyLSimplified(const cv::Mat_<short>& in, cv::Mat_<short>& out)
{
    constexpr const char* function = "halvor::vx::SrIntMinimization::applyLSimplified";
    if (in.rows != fullHeight_ || in.cols != fullWidth_ || !in.isContinuous())
        throw Exception("invalid input frame size", VX_WHERE(function));
    if (out.rows != fullHeight_ || out.cols != fullWidth_)
        throw Exception("invalid result frame size", VX_WHERE(function));
#pragma omp parallel for schedule(static) if (X_.total() >= parallelPixels)
    for (int y = 0; y < fullHeight_; ++y)
        applyWeightRow(in, y, out[y]);
}

void SrIntMinimization::applyWeightRow(const cv::Mat_<short>& in, int y, short* out)
{
    const short* const none = zeroRow_.data();
    const EdgeRow own{Lr_[y], Ld_[y], Ldl_[y], Ldr_[y]};
    const EdgeRow above =
        y == 0 ? EdgeRow{none, none, none, none} : EdgeRow{Lr_[y - 1], Ld_[y - 1], Ldl_[y - 1], Ldr_[y - 1]};
    fixedpoint::applyEdges(above, own, y == 0 ? none : in[y - 1], in[y],
                           y == fullHeight_ - 1 ? none : in[y + 1], out, fullWidth_);
}

short SrIntMinimization::applyLpixelSimplified(const short* Ldr, const short* Ld, const short* Ldl,
                                               const short* Lr, const short* in, short y, short x)
{
    const auto at = [&](const short* plane, int row, int column) {
        short value = 0;
        GetFrameOrientedData(plane, static_cast<short>(row), static_cast<short>(column), value);
        return value;
    };
    return fixedpoint::laplacian(
        {at(Ldr, y - 1, x - 1), at(Ld, y - 1, x), at(Ldl, y - 1, x + 1), at(Lr, y, x - 1), at(Lr, y, x),
         at(Ldl, y, x), at(Ld, y, x), at(Ldr, y, x)},
        {at(in, y - 1, x - 1), at(in, y - 1, x), at(in, y - 1, x + 1), at(in, y, x - 1), at(in, y, x + 1),
         at(in, y + 1, x - 1), at(in, y + 1, x), at(in, y + 1, x + 1)},
        at(in, y, x));
}

short SrIntMinimization::computeLc(short c1, short c2, short c3, short c4, short c5, short c6, short c7,
                                   short c8)
{
    return fixedpoint::centreWeight(c1, c2, c3, c4, c5, c6, c7, c8);
}

void SrIntMinimization::GetFrameOrientedData(const short* plane, short y, short x, short& value)
{
    const bool isInside = checkAddrWithinFrame(static_cast<unsigned short>(y), static_cast<unsigned short>(x),
                                               static_cast<unsigned short>(fullHeight_),
                                               static_cast<unsigned short>(fullWidth_));
    value = isInside ? plane[y * fullWidth_ + x] : short{0};
}

bool SrIntMinimization::checkAddrWithinFrame(unsigned short y, unsigned short x, unsigned short height,
                                             unsigned short width)
{
    return y < height && x < width;
}

}  // namespace halvor::vx
