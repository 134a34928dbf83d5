#include "enhancement/superresolution/reference/SuperResolutionMinimization.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <opencv2/core.hpp>

#include "core/base/Exception.h"
#include "core/base/ParallelPixels.h"
#include "core/base/RowSums.h"
#include "core/imaging/PointSpread.h"

namespace halvor::vx {

namespace {

constexpr int debugLevel = 11;

int scaled(int pixels, float factor)
{
    return static_cast<int>(static_cast<float>(pixels) * factor);
}

struct Statistics
{
    float min;
    float max;
    double sum;
};

Statistics statisticsOf(const cv::Mat_<float>& mat)
{
    struct Row
    {
        float min;
        float max;
    };
    std::vector<Row> rows(static_cast<std::size_t>(mat.rows));
    RowSums<double> sums(mat.rows);
#pragma omp parallel for schedule(static) if (mat.total() >= parallelPixels)
    for (int y = 0; y < mat.rows; ++y) {
        const auto [min, max] = std::minmax_element(mat[y], mat[y] + mat.cols);
        rows[y] = {*min, *max};
        sums[y] = laneSum(mat.cols, [row = mat[y]](int x) { return row[x]; });
    }
    Statistics all{std::numeric_limits<float>::max(), std::numeric_limits<float>::lowest(), sums.total()};
    for (const Row& row : rows) {
        all.min = std::min(all.min, row.min);
        all.max = std::max(all.max, row.max);
    }
    return all;
}

}  // namespace

SuperResolutionMinimization::SuperResolutionMinimization(int frameWidth, int frameHeight, int capacity,
                                                         float resolutionFactor)
    : width(frameWidth),
      height(frameHeight),
      psfSize(static_cast<int>(resolutionFactor * 3.0F)),
      fullWidth(static_cast<int>(static_cast<float>(width) * resolutionFactor + static_cast<float>(psfSize) -
                                 1.0F)),
      fullHeight(static_cast<int>(static_cast<float>(height) * resolutionFactor +
                                  static_cast<float>(psfSize) - 1.0F)),
      pixelCount(fullWidth * fullHeight),
      numFrames(capacity),
      factor(resolutionFactor),
      basePsf(static_cast<std::size_t>(psfSize)),
      psfX(static_cast<std::size_t>(numFrames), basePsf),
      psfY(psfX),
      conv(scaled(width, factor), scaled(height, factor), psfSize, psfSize, factor),
      TmpConv(static_cast<std::size_t>(width) * height),
      TmpFull(static_cast<std::size_t>(pixelCount)),
      B(TmpFull),
      U(TmpFull),
      Lr(TmpFull),
      Ld(TmpFull),
      Ldl(TmpFull),
      Ldr(TmpFull),
      Lc(TmpFull),
      R(TmpFull),
      S(TmpFull),
      Q(TmpFull),
      channel_("SR")
{
    setPsfSigma(0.683F);
    setWeightTV(400.0F);
    setEpsilon(0.1F);
    setRelRes(0.007F);
    setMaxIter(8);
}

void SuperResolutionMinimization::setPsfSigma(float sigma)
{
    psfSigma = sigma;
    fillBasePsf(sigma, factor, basePsf);
}

void SuperResolutionMinimization::setWeightTV(float weight)
{
    weightTV = weight;
    negInvWeightTV = -1.0F / weight;
}

void SuperResolutionMinimization::setEpsilon(float value)
{
    epsilon = value;
    invEpsilon = 1.0F / value;
}

int SuperResolutionMinimization::minimize(int count, int refIndex, float* const* frames, const PointF* shifts,
                                          char** masks, float* result)
{
    if (count > numFrames)
        throw Exception("minimize(): more frames than the " + std::to_string(numFrames) + " it is made for",
                        VX_WHERE("halvor::vx::SuperResolutionMinimization::minimize"));
    channel_.send("start minimize", debugLevel);
    float mean = 0.0F;
    float sigma = 0.0F;
    normalize(count, refIndex, frames, mean, sigma);
    generatePsfs(count, shifts);
    initialize(count, frames, masks);

    int cumulated = 0;
    for (int large = 0; large < maxIter; ++large) {
        channel_.send("start large iteration: ", large, debugLevel);
        const int steps = conjugateGradients(count, masks, maxIter - cumulated);
        cumulated += steps;
        channel_.send("end large iteration: ", large, debugLevel);
        if (steps == 0)
            break;
    }
    channel_.send("cummulated iterations", cumulated, debugLevel);

    cutOut(mean, sigma, result);
    channel_.send("end minimize", debugLevel);
    return cumulated;
}

void SuperResolutionMinimization::debugMat(const std::string& name, const cv::Mat_<float>& mat) const
{
    if (!channel_.isDebugActive(debugLevel))
        return;
    const Statistics statistics = statisticsOf(mat);
    channel_.send(name + ":", debugLevel);
    channel_.send(" - min:  ", statistics.min, debugLevel);
    channel_.send(" - max:  ", statistics.max, debugLevel);
    channel_.send(" - sum:  ", statistics.sum, debugLevel);
    channel_.send(" - mean: ", cv::mean(mat)[0], debugLevel);
}

std::vector<DebugChannel*> SuperResolutionMinimization::getInternalDebugChannelObjects()
{
    std::vector<DebugChannel*> channels = conv.getInternalDebugChannelObjects();
    channels.push_back(&channel_);
    return channels;
}

void SuperResolutionMinimization::normalize(int count, int refIndex, float* const* frames, float& mean,
                                            float& sigma)
{
    const std::ptrdiff_t size = static_cast<std::ptrdiff_t>(width) * height;
    const float* reference = frames[refIndex];
    float sum = 0.0F;
    for (std::ptrdiff_t i = 0; i < size; ++i)
        sum += reference[i];
    mean = sum / static_cast<float>(size);
    float squares = 0.0F;
    for (std::ptrdiff_t i = 0; i < size; ++i)
        squares += (reference[i] - mean) * (reference[i] - mean);
    sigma = std::sqrt(squares / static_cast<float>(size));
    channel_.send("ref mean:  ", mean, debugLevel);
    channel_.send("ref sigma: ", sigma, debugLevel);

    for (int k = 0; k < count; ++k) {
        const cv::Mat_<float> frame(height, width, frames[k]);
        debugMat("input " + std::to_string(k), frame);
        for (std::ptrdiff_t i = 0; i < size; ++i)
            frames[k][i] = (frames[k][i] - mean) / sigma;
        debugMat("normalized input " + std::to_string(k), frame);
    }
}

void SuperResolutionMinimization::generatePsfs(int count, const PointF* shifts)
{
    for (int k = 0; k < count; ++k) {
        shiftPsf(basePsf, shifts[k].x * factor, psfX[k]);
        shiftPsf(basePsf, shifts[k].y * factor, psfY[k]);
    }
    for (int k = 0; k < count; ++k)
        debugMat("Psfs " + std::to_string(k), cv::Mat_<float>(1, psfSize, psfX[k].data()));
}

// Right-hand side, and the back-projection as the first estimate.
void SuperResolutionMinimization::initialize(int count, float* const* frames, char** masks)
{
    std::fill(B.begin(), B.end(), 0.0F);
    for (int k = 0; k < count; ++k) {
        conv.fullConvFromSparse(frames[k], psfX[k].data(), psfY[k].data(), masks[k], TmpFull.data());
        for (int i = 0; i < pixelCount; ++i)
            B[i] += TmpFull[i];
    }
    debugFull("initialized B", B);
    float squares = 0.0F;
    for (int i = 0; i < pixelCount; ++i)
        squares += B[i] * B[i];
    NormB = 1.0F / squares;
    channel_.send("NormB:  ", NormB, debugLevel);
    U = B;
    debugFull("initialized U", U);
}

int SuperResolutionMinimization::conjugateGradients(int count, char** masks, int budget)
{
    debugFull("conjugateGradients input U", U);
    computeL();
    gradient(U.data(), count, masks, R.data());
    debugFull("conjugateGradients R (after gradient)", R);
    debugFull("conjugateGradients B (before R=B-R)", B);
    for (int i = 0; i < pixelCount; ++i)
        R[i] = B[i] - R[i];
    Pnr = 0.0F;
    for (int i = 0; i < pixelCount; ++i) {
        S[i] = R[i];
        Pnr += R[i] * R[i];
    }
    debugFull("conjugateGradients R (after R=B-R)", R);
    debugFull("conjugateGradients S (after R=B-R)", S);
    channel_.send("Pnr   :", Pnr, debugLevel);
    channel_.send("NormB :", NormB, debugLevel);
    channel_.send("RelRes:", relRes, debugLevel);
    if (relRes * relRes > Pnr * NormB)
        return 0;

    for (int step = 0; step < budget; ++step) {
        channel_.send("start small iteration: ", step, debugLevel);
        if (iteration(count, masks)) {
            channel_.send("abort small iteration: ", step, debugLevel);
            return step + 1;
        }
        channel_.send("end small iteration: ", step, debugLevel);
    }
    return budget;
}

// The weights of the edges from each pixel to its right, lower, lower left and lower right neighbour, and the
// negated sum of the weights that meet in it.
void SuperResolutionMinimization::computeL()
{
    static const float invSqrt2 = 1.0F / std::sqrt(2.0F);
    const int W = fullWidth;
    const int n = pixelCount;
    const auto weight = [&](int i, int j) { return edgeWeight(std::abs(U[i] - U[j])); };
    const auto diagonalWeight = [&](int i, int j) {
        return edgeWeight(std::abs(U[i] - U[j]) * invSqrt2) * 0.5F;
    };

    // The first pixel takes the differences of its right neighbour: the results are compared with engines
    // that do so.
    Lr[0] = weight(2, 1);
    Ld[0] = weight(1 + W, 1);
    Ldr[0] = diagonalWeight(2 + W, 1);
    Ldl[0] = 0.0F;
    for (int i = 1; i < n - W; ++i) {
        Lr[i] = weight(i + 1, i);
        Ld[i] = weight(i + W, i);
        Ldr[i] = i + W + 1 < n ? diagonalWeight(i + W + 1, i) : 0.0F;
        Ldl[i] = diagonalWeight(i + W - 1, i);
    }
    for (int i = n - W; i < n; ++i) {
        Lr[i] = i + 1 < n ? weight(i + 1, i) : 0.0F;
        Ld[i] = 0.0F;
        Ldr[i] = 0.0F;
        Ldl[i] = 0.0F;
    }
    for (int row = 0; row < n; row += W) {
        Ldl[row] = 0.0F;
        Lr[row + W - 1] = 0.0F;
        Ldr[row + W - 1] = 0.0F;
    }

    for (int i = 0; i < n; ++i) {
        float sum = 0.0F;
        if (i > W)
            sum -= Ldr[i - W - 1];
        if (i >= W) {
            sum -= Ld[i - W];
            sum -= Ldl[i - W + 1];
        }
        if (i > 0)
            sum -= Lr[i - 1];
        sum -= Lr[i];
        sum -= Ldr[i];
        sum -= Ld[i];
        sum -= Ldl[i];
        Lc[i] = sum;
    }
}

// Applies the system matrix: the prior's Laplacian, and each frame's blur and sampling with their transpose.
void SuperResolutionMinimization::gradient(const float* x, int count, char** masks, float* out)
{
    channel_.send("start gradient", debugLevel);
    applyL(x, out);
    for (int k = 0; k < count; ++k) {
        channel_.send("gradient for frame: ", k, debugLevel);
        conv.validCorrToSparse(x, psfX[k].data(), psfY[k].data(), TmpConv.data());
        debugMat("gradient TmpConv (between validCorr & fullConv) " + std::to_string(k),
                 cv::Mat_<float>(height, width, TmpConv.data()));
        conv.fullConvFromSparse(TmpConv.data(), psfX[k].data(), psfY[k].data(), masks[k], TmpFull.data());
        for (int i = 0; i < pixelCount; ++i)
            out[i] += TmpFull[i];
    }
    channel_.send("end gradient", debugLevel);
}

bool SuperResolutionMinimization::iteration(int count, char** masks)
{
    debugFull("iteration S (before gradient)", S);
    debugFull("iteration Ldl (before gradient)", Ldl);
    debugFull("iteration Ld  (before gradient)", Ld);
    debugFull("iteration Ldr (before gradient)", Ldr);
    debugFull("iteration Lr  (before gradient)", Lr);
    debugFull("iteration Lc  (before gradient)", Lc);
    gradient(S.data(), count, masks, Q.data());
    debugFull("iteration Q (after gradient)", Q);

    float dq = 0.0F;
    for (int i = 0; i < pixelCount; ++i)
        dq += S[i] * Q[i];
    const float alpha = Pnr / dq;
    channel_.send("alpha : ", alpha, debugLevel);
    debugFull("iteration U (before U=U+alpha*S)", U);
    for (int i = 0; i < pixelCount; ++i)
        U[i] += alpha * S[i];
    debugFull("iteration U (after U=U+alpha*S)", U);
    debugFull("iteration R (before R=R-alpha*Q)", R);
    float nr = 0.0F;
    for (int i = 0; i < pixelCount; ++i) {
        R[i] -= alpha * Q[i];
        nr += R[i] * R[i];
    }
    debugFull("iteration R (after R=R-alpha*Q)", R);
    channel_.send("nr    : ", nr, debugLevel);
    channel_.send("NormB : ", NormB, debugLevel);
    channel_.send("RelRes: ", relRes, debugLevel);
    if (relRes * relRes > nr * NormB)
        return true;

    const float beta = nr / Pnr;
    channel_.send("beta  : ", beta, debugLevel);
    // These labels are read by tools as they stand; the sign in them is not that of the sum.
    debugFull("iteration S (before S=R-beta*S)", S);
    for (int i = 0; i < pixelCount; ++i)
        S[i] = beta * S[i] + R[i];
    debugFull("iteration S (after S=R-beta*S)", S);
    Pnr = nr;
    channel_.send("iteration Pnr: ", Pnr, debugLevel);
    return false;
}

void SuperResolutionMinimization::cutOut(float mean, float sigma, float* result)
{
    debugFull("final U", U);
    for (int i = 0; i < pixelCount; ++i)
        U[i] = U[i] * sigma + mean;
    debugFull("denormalized U", U);

    const int outWidth = scaled(width, factor);
    const int outHeight = scaled(height, factor);
    const int margin = (psfSize - 1) / 2;
    std::ptrdiff_t source = (static_cast<std::ptrdiff_t>(fullWidth) + 1) * margin;
    std::ptrdiff_t target = 0;
    for (int r = 0; r < outHeight; ++r) {
        for (int c = 0; c < outWidth; ++c, ++source, ++target)
            result[target] = U[source];
        source += psfSize - 1;
    }
    debugMat("output", cv::Mat_<float>(outHeight, outWidth, result));
}

float SuperResolutionMinimization::edgeWeight(float difference) const
{
    if (!(difference > epsilon))
        return negInvWeightTV / epsilon;
    return negInvWeightTV / (difference < invEpsilon ? difference : invEpsilon);
}

void SuperResolutionMinimization::applyL(const float* x, float* out) const
{
    const int W = fullWidth;
    const int n = pixelCount;
    for (int i = 0; i < n; ++i) {
        float sum = 0.0F;
        if (i > W)
            sum += Ldr[i - W - 1] * x[i - W - 1];
        if (i >= W) {
            sum += Ld[i - W] * x[i - W];
            sum += Ldl[i - W + 1] * x[i - W + 1];
        }
        if (i > 0)
            sum += Lr[i - 1] * x[i - 1];
        sum += Lc[i] * x[i];
        if (i < n - 1)
            sum += Lr[i] * x[i + 1];
        if (i < n - W) {
            sum += Ldl[i] * x[i + W - 1];
            sum += Ld[i] * x[i + W];
        }
        if (i < n - W - 1)
            sum += Ldr[i] * x[i + W + 1];
        out[i] = sum;
    }
}

void SuperResolutionMinimization::debugFull(const char* name, std::vector<float>& values) const
{
    if (channel_.isDebugActive(debugLevel))
        debugMat(name, cv::Mat_<float>(fullHeight, fullWidth, values.data()));
}

}  // namespace halvor::vx
