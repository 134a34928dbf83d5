// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrIntFpgaMinimization.h"

#include <cstddef>
#include <string>

#include "core/base/Exception.h"
#include "core/diagnostics/DebugSingleton.h"
#include "enhancement/superresolution/fixedpoint/FpgaStream.h"

namespace halvor::vx {

namespace {

constexpr int debugLevel = 11;

short checkedFormat(short width, short height, short factor, short result)
{
    if (width != fpga::frameWidth || height != fpga::frameHeight || factor != 2)
        throw Exception("frames of " + std::to_string(width) + "x" + std::to_string(height) +
                            " by a factor of " + std::to_string(factor) +
                            ": the streamed convolutions take 160x120 by 2",
                        VX_WHERE("halvor::vx::SrIntFpgaMinimization::SrIntFpgaMinimization"));
    return result;
}

// The streams take a mask byte by byte.
void requireNoGaps(const std::vector<cv::Mat_<signed char>>& masks)
{
    for (const cv::Mat_<signed char>& mask : masks)
        if (!mask.isContinuous())
            throw Exception("a mask has gaps between its rows, which the streamed convolutions can't skip",
                            VX_WHERE("halvor::vx::SrIntFpgaMinimization::minimize"));
}

}  // namespace

SrIntFpgaMinimization::SrIntFpgaMinimization(short width, short height, short numFrames, short factor)
    : SrIntMinimization(checkedFormat(width, height, factor, width), height, numFrames, factor),
      U0_(cv::Mat_<short>::zeros(fullHeight_, fullWidth_)),
      U1_(cv::Mat_<short>::zeros(fullHeight_, fullWidth_)),
      R0_(cv::Mat_<short>::zeros(fullHeight_, fullWidth_)),
      R1_(cv::Mat_<short>::zeros(fullHeight_, fullWidth_))
{
    UBank_ = {U0_, U1_};
    RBank_ = {R0_, R1_};
    DebugSingleton::getInstance("").addDebugChannel(&fpgaChannel_);
}

SrIntFpgaMinimization::~SrIntFpgaMinimization()
{
    DebugSingleton::getInstance("").removeDebugChannel(&fpgaChannel_);
}

short SrIntFpgaMinimization::minimize(short numFrames, short refIndex, std::vector<cv::Mat_<float>>& frames,
                                      const std::vector<cv::Mat_<signed char>>& masks,
                                      cv::Mat_<float>& result)
{
    fpgaChannel_.send("start minimize", debugLevel);
    prepareFrames(numFrames, refIndex, frames, masks, fpgaChannel_);
    requireKernels(numFrames);
    requireNoGaps(masks);

    B_.setTo(0);
    for (std::size_t i = 0; i < static_cast<std::size_t>(numFrames); ++i)
        fullConvFromSparseLinewise(frames_[i][0], psfX_[i][0], psfY_[i][0], masks[i][0], B_[0]);
    const signed char e = imageRange_.getExponent();
    normB_.fromInt64(computeSumSquaredValues(B_, e), e);

    cumIters_ = 0;
    short lastRound = 0;
    short lastSteps = 0;
    for (short large = 0; large < maxIter_; ++large) {
        fpgaChannel_.send("start large iteration: ", large, debugLevel);
        lastRound = large;
        lastSteps = conjugateGradients(large, numFrames, masks, static_cast<short>(maxIter_ - cumIters_));
        cumIters_ = static_cast<short>(cumIters_ + lastSteps);
        fpgaChannel_.send("end large iteration: ", large, debugLevel);
        if (lastSteps == 0)
            break;
    }
    fpgaChannel_.send("cummulated iterations", cumIters_, debugLevel);

    // A round without a step leaves the bank that it started from. In the first round nothing was written to it: the
    // pipeline keeps no copy of B, and gives that bank out as it stands.
    const int bank = (lastSteps == 0 ? lastRound : lastRound + 1) % 2;
    finishResult(UBank_[static_cast<std::size_t>(bank)], result, fpgaChannel_);
    fpgaChannel_.send("end minimize", debugLevel);
    return cumIters_;
}

// The streams read six taps and check nothing.
void SrIntFpgaMinimization::requireKernels(short numFrames) const
{
    for (std::size_t i = 0; i < static_cast<std::size_t>(numFrames); ++i)
        if (psfX_[i].total() != fpga::taps || psfY_[i].total() != fpga::taps)
            throw Exception("invalid row mask size", VX_WHERE("halvor::vx::SrIntFpgaMinimization::minimize"));
}

short SrIntFpgaMinimization::conjugateGradients(short large, short numFrames,
                                                const std::vector<cv::Mat_<signed char>>& masks,
                                                short maxSteps)
{
    const signed char e = imageRange_.getExponent();
    const cv::Mat_<short>& start = startOf(large);
    computeLSimplified(start[0], epsilon_, invEpsilon_, lambda_, e);
    gradient(start[0], numFrames, masks, RBank_[0]);
    rho_.fromInt64(computeRandS(RBank_[0], B_, S_, e), e);
    if (checkResidueAbort(rho_))
        return 0;
    for (short small = 0; small < maxSteps; ++small) {
        fpgaChannel_.send("start small iteration: ", small, debugLevel);
        if (iteration(large, small, static_cast<short>(large % 2), numFrames, masks)) {
            fpgaChannel_.send("abort small iteration: ", small, debugLevel);
            return static_cast<short>(small + 1);
        }
        fpgaChannel_.send("end small iteration: ", small, debugLevel);
    }
    return maxSteps;
}

bool SrIntFpgaMinimization::iteration(short large, short small, short parity, short numFrames,
                                      const std::vector<cv::Mat_<signed char>>& masks)
{
    const signed char e = imageRange_.getExponent();
    // The first step of a round reads what the round started from; the later ones work in place.
    const bool isFirst = small == 0;
    cv::Mat_<short>& start = startOf(large);
    cv::Mat_<short>& estimate = UBank_[static_cast<std::size_t>((parity + 1) % 2)];
    const short* direction = isFirst ? RBank_[0][0] : S_[0];

    computeLSimplified(start[0], epsilon_, invEpsilon_, lambda_, e);
    gradient(direction, numFrames, masks, Q_);
    const Fixpoint alpha = stepLength(computeAlpha(direction, Q_, 0));
    computeU(isFirst ? start[0] : estimate[0], estimate[0], direction, alpha.getMantissa(),
             alpha.getExponent());
    Fixpoint newRho = rho_;  // for its exponent width
    newRho.fromInt64(
        computeR(RBank_[isFirst ? 0 : 1][0], RBank_[1][0], Q_, alpha.getMantissa(), alpha.getExponent(), e),
        e);
    if (checkResidueAbort(newRho))
        return true;
    const Fixpoint beta = directionFactor(newRho);
    computeS(direction, S_, RBank_[1], beta.getMantissa(), beta.getExponent());
    rho_ = newRho;
    return false;
}

void SrIntFpgaMinimization::gradient(const short* in, short numFrames,
                                     const std::vector<cv::Mat_<signed char>>& masks, cv::Mat_<short>& out)
{
    const auto require = [](bool condition, const char* message) {
        if (!condition)
            throw Exception(message, VX_WHERE("halvor::vx::SrIntFpgaMinimization::gradient"));
    };
    fpgaChannel_.send("start FPGA gradient", debugLevel);
    require(masks.size() == static_cast<std::size_t>(numFrames), "invalid image masks size");
    for (const cv::Mat_<signed char>& mask : masks)
        require(mask.rows == inHeight_ && mask.cols == inWidth_, "invalid image mask size");
    require(out.rows == fullHeight_ && out.cols == fullWidth_, "invalid result frame size");
    applyLSimplified(in, out);
    for (std::size_t i = 0; i < masks.size(); ++i) {
        fpgaChannel_.send("gradient for frame: ", i, debugLevel);
        validCorrToSparseLinewise(in, psfX_[i][0], psfY_[i][0], TmpLow_[0], psfRange_.getExponent());
        fullConvFromSparseLinewise(TmpLow_[0], psfX_[i][0], psfY_[i][0], masks[i][0], out[0]);
    }
    fpgaChannel_.send("end gradient", debugLevel);
}

}  // namespace halvor::vx
