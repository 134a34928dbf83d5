// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/solver/SolverRows.h"

#include "core/base/Kernel.h"
#include "core/base/RowSums.h"
#include "enhancement/superresolution/solver/LaneOrder.h"

namespace halvor::vx {

namespace {

constexpr int lanes = LaneOrder::lanes;

// Tells the compiler that a row has whole blocks.
inline int wholeBlocks(int floats)
{
    return floats / lanes * lanes;
}

}  // namespace

VX_KERNEL double dotRow(const float* VX_RESTRICT a, const float* VX_RESTRICT b, int floats)
{
    return laneSum<lanes>(wholeBlocks(floats), [=](int i) { return a[i] * b[i]; });
}

VX_KERNEL double residualRow(const float* VX_RESTRICT b, float* VX_RESTRICT r, int floats)
{
    return laneSum<lanes>(wholeBlocks(floats), [=](int i) {
        r[i] = b[i] - r[i];
        return r[i] * r[i];
    });
}

VX_KERNEL void xpayRow(float beta, const float* VX_RESTRICT s, const float* VX_RESTRICT r,
                       float* VX_RESTRICT out, int floats)
{
    for (int i = 0; i < wholeBlocks(floats); ++i)
        out[i] = beta * s[i] + r[i];
}

VX_KERNEL void axpyXpayRow(float alpha, float beta, float* VX_RESTRICT s, const float* VX_RESTRICT r,
                           float* VX_RESTRICT u, int floats)
{
    for (int i = 0; i < wholeBlocks(floats); ++i) {
        u[i] += alpha * s[i];
        s[i] = beta * s[i] + r[i];
    }
}

VX_KERNEL void axpyRow(float alpha, const float* VX_RESTRICT s, const float* u, float* out, int floats)
{
    for (int i = 0; i < wholeBlocks(floats); ++i)
        out[i] = u[i] + alpha * s[i];
}

VX_KERNEL void addRow(const float* VX_RESTRICT other, float* VX_RESTRICT row, int floats)
{
    for (int i = 0; i < wholeBlocks(floats); ++i)
        row[i] += other[i];
}

VX_KERNEL double axpyDotRow(float alpha, const float* VX_RESTRICT q, const float* VX_RESTRICT s,
                            float* VX_RESTRICT r, int floats)
{
    return laneSum<lanes>(wholeBlocks(floats), [=](int i) {
        r[i] = s[i] - alpha * q[i];
        return r[i] * r[i];
    });
}

VX_KERNEL double axpyDotRow(float alpha, const float* VX_RESTRICT q, float* VX_RESTRICT r, int floats)
{
    return laneSum<lanes>(wholeBlocks(floats), [=](int i) {
        r[i] -= alpha * q[i];
        return r[i] * r[i];
    });
}

VX_KERNEL void denormaliseRow(const float* VX_RESTRICT columns, float scale, float offset,
                              float* VX_RESTRICT out, int n)
{
    for (int i = 0; i < n; ++i)
        out[i] = columns[i] * scale + offset;
}

}  // namespace halvor::vx
