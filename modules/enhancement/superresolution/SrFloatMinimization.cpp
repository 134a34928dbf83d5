#include "enhancement/superresolution/SrFloatMinimization.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "core/base/RowSums.h"
#include "core/diagnostics/DebugSingleton.h"
#include "core/imaging/PointSpread.h"

namespace halvor::vx {

namespace {

constexpr int debugLevel = 11;
const float invSqrt2 = 1.0F / std::sqrt(2.0F);

}  // namespace

SrFloatMinimization::SrFloatMinimization(int frameWidth, int frameHeight, int frames, float resolutionFactor)
    : DebugChannel("SrFloat"),
      width(frameWidth),
      height(frameHeight),
      psfSize(static_cast<int>(resolutionFactor * 3.0F)),
      fullWidth(static_cast<int>(static_cast<float>(width) * resolutionFactor + static_cast<float>(psfSize) -
                                 1.0F)),
      fullHeight(static_cast<int>(static_cast<float>(height) * resolutionFactor +
                                  static_cast<float>(psfSize) - 1.0F)),
      pixelCount(fullWidth * fullHeight),
      numFrames(frames),
      factor(resolutionFactor),
      basePsf(psfSize),
      psfX(numFrames, basePsf),
      psfY(numFrames, basePsf),
      conv(static_cast<int>(static_cast<float>(width) * factor),
           static_cast<int>(static_cast<float>(height) * factor), psfSize, psfSize, factor),
      TmpConv(static_cast<std::size_t>(width) * height),
      TmpFull(pixelCount),
      B(pixelCount),
      U(pixelCount),
      Lr(pixelCount),
      Ld(pixelCount),
      Ldl(pixelCount),
      Ldr(pixelCount),
      Lc(pixelCount),
      R(pixelCount),
      S(pixelCount),
      Q(pixelCount)
{
    DebugSingleton::getInstance("").addDebugChannel(this);
    setPsfSigma(0.683F);
    setWeightTV(400.0F);
    setEpsilon(0.1F);
    setRelRes(0.007F);
    setMaxIter(8);
}

SrFloatMinimization::~SrFloatMinimization()
{
    DebugSingleton::getInstance("").removeDebugChannel(this);
}

void SrFloatMinimization::setPsfSigma(float sigma)
{
    psfSigma = sigma;
    fillBasePsf(sigma, factor, basePsf);
}

void SrFloatMinimization::setWeightTV(float weight)
{
    weightTV = weight;
    negInvWeightTV = -1.0F / weight;
}

void SrFloatMinimization::setEpsilon(float value)
{
    epsilon = value;
    invEpsilon = 1.0F / value;
}

int SrFloatMinimization::minimize(int frameCount, int referenceFrame, float* const* registeredFrames,
                                  PointF* const shifts, char** masks, float* outputImage)
{
    send("start minimize", debugLevel);
    const int inputSize = width * height;
    const float* reference = registeredFrames[referenceFrame];
    const double exactMean = laneSum(inputSize, [=](int i) { return reference[i]; }) / inputSize;
    const double variance = laneSum(inputSize,
                                    [=](int i) {
                                        const double difference = reference[i] - exactMean;
                                        return difference * difference;
                                    }) /
                            inputSize;
    const float sigma = std::sqrt(static_cast<float>(variance));
    const auto mean = static_cast<float>(exactMean);
    for (int k = 0; k < frameCount; ++k)
        for (int i = 0; i < inputSize; ++i)
            registeredFrames[k][i] = (registeredFrames[k][i] - mean) / sigma;
    generatePsfs(frameCount, shifts);

    std::fill(B.begin(), B.end(), 0.0F);
    for (int k = 0; k < frameCount; ++k) {
        conv.fullConvFromSparse(registeredFrames[k], psfX[k].data(), psfY[k].data(), masks[k],
                                TmpFull.data());
        for (int i = 0; i < pixelCount; ++i)
            B[i] += TmpFull[i];
    }
    NormB = static_cast<float>(1.0 / laneSum(pixelCount, [this](int i) { return B[i] * B[i]; }));
    U = B;

    int cumulated = 0;
    for (int large = 0; large < maxIter; ++large) {
        send("start large iteration: ", large, debugLevel);
        const int steps = conjugateGradients(frameCount, masks, maxIter - cumulated);
        cumulated += steps;
        send("end large iteration: ", large, debugLevel);
        if (steps == 0)
            break;
    }
    send("cummulated iterations", cumulated, debugLevel);

    const int margin = (psfSize - 1) / 2;
    const int outWidth = static_cast<int>(static_cast<float>(width) * factor);
    const int outHeight = static_cast<int>(static_cast<float>(height) * factor);
    for (int r = 0; r < outHeight; ++r)
        for (int c = 0; c < outWidth; ++c)
            outputImage[r * outWidth + c] = U[(r + margin) * fullWidth + c + margin] * sigma + mean;
    send("end minimize", debugLevel);
    return cumulated;
}

void SrFloatMinimization::generatePsfs(int count, const PointF* shifts)
{
    for (int k = 0; k < count; ++k) {
        shiftPsf(basePsf, shifts[k].x * factor, psfX[k]);
        shiftPsf(basePsf, shifts[k].y * factor, psfY[k]);
    }
}

int SrFloatMinimization::conjugateGradients(int count, char** masks, int budget)
{
    computeL();
    gradient(U.data(), count, masks, R.data());
    for (int i = 0; i < pixelCount; ++i)
        S[i] = R[i] = B[i] - R[i];
    Pnr = static_cast<float>(laneSum(pixelCount, [this](int i) { return R[i] * R[i]; }));
    if (relRes * relRes > Pnr * NormB)
        return 0;
    for (int i = 0; i < budget; ++i) {
        send("start small iteration: ", i, debugLevel);
        if (iteration(i, count, masks)) {
            send("abort small iteration: ", i, debugLevel);
            return i + 1;
        }
        send("end small iteration: ", i, debugLevel);
    }
    return budget;
}

void SrFloatMinimization::computeL()
{
    const int W = fullWidth;
    const int n = pixelCount;
    const auto weight = [this](float d) {
        const float m = !(d > epsilon) ? epsilon : d < invEpsilon ? d : invEpsilon;
        return negInvWeightTV / m;
    };
    Lr[0] = weight(std::abs(U[2] - U[1]));
    Ld[0] = weight(std::abs(U[1 + W] - U[1]));
    Ldr[0] = weight(std::abs(U[2 + W] - U[1]) * invSqrt2) * 0.5F;
    Ldl[0] = 0.0F;
    for (int i = 1; i < n - W; ++i) {
        Lr[i] = weight(std::abs(U[i + 1] - U[i]));
        Ld[i] = weight(std::abs(U[i + W] - U[i]));
        Ldl[i] = weight(std::abs(U[i + W - 1] - U[i]) * invSqrt2) * 0.5F;
        // U[n] would be past the end; this pixel ends its row, where the weight is 0.
        if (i < n - W - 1)
            Ldr[i] = weight(std::abs(U[i + W + 1] - U[i]) * invSqrt2) * 0.5F;
    }
    for (int i = n - W; i < n; ++i) {
        Ld[i] = Ldr[i] = Ldl[i] = 0.0F;
        if (i < n - 1)
            Lr[i] = weight(std::abs(U[i + 1] - U[i]));
    }
    for (int y = 0; y < fullHeight; ++y) {
        Ldl[y * W] = 0.0F;
        Lr[y * W + W - 1] = Ldr[y * W + W - 1] = 0.0F;
    }
    Lc[0] = -Lr[0] - Ldr[0] - Ld[0];
    for (int i = 1; i < W; ++i)
        Lc[i] = -Lr[i - 1] - Lr[i] - Ldr[i] - Ld[i] - Ldl[i];
    Lc[W] = -Ld[0] - Ldl[1] - Lr[W - 1] - Lr[W] - Ldr[W] - Ld[W] - Ldl[W];
    for (int i = W + 1; i < n; ++i)
        Lc[i] = -Ldr[i - W - 1] - Ld[i - W] - Ldl[i - W + 1] - Lr[i - 1] - Lr[i] - Ldr[i] - Ld[i] - Ldl[i];
}

void SrFloatMinimization::gradient(const float* x, int count, char** masks, float* out)
{
    send("start gradient", debugLevel);
    const int W = fullWidth;
    const int n = pixelCount;
    for (int i = 0; i < n; ++i) {
        float sum = 0.0F;
        if (i >= W + 1)
            sum += Ldr[i - W - 1] * x[i - W - 1];
        if (i >= W) {
            sum += Ld[i - W] * x[i - W];
            sum += Ldl[i - W + 1] * x[i - W + 1];
        }
        if (i >= 1)
            sum += Lr[i - 1] * x[i - 1];
        sum += Lc[i] * x[i];
        if (i < n - 1)
            sum += Lr[i] * x[i + 1];
        if (i < n - W) {
            if (i > 0)
                sum += Ldl[i] * x[i + W - 1];
            sum += Ld[i] * x[i + W];
        }
        if (i < n - W - 1)
            sum += Ldr[i] * x[i + W + 1];
        out[i] = sum;
    }
    for (int k = 0; k < count; ++k) {
        send("gradient for frame: ", k, debugLevel);
        conv.validCorrToSparse(x, psfX[k].data(), psfY[k].data(), TmpConv.data());
        conv.fullConvFromSparse(TmpConv.data(), psfX[k].data(), psfY[k].data(), masks[k], TmpFull.data());
        for (int i = 0; i < n; ++i)
            out[i] += TmpFull[i];
    }
    send("end gradient", debugLevel);
}

bool SrFloatMinimization::iteration(int /*step*/, int count, char** masks)
{
    gradient(S.data(), count, masks, Q.data());
    const double dq = laneSum(pixelCount, [this](int i) { return S[i] * Q[i]; });
    const auto alpha = static_cast<float>(static_cast<double>(Pnr) / dq);
    for (int i = 0; i < pixelCount; ++i) {
        U[i] += alpha * S[i];
        R[i] -= alpha * Q[i];
    }
    const double nr = laneSum(pixelCount, [this](int i) { return R[i] * R[i]; });
    if (static_cast<double>(relRes * relRes) > static_cast<double>(NormB) * nr)
        return true;
    const auto beta = static_cast<float>(nr / static_cast<double>(Pnr));
    for (int i = 0; i < pixelCount; ++i)
        S[i] = beta * S[i] + R[i];
    Pnr = static_cast<float>(nr);
    return false;
}

}  // namespace halvor::vx
