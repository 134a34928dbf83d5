// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrIntMinimization.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "core/base/Exception.h"
#include "core/base/Kernel.h"
#include "core/base/RowSums.h"
#include "core/diagnostics/DebugLevels.h"
#include "core/diagnostics/compareMat.h"
#include "core/extensions/cvext.h"
#include "enhancement/superresolution/fixedpoint/ModelSweep.h"

namespace halvor::vx {

namespace {

constexpr int reportLevel = 2;
constexpr int stepLevel = DebugLevel::step;
constexpr short supportedFactor = 2;
constexpr std::int8_t scalarExponentWidth = 7;
// Format of the taps: 16 fractional bits.
constexpr std::int16_t psfMantissa = 0x7FFF;
constexpr std::int8_t psfExponent = -16;

struct RowRange
{
    double sum;
    float least;
    float greatest;
};

VX_KERNEL RowRange rangeOfRow(const float* row, int n)
{
    float least = row[0];
    float greatest = row[0];
    for (int i = 0; i < n; ++i) {
        least = row[i] < least ? row[i] : least;
        greatest = row[i] > greatest ? row[i] : greatest;
    }
    return {laneSum(n, [=](int i) { return row[i]; }), least, greatest};
}

RowRange rangeOf(const cv::Mat_<float>& image)
{
    RowRange range = rangeOfRow(image[0], image.cols);
    for (int y = 1; y < image.rows; ++y) {
        const RowRange row = rangeOfRow(image[y], image.cols);
        range = {range.sum + row.sum, std::min(range.least, row.least),
                 std::max(range.greatest, row.greatest)};
    }
    return range;
}

Fixpoint scalar()
{
    Fixpoint value;
    value.setExponentWidth(scalarExponentWidth);
    return value;
}

short checkedFull(int full)
{
    if (full > std::numeric_limits<short>::max())
        throw Exception(
            "The frames are too large for the fixed-point solver: the large image may have 32767 rows and "
            "columns at most.",
            VX_WHERE("halvor::vx::SrIntMinimization::SrIntMinimization"));
    return static_cast<short>(full);
}

void requireSettings(short width, short height, short numFrames, short factor)
{
    constexpr const char* function = "halvor::vx::SrIntMinimization::SrIntMinimization";
    if (factor != supportedFactor)
        throw Exception("The fixed-point solver supports a resolution factor of 2 only.", VX_WHERE(function));
    if (width < 1 || height < 1 || numFrames < 1)
        throw Exception("The fixed-point solver needs a frame size and a number of frames above 0.",
                        VX_WHERE(function));
}

}  // namespace

SrIntMinimization::SrIntMinimization(short width, short height, short numFrames, short factor)
    : inWidth_((requireSettings(width, height, numFrames, factor), width)),
      inHeight_(height),
      factor_(factor),
      psfSize_(static_cast<short>(factor * 3)),
      fullWidth_(checkedFull(width * factor - 1 + psfSize_)),
      fullHeight_(checkedFull(height * factor - 1 + psfSize_)),
      numFrames_(numFrames),
      basePsf_(static_cast<std::size_t>(psfSize_)),
      psfX_(static_cast<std::size_t>(numFrames)),
      psfY_(static_cast<std::size_t>(numFrames)),
      B_(fullHeight_, fullWidth_, short{0}),
      X_(fullHeight_, fullWidth_, short{0}),
      R_(fullHeight_, fullWidth_, short{0}),
      S_(fullHeight_, fullWidth_, short{0}),
      Q_(fullHeight_, fullWidth_, short{0}),
      TmpLow_(inHeight_, inWidth_, short{0}),
      rho_(scalar()),
      normB_(scalar()),
      Lr_(fullHeight_, fullWidth_, short{0}),
      Ld_(fullHeight_, fullWidth_, short{0}),
      Ldl_(fullHeight_, fullWidth_, short{0}),
      Ldr_(fullHeight_, fullWidth_, short{0}),
      Lc_(fullHeight_, fullWidth_, short{0}),
      convWidth_(width),
      convHeight_(height),
      convScratch_(fullHeight_, convWidth_, 0),
      lineBuf0_(2 * static_cast<std::size_t>(convWidth_)),
      lineBuf1_(2 * static_cast<std::size_t>(convWidth_)),
      tapBuf_(4 * static_cast<std::size_t>(psfSize_)),
      zeroMask_(static_cast<std::size_t>(convWidth_)),
      frames_(static_cast<std::size_t>(numFrames)),
      check_(fullHeight_, fullWidth_, short{0}),
      checkLow_(inHeight_, inWidth_, short{0}),
      result_(inHeight_ * factor, inWidth_ * factor, short{0}),
      zeroRow_(static_cast<std::size_t>(fullWidth_)),
      model_(std::make_unique<fixedpoint::ModelSweep>(inWidth_, inHeight_, numFrames_))
{
    for (cv::Mat_<short>& frame : frames_)
        frame.create(inHeight_, inWidth_);
    lineA_ = lineBuf0_.data();
    lineB_ = lineBuf1_.data();
    setPsfSigma(0.683F);
    setWeightTV(400.0F);
    setEpsilon(0.1F);
    setRelRes(0.007F);
    setMaxIter(8);
}

SrIntMinimization::~SrIntMinimization() = default;

void SrIntMinimization::setWeightTV(float value)
{
    constexpr float greatestInt = 0x1p31F;
    const bool isInt = value > -greatestInt && value < greatestInt;
    const auto weight = static_cast<short>(isInt ? static_cast<int>(value) : 0);
    if (weight < 1 || weight > 600)
        throw Exception("invalid value given for setWeightTV (allowed: 1-600)",
                        VX_WHERE("halvor::vx::SrIntMinimization::setWeightTV"));
    weightTV_ = weight;
    lambda_.fromFloat(-1.0F / static_cast<float>(weightTV_));
    computeLambdaDivByEpsLut(lambda_);
}

void SrIntMinimization::setEpsilon(float value)
{
    epsilon_.fromFloat(value);
    invEpsilon_.fromFloat(1.0F / value);
}

short SrIntMinimization::minimize(short numFrames, short refIndex, std::vector<cv::Mat_<float>>& frames,
                                  const std::vector<cv::Mat_<signed char>>& masks, cv::Mat_<float>& result)
{
    debugChannel_.send("start minimize", stepLevel);
    prepareFrames(numFrames, refIndex, frames, masks, debugChannel_);
    projectBack(numFrames, masks);

    Fixpoint normB = scalar();
    normB.fromInt64(computeSumSquaredValues(B_, imageRange_.getExponent()), imageRange_.getExponent());
    normB_ = normB;
    B_.copyTo(X_);
    cumIters_ = 0;
    for (short large = 0; large < maxIter_; ++large) {
        debugChannel_.send("start large iteration: ", large, stepLevel);
        const short steps = conjugateGradients(numFrames, masks, static_cast<short>(maxIter_ - cumIters_));
        cumIters_ = static_cast<short>(cumIters_ + steps);
        debugChannel_.send("end large iteration: ", large, stepLevel);
        if (steps == 0)
            break;
    }
    debugChannel_.send("cummulated iterations", cumIters_, stepLevel);
    finishResult(X_, result, debugChannel_);
    debugChannel_.send("end minimize", stepLevel);
    return cumIters_;
}

void SrIntMinimization::prepareFrames(short numFrames, short refIndex,
                                      const std::vector<cv::Mat_<float>>& frames,
                                      const std::vector<cv::Mat_<signed char>>& masks,
                                      const DebugChannel& channel)
{
    requireBurst(numFrames, refIndex, frames, masks);
    const RowRange range = rangeOf(frames[static_cast<std::size_t>(refIndex)]);
    const auto mean = static_cast<float>(range.sum / (inWidth_ * inHeight_));
    imageRange_.fromFloat(2.0F * std::max(std::fabs(range.least), std::fabs(range.greatest)));
    const Fixpoint deviation(2.0F *
                             std::max(std::fabs(range.least - mean), std::fabs(range.greatest - mean)));
    normShift_ = static_cast<signed char>(imageRange_.getExponent() - deviation.getExponent());

    for (int i = 0; i < numFrames; ++i)
        convertMatFloatToMatInt(frames[i], imageRange_.getMinValue(), imageRange_.getMaxValue(),
                                imageRange_.getIntFactor(), 0.0F, false, frames_[i]);
    channel.send("start real integer minimize", stepLevel);
    mean_ = computeMean(frames_[refIndex]);
    channel.send("start normalize", stepLevel);
    for (int i = 0; i < numFrames; ++i)
        computeNormalisation(frames_[i], masks[i], mean_, normShift_);
    channel.send("end normalize", stepLevel);

    imageRange_.incrExponent(static_cast<signed char>(-normShift_));
    psfRange_.setMantissa(psfMantissa);
    psfRange_.setExponent(psfExponent);
}

void SrIntMinimization::requireBurst(short numFrames, short refIndex,
                                     const std::vector<cv::Mat_<float>>& frames,
                                     const std::vector<cv::Mat_<signed char>>& masks) const
{
    constexpr const char* function = "halvor::vx::SrIntMinimization::minimize";
    if (numFrames < 1 || numFrames > numFrames_ || static_cast<std::size_t>(numFrames) > frames.size())
        throw Exception("invalid number of frames", VX_WHERE(function));
    if (refIndex < 0 || refIndex >= numFrames)
        throw Exception("invalid reference index", VX_WHERE(function));
    if (masks.size() != static_cast<std::size_t>(numFrames))
        throw Exception("invalid image masks size", VX_WHERE(function));
    const cv::Size size(inWidth_, inHeight_);
    for (int i = 0; i < numFrames; ++i) {
        if (frames[i].size() != size)
            throw Exception("invalid image frame size", VX_WHERE(function));
        if (masks[i].size() != size)
            throw Exception("invalid input mask size", VX_WHERE(function));
    }
}

// B = sum over frames of A^T M f. The line-wise form beside it is only for the report, and raises nothing that the
// plain one does not.
void SrIntMinimization::projectBack(short numFrames, const std::vector<cv::Mat_<signed char>>& masks)
{
    const std::int8_t shift = psfRange_.getExponent();
    std::fill_n(B_[0], B_.total(), short{0});
    if (takeModel(numFrames, masks)) {
        model_->addFrames(frames_.data(), B_);
        return;
    }
    const bool isWatched = debugChannel_.isDebugActive(reportLevel);
    if (isWatched)
        check_.setTo(short{0});
    for (int i = 0; i < numFrames; ++i) {
        fullConvFromSparse(frames_[i], psfX_[i], psfY_[i], masks[i], B_, shift);
        if (!isWatched)
            continue;
        fullConvFromSparseLinewise(frames_[i], psfX_[i], psfY_[i], masks[i], check_, shift);
        compareMat(&debugChannel_, B_, check_, "Org", "Linewise", 2.0F * static_cast<float>(i + 1));
    }
}

void SrIntMinimization::finishResult(const cv::Mat_<short>& estimate, cv::Mat_<float>& result,
                                     const DebugChannel& channel)
{
    computeDenormalisation(estimate, result_, mean_, static_cast<signed char>(-normShift_),
                           (psfSize_ - 1) / 2);
    imageRange_.incrExponent(normShift_);
    channel.send("end real integer minimize", stepLevel);
    convertMatIntToMatFloat(result_, std::numeric_limits<short>::min(), std::numeric_limits<short>::max(),
                            imageRange_.getFloatFactor(), 0.0F, result);
}

short SrIntMinimization::conjugateGradients(short numFrames, const std::vector<cv::Mat_<signed char>>& masks,
                                            short maxSteps)
{
    const std::int8_t e = imageRange_.getExponent();
    computeLSimplified(X_, epsilon_, invEpsilon_, lambda_, e);
    gradient(X_, numFrames, masks, R_);
    Fixpoint rho = scalar();
    rho.fromInt64(computeRandS(R_, B_, S_, e), e);
    rho_ = rho;
    if (checkResidueAbort(rho_))
        return 0;
    for (short k = 0; k < maxSteps; ++k) {
        debugChannel_.send("start small iteration: ", k, stepLevel);
        if (iteration(k, numFrames, masks)) {
            debugChannel_.send("abort small iteration: ", k, stepLevel);
            return static_cast<short>(k + 1);
        }
        debugChannel_.send("end small iteration: ", k, stepLevel);
    }
    return maxSteps;
}

bool SrIntMinimization::iteration(short /*step*/, short numFrames,
                                  const std::vector<cv::Mat_<signed char>>& masks)
{
    const std::int8_t e = imageRange_.getExponent();
    gradient(S_, numFrames, masks, Q_);
    const Fixpoint alpha = stepLength(computeAlpha(S_, Q_, 0));
    computeU(X_, S_, alpha.getMantissa(), alpha.getExponent());
    Fixpoint newRho = scalar();
    newRho.fromInt64(computeR(R_, Q_, alpha.getMantissa(), alpha.getExponent(), e), e);
    if (checkResidueAbort(newRho))
        return true;

    const Fixpoint beta = directionFactor(newRho);
    computeS(S_, R_, beta.getMantissa(), beta.getExponent());
    rho_ = newRho;
    return false;
}

Fixpoint SrIntMinimization::stepLength(std::int64_t product) const
{
    Fixpoint divisor = scalar();
    divisor.fromInt64(product);
    // Without a divisor twice the norm stands in for the quotient, here and below: targets have it so.
    Fixpoint alpha = rho_;
    if (divisor.getMantissa() != 0) {
        alpha = Fixpoint::div(rho_, divisor);
        alpha.incrExponent(static_cast<std::int8_t>(-2 * imageRange_.getExponent()));
    } else {
        alpha.incrExponent(1);
    }
    return alpha;
}

Fixpoint SrIntMinimization::directionFactor(const Fixpoint& newRho) const
{
    Fixpoint beta = newRho;
    if (rho_.getMantissa() != 0)
        beta = Fixpoint::div(newRho, rho_);
    else
        beta.incrExponent(1);
    return beta;
}

bool SrIntMinimization::checkResidueAbort(const Fixpoint& squaredNorm)
{
    Fixpoint limit = relRes_;
    limit.setExponentWidth(scalarExponentWidth);
    limit = Fixpoint::mul(limit, limit);
    limit = Fixpoint::mul(limit, normB_);
    return Fixpoint::lt(squaredNorm, limit);
}

void SrIntMinimization::gradient(const cv::Mat_<short>& in, short numFrames,
                                 const std::vector<cv::Mat_<signed char>>& masks, cv::Mat_<short>& out)
{
    debugChannel_.send("start gradient", stepLevel);
    requireGradientSizes(in, numFrames, masks, out);
    if (!takeModel(numFrames, masks)) {
        applyLSimplified(in, out);
        addSystemByOperators(in, numFrames, masks, out);
    } else if (!model_->addSystem(in, out, [&](int y) { applyWeightRow(in, y, out[y]); })) {
        addSystemByOperators(in, numFrames, masks, out);
    }
    debugChannel_.send("end gradient", stepLevel);
}

void SrIntMinimization::requireGradientSizes(const cv::Mat_<short>& in, short numFrames,
                                             const std::vector<cv::Mat_<signed char>>& masks,
                                             const cv::Mat_<short>& out) const
{
    constexpr const char* function = "halvor::vx::SrIntMinimization::gradient";
    const cv::Size full(fullWidth_, fullHeight_);
    if (in.size() != full)
        throw Exception("invalid input frame size", VX_WHERE(function));
    if (numFrames < 0 || masks.size() != static_cast<std::size_t>(numFrames))
        throw Exception("invalid image masks size", VX_WHERE(function));
    for (const cv::Mat_<signed char>& mask : masks)
        if (mask.rows != inHeight_ || mask.cols != inWidth_)
            throw Exception("invalid image mask size", VX_WHERE(function));
    if (out.size() != full)
        throw Exception("invalid result frame size", VX_WHERE(function));
}

// The common way is one sweep for all frames. It says nothing, so that whoever watches gets the operators one by one.
bool SrIntMinimization::takeModel(short numFrames, const std::vector<cv::Mat_<signed char>>& masks)
{
    return !debugChannel_.isDebugActive(reportLevel) && psfRange_.getExponent() == psfExponent &&
           model_->take({psfX_.data(), psfY_.data(), masks.data(), numFrames});
}

void SrIntMinimization::addSystemByOperators(const cv::Mat_<short>& in, short numFrames,
                                             const std::vector<cv::Mat_<signed char>>& masks,
                                             cv::Mat_<short>& out)
{
    const std::int8_t shift = psfRange_.getExponent();
    for (int i = 0; i < numFrames; ++i) {
        debugChannel_.send("gradient for frame: ", i, stepLevel);
        validCorrToSparse(in, psfX_[i], psfY_[i], TmpLow_, shift);
        checkLow_.setTo(short{0});
        validCorrToSparseLinewise(in, psfX_[i], psfY_[i], checkLow_, shift);
        if (debugChannel_.isDebugActive(reportLevel))
            compareMat(&debugChannel_, TmpLow_, checkLow_, "org validCorr", "linewise validCorr", 0.0F);
        checkLow_.copyTo(TmpLow_);
        fullConvFromSparse(TmpLow_, psfX_[i], psfY_[i], masks[i], out, shift);
    }
}

}  // namespace halvor::vx
