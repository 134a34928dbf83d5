#include "enhancement/superresolution/SolverRows.h"

#include "core/base/Kernel.h"
#include "core/base/RowSums.h"
#include "enhancement/superresolution/SplitImage.h"

namespace halvor::vx {

namespace {

constexpr int lanes = SplitLayout::block;

VX_KERNEL double dotKernel(const float* VX_RESTRICT a, const float* VX_RESTRICT b, int blocks)
{
    return laneSum<lanes>(blocks * lanes, [=](int i) { return a[i] * b[i]; });
}

VX_KERNEL double residualKernel(const float* VX_RESTRICT b, float* VX_RESTRICT r, int blocks)
{
    return laneSum<lanes>(blocks * lanes, [=](int i) {
        r[i] = b[i] - r[i];
        return r[i] * r[i];
    });
}

VX_KERNEL void directionKernel(float beta, const float* VX_RESTRICT s, const float* VX_RESTRICT r,
                               float* VX_RESTRICT out, int blocks)
{
    for (int i = 0; i < blocks * lanes; ++i)
        out[i] = beta * s[i] + r[i];
}

VX_KERNEL double stepKernel(float alpha, const float* VX_RESTRICT s, const float* VX_RESTRICT q,
                            float* VX_RESTRICT u, float* VX_RESTRICT r, int blocks)
{
    return laneSum<lanes>(blocks * lanes, [=](int i) {
        u[i] += alpha * s[i];
        r[i] -= alpha * q[i];
        return r[i] * r[i];
    });
}

VX_KERNEL void joinKernel(const float* VX_RESTRICT even, const float* VX_RESTRICT odd,
                          float* VX_RESTRICT plain, int pairs)
{
    for (int i = 0; i < pairs; ++i) {
        plain[2 * i] = even[i];
        plain[2 * i + 1] = odd[i];
    }
}

VX_KERNEL void addKernel(const float* VX_RESTRICT plain, float* VX_RESTRICT even, float* VX_RESTRICT odd,
                         int pairs)
{
    for (int i = 0; i < pairs; ++i) {
        even[i] += plain[2 * i];
        odd[i] += plain[2 * i + 1];
    }
}

VX_KERNEL void denormaliseKernel(const float* VX_RESTRICT first, const float* VX_RESTRICT second, float scale,
                                 float offset, float* VX_RESTRICT out, int pairs)
{
    for (int i = 0; i < pairs; ++i) {
        out[2 * i] = first[i] * scale + offset;
        out[2 * i + 1] = second[i] * scale + offset;
    }
}

}  // namespace

double dotRow(const float* a, const float* b, int blocks)
{
    return dotKernel(a, b, blocks);
}

double residualRow(const float* b, float* r, int blocks)
{
    return residualKernel(b, r, blocks);
}

void directionRow(float beta, const float* s, const float* r, float* out, int blocks)
{
    directionKernel(beta, s, r, out, blocks);
}

double stepRow(float alpha, const float* s, const float* q, float* u, float* r, int blocks)
{
    return stepKernel(alpha, s, q, u, r, blocks);
}

void joinRow(const float* split, int half, float* plain, int width)
{
    joinKernel(split, split + half, plain, width / 2);
    if (width % 2 != 0)
        plain[width - 1] = split[width / 2];
}

void addSplitRow(const float* plain, int width, float* split, int half)
{
    addKernel(plain, split, split + half, width / 2);
    if (width % 2 != 0)
        split[width / 2] += plain[width - 1];
}

void denormaliseRow(const float* first, const float* second, float scale, float offset, float* out, int width)
{
    denormaliseKernel(first, second, scale, offset, out, width / 2);
    if (width % 2 != 0)
        out[width - 1] = first[width / 2] * scale + offset;
}

}  // namespace halvor::vx
