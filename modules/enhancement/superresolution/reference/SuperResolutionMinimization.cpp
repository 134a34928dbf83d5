// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/reference/SuperResolutionMinimization.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <opencv2/core.hpp>

#include "core/base/Exception.h"
#include "core/base/ParallelPixels.h"
#include "core/base/RowSums.h"
#include "core/diagnostics/DebugLevels.h"
#include "core/imaging/PointSpread.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"

namespace halvor::vx {

namespace {

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
    : width_(frameWidth),
      height_(frameHeight),
      psfSize_(static_cast<int>(resolutionFactor * 3.0F)),
      fullWidth_(static_cast<int>(static_cast<float>(width_) * resolutionFactor +
                                  static_cast<float>(psfSize_) - 1.0F)),
      fullHeight_(static_cast<int>(static_cast<float>(height_) * resolutionFactor +
                                   static_cast<float>(psfSize_) - 1.0F)),
      pixelCount_(fullWidth_ * fullHeight_),
      numFrames_(capacity),
      factor_(resolutionFactor),
      basePsf_(static_cast<std::size_t>(psfSize_)),
      psfX_(static_cast<std::size_t>(numFrames_), basePsf_),
      psfY_(psfX_),
      conv_(scaled(width_, factor_), scaled(height_, factor_), psfSize_, psfSize_, factor_),
      tmpConv_(static_cast<std::size_t>(width_) * height_),
      tmpFull_(static_cast<std::size_t>(pixelCount_)),
      b_(tmpFull_),
      u_(tmpFull_),
      lr_(tmpFull_),
      ld_(tmpFull_),
      ldl_(tmpFull_),
      ldr_(tmpFull_),
      lc_(tmpFull_),
      r_(tmpFull_),
      s_(tmpFull_),
      q_(tmpFull_),
      channel_("SR")
{
    setPsfSigma(EngineDefaults::psfSigma);
    setWeightTV(EngineDefaults::weightTV);
    setEpsilon(EngineDefaults::epsilon);
    setRelRes(EngineDefaults::relativeResidue);
    setMaxIter(EngineDefaults::maxCGIters);
}

void SuperResolutionMinimization::setPsfSigma(float sigma)
{
    psfSigma_ = sigma;
    fillBasePsf(sigma, factor_, basePsf_);
}

void SuperResolutionMinimization::setWeightTV(float weight)
{
    weightTv_ = weight;
    negInvWeightTv_ = -1.0F / weight;
}

void SuperResolutionMinimization::setEpsilon(float value)
{
    epsilon_ = value;
    invEpsilon_ = 1.0F / value;
}

int SuperResolutionMinimization::minimize(int count, int refIndex, float* const* frames, const PointF* shifts,
                                          char** masks, float* result)
{
    if (count > numFrames_)
        throw Exception("minimize(): more frames than the " + std::to_string(numFrames_) + " it is made for",
                        VX_WHERE("halvor::vx::SuperResolutionMinimization::minimize"));
    channel_.send("start minimize", DebugLevel::step);
    float mean = 0.0F;
    float sigma = 0.0F;
    normalize(count, refIndex, frames, mean, sigma);
    generatePsfs(count, shifts);
    initialize(count, frames, masks);

    int cumulated = 0;
    for (int large = 0; large < maxIter_; ++large) {
        channel_.send("start large iteration: ", large, DebugLevel::step);
        const int steps = conjugateGradients(count, masks, maxIter_ - cumulated);
        cumulated += steps;
        channel_.send("end large iteration: ", large, DebugLevel::step);
        if (steps == 0)
            break;
    }
    channel_.send("cummulated iterations", cumulated, DebugLevel::step);

    cutOut(mean, sigma, result);
    channel_.send("end minimize", DebugLevel::step);
    return cumulated;
}

void SuperResolutionMinimization::debugMat(const std::string& name, const cv::Mat_<float>& mat) const
{
    if (!channel_.isDebugActive(DebugLevel::step))
        return;
    const Statistics statistics = statisticsOf(mat);
    channel_.send(name + ":", DebugLevel::step);
    channel_.send(" - min:  ", statistics.min, DebugLevel::step);
    channel_.send(" - max:  ", statistics.max, DebugLevel::step);
    channel_.send(" - sum:  ", statistics.sum, DebugLevel::step);
    channel_.send(" - mean: ", cv::mean(mat)[0], DebugLevel::step);
}

std::vector<DebugChannel*> SuperResolutionMinimization::getInternalDebugChannelObjects()
{
    std::vector<DebugChannel*> channels = conv_.getInternalDebugChannelObjects();
    channels.push_back(&channel_);
    return channels;
}

void SuperResolutionMinimization::normalize(int count, int refIndex, float* const* frames, float& mean,
                                            float& sigma)
{
    const std::ptrdiff_t size = static_cast<std::ptrdiff_t>(width_) * height_;
    const float* reference = frames[refIndex];
    float sum = 0.0F;
    for (std::ptrdiff_t i = 0; i < size; ++i)
        sum += reference[i];
    mean = sum / static_cast<float>(size);
    float squares = 0.0F;
    for (std::ptrdiff_t i = 0; i < size; ++i)
        squares += (reference[i] - mean) * (reference[i] - mean);
    sigma = std::sqrt(squares / static_cast<float>(size));
    channel_.send("ref mean:  ", mean, DebugLevel::step);
    channel_.send("ref sigma: ", sigma, DebugLevel::step);

    for (int k = 0; k < count; ++k) {
        const cv::Mat_<float> frame(height_, width_, frames[k]);
        debugMat("input " + std::to_string(k), frame);
        for (std::ptrdiff_t i = 0; i < size; ++i)
            frames[k][i] = (frames[k][i] - mean) / sigma;
        debugMat("normalized input " + std::to_string(k), frame);
    }
}

void SuperResolutionMinimization::generatePsfs(int count, const PointF* shifts)
{
    for (int k = 0; k < count; ++k) {
        shiftPsf(basePsf_, shifts[k].x * factor_, psfX_[k]);
        shiftPsf(basePsf_, shifts[k].y * factor_, psfY_[k]);
    }
    for (int k = 0; k < count; ++k)
        debugMat("Psfs " + std::to_string(k), cv::Mat_<float>(1, psfSize_, psfX_[k].data()));
}

// Right-hand side, and the back-projection as the first estimate.
void SuperResolutionMinimization::initialize(int count, float* const* frames, char** masks)
{
    std::fill(b_.begin(), b_.end(), 0.0F);
    for (int k = 0; k < count; ++k) {
        conv_.fullConvFromSparse(frames[k], psfX_[k].data(), psfY_[k].data(), masks[k], tmpFull_.data());
        for (int i = 0; i < pixelCount_; ++i)
            b_[i] += tmpFull_[i];
    }
    debugFull("initialized B", b_);
    float squares = 0.0F;
    for (int i = 0; i < pixelCount_; ++i)
        squares += b_[i] * b_[i];
    invNormB_ = 1.0F / squares;
    channel_.send("NormB:  ", invNormB_, DebugLevel::step);
    u_ = b_;
    debugFull("initialized U", u_);
}

int SuperResolutionMinimization::conjugateGradients(int count, char** masks, int budget)
{
    debugFull("conjugateGradients input U", u_);
    computeL();
    gradient(u_.data(), count, masks, r_.data());
    debugFull("conjugateGradients R (after gradient)", r_);
    debugFull("conjugateGradients B (before R=B-R)", b_);
    for (int i = 0; i < pixelCount_; ++i)
        r_[i] = b_[i] - r_[i];
    pnr_ = 0.0F;
    for (int i = 0; i < pixelCount_; ++i) {
        s_[i] = r_[i];
        pnr_ += r_[i] * r_[i];
    }
    debugFull("conjugateGradients R (after R=B-R)", r_);
    debugFull("conjugateGradients S (after R=B-R)", s_);
    channel_.send("Pnr   :", pnr_, DebugLevel::step);
    channel_.send("NormB :", invNormB_, DebugLevel::step);
    channel_.send("RelRes:", relRes_, DebugLevel::step);
    if (relRes_ * relRes_ > pnr_ * invNormB_)
        return 0;

    for (int step = 0; step < budget; ++step) {
        channel_.send("start small iteration: ", step, DebugLevel::step);
        if (iteration(count, masks)) {
            channel_.send("abort small iteration: ", step, DebugLevel::step);
            return step + 1;
        }
        channel_.send("end small iteration: ", step, DebugLevel::step);
    }
    return budget;
}

// The weights of the edges from each pixel to its right, lower, lower left and lower right neighbour, and the
// negated sum of the weights that meet in it.
void SuperResolutionMinimization::computeL()
{
    static const float invSqrt2 = 1.0F / std::sqrt(2.0F);
    const int W = fullWidth_;
    const int n = pixelCount_;
    const auto weight = [&](int i, int j) { return edgeWeight(std::abs(u_[i] - u_[j])); };
    const auto diagonalWeight = [&](int i, int j) {
        return edgeWeight(std::abs(u_[i] - u_[j]) * invSqrt2) * 0.5F;
    };

    // The first pixel takes the differences of its right neighbour: the results are compared with engines
    // that do so.
    lr_[0] = weight(2, 1);
    ld_[0] = weight(1 + W, 1);
    ldr_[0] = diagonalWeight(2 + W, 1);
    ldl_[0] = 0.0F;
    for (int i = 1; i < n - W; ++i) {
        lr_[i] = weight(i + 1, i);
        ld_[i] = weight(i + W, i);
        ldr_[i] = i + W + 1 < n ? diagonalWeight(i + W + 1, i) : 0.0F;
        ldl_[i] = diagonalWeight(i + W - 1, i);
    }
    for (int i = n - W; i < n; ++i) {
        lr_[i] = i + 1 < n ? weight(i + 1, i) : 0.0F;
        ld_[i] = 0.0F;
        ldr_[i] = 0.0F;
        ldl_[i] = 0.0F;
    }
    for (int row = 0; row < n; row += W) {
        ldl_[row] = 0.0F;
        lr_[row + W - 1] = 0.0F;
        ldr_[row + W - 1] = 0.0F;
    }

    for (int i = 0; i < n; ++i) {
        float sum = 0.0F;
        if (i > W)
            sum -= ldr_[i - W - 1];
        if (i >= W) {
            sum -= ld_[i - W];
            sum -= ldl_[i - W + 1];
        }
        if (i > 0)
            sum -= lr_[i - 1];
        sum -= lr_[i];
        sum -= ldr_[i];
        sum -= ld_[i];
        sum -= ldl_[i];
        lc_[i] = sum;
    }
}

// Applies the system matrix: the prior's Laplacian, and each frame's blur and sampling with their transpose.
void SuperResolutionMinimization::gradient(const float* x, int count, char** masks, float* out)
{
    channel_.send("start gradient", DebugLevel::step);
    applyL(x, out);
    for (int k = 0; k < count; ++k) {
        channel_.send("gradient for frame: ", k, DebugLevel::step);
        conv_.validCorrToSparse(x, psfX_[k].data(), psfY_[k].data(), tmpConv_.data());
        debugMat("gradient TmpConv (between validCorr & fullConv) " + std::to_string(k),
                 cv::Mat_<float>(height_, width_, tmpConv_.data()));
        conv_.fullConvFromSparse(tmpConv_.data(), psfX_[k].data(), psfY_[k].data(), masks[k],
                                 tmpFull_.data());
        for (int i = 0; i < pixelCount_; ++i)
            out[i] += tmpFull_[i];
    }
    channel_.send("end gradient", DebugLevel::step);
}

bool SuperResolutionMinimization::iteration(int count, char** masks)
{
    debugFull("iteration S (before gradient)", s_);
    debugFull("iteration Ldl (before gradient)", ldl_);
    debugFull("iteration Ld  (before gradient)", ld_);
    debugFull("iteration Ldr (before gradient)", ldr_);
    debugFull("iteration Lr  (before gradient)", lr_);
    debugFull("iteration Lc  (before gradient)", lc_);
    gradient(s_.data(), count, masks, q_.data());
    debugFull("iteration Q (after gradient)", q_);

    float dq = 0.0F;
    for (int i = 0; i < pixelCount_; ++i)
        dq += s_[i] * q_[i];
    const float alpha = pnr_ / dq;
    channel_.send("alpha : ", alpha, DebugLevel::step);
    debugFull("iteration U (before U=U+alpha*S)", u_);
    for (int i = 0; i < pixelCount_; ++i)
        u_[i] += alpha * s_[i];
    debugFull("iteration U (after U=U+alpha*S)", u_);
    debugFull("iteration R (before R=R-alpha*Q)", r_);
    float nr = 0.0F;
    for (int i = 0; i < pixelCount_; ++i) {
        r_[i] -= alpha * q_[i];
        nr += r_[i] * r_[i];
    }
    debugFull("iteration R (after R=R-alpha*Q)", r_);
    channel_.send("nr    : ", nr, DebugLevel::step);
    channel_.send("NormB : ", invNormB_, DebugLevel::step);
    channel_.send("RelRes: ", relRes_, DebugLevel::step);
    if (relRes_ * relRes_ > nr * invNormB_)
        return true;

    const float beta = nr / pnr_;
    channel_.send("beta  : ", beta, DebugLevel::step);
    // These labels are read by tools as they stand; the sign in them is not that of the sum.
    debugFull("iteration S (before S=R-beta*S)", s_);
    for (int i = 0; i < pixelCount_; ++i)
        s_[i] = beta * s_[i] + r_[i];
    debugFull("iteration S (after S=R-beta*S)", s_);
    pnr_ = nr;
    channel_.send("iteration Pnr: ", pnr_, DebugLevel::step);
    return false;
}

void SuperResolutionMinimization::cutOut(float mean, float sigma, float* result)
{
    debugFull("final U", u_);
    for (int i = 0; i < pixelCount_; ++i)
        u_[i] = u_[i] * sigma + mean;
    debugFull("denormalized U", u_);

    const int outWidth = scaled(width_, factor_);
    const int outHeight = scaled(height_, factor_);
    const int margin = (psfSize_ - 1) / 2;
    std::ptrdiff_t source = (static_cast<std::ptrdiff_t>(fullWidth_) + 1) * margin;
    std::ptrdiff_t target = 0;
    for (int r = 0; r < outHeight; ++r) {
        for (int c = 0; c < outWidth; ++c, ++source, ++target)
            result[target] = u_[source];
        source += psfSize_ - 1;
    }
    debugMat("output", cv::Mat_<float>(outHeight, outWidth, result));
}

float SuperResolutionMinimization::edgeWeight(float difference) const
{
    if (!(difference > epsilon_))
        return negInvWeightTv_ / epsilon_;
    return negInvWeightTv_ / (difference < invEpsilon_ ? difference : invEpsilon_);
}

void SuperResolutionMinimization::applyL(const float* x, float* out) const
{
    const int W = fullWidth_;
    const int n = pixelCount_;
    for (int i = 0; i < n; ++i) {
        float sum = 0.0F;
        if (i > W)
            sum += ldr_[i - W - 1] * x[i - W - 1];
        if (i >= W) {
            sum += ld_[i - W] * x[i - W];
            sum += ldl_[i - W + 1] * x[i - W + 1];
        }
        if (i > 0)
            sum += lr_[i - 1] * x[i - 1];
        sum += lc_[i] * x[i];
        if (i < n - 1)
            sum += lr_[i] * x[i + 1];
        if (i < n - W) {
            sum += ldl_[i] * x[i + W - 1];
            sum += ld_[i] * x[i + W];
        }
        if (i < n - W - 1)
            sum += ldr_[i] * x[i + W + 1];
        out[i] = sum;
    }
}

void SuperResolutionMinimization::debugFull(const char* name, std::vector<float>& values) const
{
    if (channel_.isDebugActive(DebugLevel::step))
        debugMat(name, cv::Mat_<float>(fullHeight_, fullWidth_, values.data()));
}

}  // namespace halvor::vx
