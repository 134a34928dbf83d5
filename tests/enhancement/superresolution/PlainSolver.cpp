#include "enhancement/superresolution/PlainSolver.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numeric>

namespace halvor::vx::plain {

namespace {

float erfOf(float x)
{
    if (x == 0.0F)
        return 0.0F;
    const float q = x * x;
    const float t = -q * (0.14001229F * q + 1.2732395F) / (0.14001229F * q + 1.0F);
    return x > 0.0F ? std::sqrt(1.0F - std::exp(t)) : -std::sqrt(1.0F - std::exp(t));
}

float integral(float x, float sigma)
{
    const float c = 1.0F / (std::sqrt(2.0F) * sigma);
    return (erfOf((x + 0.5F) * c) - erfOf((x - 0.5F) * c)) / 2.0F;
}

void shiftKernel(const std::vector<float>& base, float s, std::vector<float>& kernel)
{
    const std::size_t n = base.size();
    kernel.assign(n, 0.0F);
    if (s >= 0.0F)
        for (std::size_t i = 0; i + 1 < n; ++i)
            kernel[i] = (1.0F - s) * base[i] + s * base[i + 1];
    else
        for (std::size_t i = 1; i < n; ++i)
            kernel[i] = -s * base[i - 1] + (s + 1.0F) * base[i];
}

// The sum over a row of a frame is made of eight partial sums: term i goes to number i modulo 8.
template <typename Term>
double frameRowSum(int n, Term term)
{
    std::array<double, 8> sums{};
    for (int i = 0; i < n; ++i)
        sums[static_cast<std::size_t>(i) % sums.size()] += static_cast<double>(term(i));
    return std::accumulate(sums.begin(), sums.end(), 0.0);
}

// The sum over a row of the large image is made of sixteen partial sums, each of a run of neighbouring
// columns. A run is an even number of columns.
template <typename Term>
double largeRowSum(int n, Term term)
{
    std::array<double, 16> sums{};
    const int run = 2 * std::max(2, (n + 31) / 32);
    for (int i = 0; i < n; ++i)
        sums[static_cast<std::size_t>(i / run)] += static_cast<double>(term(i));
    return std::accumulate(sums.begin(), sums.end(), 0.0);
}

}  // namespace

void Convolution::fullConvFromSparse(const float* sparse, const float* kernelX, const float* kernelY,
                                     const char* mask, float* full)
{
    std::fill_n(full, static_cast<std::size_t>(fullWidth) * fullHeight, 0.0F);
    std::fill(tmp.begin(), tmp.end(), 0.0F);
    for (int k = 0; k < taps; ++k)
        for (int r = 0; r < lowHeight; ++r)
            for (int c = 0; c < lowWidth; ++c)
                tmp[(k + 2 * r) * lowWidth + c] +=
                    static_cast<float>(static_cast<std::int8_t>(mask[r * lowWidth + c])) *
                    sparse[r * lowWidth + c] * kernelY[k];
    for (int k = 0; k < taps; ++k)
        for (int r = 0; r < fullHeight; ++r)
            for (int c = 0; c < lowWidth; ++c)
                full[r * fullWidth + c * stride + k] += tmp[r * lowWidth + c] * kernelX[k];
}

void Convolution::validCorrToSparse(const float* full, const float* kernelX, const float* kernelY,
                                    float* sparse)
{
    std::fill_n(sparse, static_cast<std::size_t>(lowWidth) * lowHeight, 0.0F);
    std::fill(tmp.begin(), tmp.end(), 0.0F);
    for (int k = 0; k < taps; ++k)
        for (int r = 0; r < fullHeight; ++r)
            for (int c = 0; c < lowWidth; ++c)
                tmp[r * lowWidth + c] += full[r * fullWidth + c * stride + k] * kernelX[k];
    for (int k = 0; k < taps; ++k)
        for (int r = 0; r < lowHeight; ++r)
            for (int c = 0; c < lowWidth; ++c)
                sparse[r * lowWidth + c] += tmp[(k + 2 * r) * lowWidth + c] * kernelY[k];
}

Solver::Solver(int frameWidth, int frameHeight)
    : width(frameWidth),
      height(frameHeight),
      fullWidth(2 * frameWidth + taps - 1),
      fullHeight(2 * frameHeight + taps - 1),
      conv{frameWidth, frameHeight, taps, 2},
      tmpConv(static_cast<std::size_t>(frameWidth) * frameHeight),
      tmpFull(static_cast<std::size_t>(fullWidth) * fullHeight)
{
    for (std::vector<float>* image : {&B, &U, &Lr, &Ld, &Ldl, &Ldr, &Lc, &R, &S, &Q})
        image->assign(tmpFull.size(), 0.0F);
    setPsfSigma(0.683F);
}

void Solver::setPsfSigma(float sigma)
{
    basePsf.assign(taps, 0.0F);
    float total = 0.0F;
    for (int i = 0; static_cast<float>(i) < factor; ++i) {
        const float v = integral(static_cast<float>(i) + 0.5F, sigma);
        basePsf[taps / 2 - 1 - i] = v;
        basePsf[taps / 2 + i] = v;
        total += 2.0F * v;
    }
    for (float& tap : basePsf)
        tap /= total;
}

int Solver::minimize(int count, int referenceFrame, float* const* frames, const PointF* shifts, char** masks,
                     float* result)
{
    const float* reference = frames[referenceFrame];
    double sum = 0.0;
    for (int r = 0; r < height; ++r)
        sum += frameRowSum(width, [&](int c) { return reference[r * width + c]; });
    const double exactMean = sum / (width * height);
    double squares = 0.0;
    for (int r = 0; r < height; ++r)
        squares += frameRowSum(width, [&](int c) {
            const double difference = reference[r * width + c] - exactMean;
            return difference * difference;
        });
    const float sigma = std::sqrt(static_cast<float>(squares / (width * height)));
    const auto mean = static_cast<float>(exactMean);
    for (int k = 0; k < count; ++k)
        for (int i = 0; i < width * height; ++i)
            frames[k][i] = (frames[k][i] - mean) / sigma;

    generatePsfs(count, shifts);
    backProject(count, frames, masks);
    int cumulated = 0;
    for (int large = 0; large < maxIter; ++large) {
        const int n = conjugateGradients(count, masks, maxIter - cumulated);
        cumulated += n;
        if (n == 0)
            break;
    }
    const int margin = (taps - 1) / 2;
    for (int r = 0; r < 2 * height; ++r)
        for (int c = 0; c < 2 * width; ++c)
            result[r * 2 * width + c] = U[(r + margin) * fullWidth + c + margin] * sigma + mean;
    return cumulated;
}

void Solver::generatePsfs(int count, const PointF* shifts)
{
    psfX.resize(count);
    psfY.resize(count);
    for (int k = 0; k < count; ++k) {
        shiftKernel(basePsf, shifts[k].x * factor, psfX[k]);
        shiftKernel(basePsf, shifts[k].y * factor, psfY[k]);
    }
}

void Solver::backProject(int count, const float* const* frames, char** masks)
{
    std::fill(B.begin(), B.end(), 0.0F);
    for (int k = 0; k < count; ++k) {
        conv.fullConvFromSparse(frames[k], psfX[k].data(), psfY[k].data(), masks[k], tmpFull.data());
        for (std::size_t i = 0; i < B.size(); ++i)
            B[i] += tmpFull[i];
    }
    NormB = static_cast<float>(1.0 / dot(B, B));
    U = B;
}

int Solver::conjugateGradients(int count, char** masks, int budget)
{
    computeL();
    gradient(U, count, masks, R);
    for (std::size_t i = 0; i < R.size(); ++i) {
        R[i] = B[i] - R[i];
        S[i] = R[i];
    }
    Pnr = static_cast<float>(dot(R, R));
    if (relRes * relRes > Pnr * NormB)
        return 0;
    for (int i = 0; i < budget; ++i)
        if (iteration(count, masks))
            return i + 1;
    return budget;
}

void Solver::computeL()
{
    const int W = fullWidth;
    const int n = fullWidth * fullHeight;
    const float negInvWeightTV = -1.0F / weightTV;
    const float invEpsilon = 1.0F / epsilon;
    const float invSqrt2 = 1.0F / std::sqrt(2.0F);
    const auto w = [&](float d) {
        float m = epsilon;
        if (d > epsilon)
            m = d < invEpsilon ? d : invEpsilon;
        return negInvWeightTV / m;
    };
    Lr[0] = w(std::abs(U[2] - U[1]));
    Ld[0] = w(std::abs(U[1 + W] - U[1]));
    Ldr[0] = w(std::abs(U[2 + W] - U[1]) * invSqrt2) * 0.5F;
    Ldl[0] = 0.0F;
    for (int i = 1; i < n - W; ++i) {
        Lr[i] = w(std::abs(U[i + 1] - U[i]));
        Ld[i] = w(std::abs(U[i + W] - U[i]));
        // The last of these pixels has no neighbour there; its weight is set to 0 with those of all row ends.
        if (i + W + 1 < n)
            Ldr[i] = w(std::abs(U[i + W + 1] - U[i]) * invSqrt2) * 0.5F;
        Ldl[i] = w(std::abs(U[i + W - 1] - U[i]) * invSqrt2) * 0.5F;
    }
    for (int i = n - W; i < n - 1; ++i) {
        Ld[i] = 0.0F;
        Ldr[i] = 0.0F;
        Ldl[i] = 0.0F;
        Lr[i] = w(std::abs(U[i + 1] - U[i]));
    }
    for (int y = 0; y < fullHeight; ++y) {
        Ldl[y * W] = 0.0F;
        Lr[y * W + W - 1] = 0.0F;
        Ldr[y * W + W - 1] = 0.0F;
    }
    Ld[n - 1] = 0.0F;
    Ldl[n - 1] = 0.0F;

    Lc[0] = -Lr[0] - Ldr[0] - Ld[0];
    for (int i = 1; i < W; ++i)
        Lc[i] = -Lr[i - 1] - Lr[i] - Ldr[i] - Ld[i] - Ldl[i];
    Lc[W] = -Ld[0] - Ldl[1] - Lr[W - 1] - Lr[W] - Ldr[W] - Ld[W] - Ldl[W];
    for (int i = W + 1; i < n; ++i)
        Lc[i] = -Ldr[i - W - 1] - Ld[i - W] - Ldl[i - W + 1] - Lr[i - 1] - Lr[i] - Ldr[i] - Ld[i] - Ldl[i];
}

void Solver::gradient(const std::vector<float>& x, int count, char** masks, std::vector<float>& out)
{
    const int W = fullWidth;
    const int n = fullWidth * fullHeight;
    out[0] = Lc[0] * x[0] + Lr[0] * x[1] + Ld[0] * x[W] + Ldr[0] * x[W + 1];
    for (int i = 1; i < W; ++i)
        out[i] = Lr[i - 1] * x[i - 1] + Lc[i] * x[i] + Lr[i] * x[i + 1] + Ldl[i] * x[i + W - 1] +
                 Ld[i] * x[i + W] + Ldr[i] * x[i + W + 1];
    out[W] = Ld[0] * x[0] + Ldl[1] * x[1] + Lr[W - 1] * x[W - 1] + Lc[W] * x[W] + Lr[W] * x[W + 1] +
             Ldl[W] * x[2 * W - 1] + Ld[W] * x[2 * W] + Ldr[W] * x[2 * W + 1];
    for (int i = W + 1; i < n - W - 1; ++i)
        out[i] = Ldr[i - W - 1] * x[i - W - 1] + Ld[i - W] * x[i - W] + Ldl[i - W + 1] * x[i - W + 1] +
                 Lr[i - 1] * x[i - 1] + Lc[i] * x[i] + Lr[i] * x[i + 1] + Ldl[i] * x[i + W - 1] +
                 Ld[i] * x[i + W] + Ldr[i] * x[i + W + 1];
    const int e = n - W - 1;
    out[e] = Ldr[e - W - 1] * x[e - W - 1] + Ld[e - W] * x[e - W] + Ldl[e - W + 1] * x[e - W + 1] +
             Lr[e - 1] * x[e - 1] + Lc[e] * x[e] + Lr[e] * x[e + 1] + Ldl[e] * x[e + W - 1] +
             Ld[e] * x[e + W];
    for (int i = n - W; i < n - 1; ++i)
        out[i] = Ldr[i - W - 1] * x[i - W - 1] + Ld[i - W] * x[i - W] + Ldl[i - W + 1] * x[i - W + 1] +
                 Lr[i - 1] * x[i - 1] + Lc[i] * x[i] + Lr[i] * x[i + 1];
    const int l = n - 1;
    out[l] = Ldr[l - W - 1] * x[l - W - 1] + Ld[l - W] * x[l - W] + Ldl[l - W + 1] * x[l - W + 1] +
             Lr[l - 1] * x[l - 1] + Lc[l] * x[l];

    for (int k = 0; k < count; ++k) {
        conv.validCorrToSparse(x.data(), psfX[k].data(), psfY[k].data(), tmpConv.data());
        conv.fullConvFromSparse(tmpConv.data(), psfX[k].data(), psfY[k].data(), masks[k], tmpFull.data());
        for (int i = 0; i < n; ++i)
            out[i] += tmpFull[i];
    }
}

bool Solver::iteration(int count, char** masks)
{
    gradient(S, count, masks, Q);
    const auto alpha = static_cast<float>(static_cast<double>(Pnr) / dot(S, Q));
    for (std::size_t i = 0; i < U.size(); ++i)
        U[i] += alpha * S[i];
    for (std::size_t i = 0; i < R.size(); ++i)
        R[i] -= alpha * Q[i];
    const double nr = dot(R, R);
    if (static_cast<double>(relRes * relRes) > static_cast<double>(NormB) * nr)
        return true;
    const auto beta = static_cast<float>(nr / static_cast<double>(Pnr));
    for (std::size_t i = 0; i < S.size(); ++i)
        S[i] = beta * S[i] + R[i];
    Pnr = static_cast<float>(nr);
    return false;
}

double Solver::dot(const std::vector<float>& a, const std::vector<float>& b) const
{
    double sum = 0.0;
    for (int y = 0; y < fullHeight; ++y) {
        const std::size_t start = static_cast<std::size_t>(y) * fullWidth;
        sum += largeRowSum(fullWidth, [&](int x) { return a[start + x] * b[start + x]; });
    }
    return sum;
}

}  // namespace halvor::vx::plain
