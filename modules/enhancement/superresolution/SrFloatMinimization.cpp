// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrFloatMinimization.h"

#include <cstddef>

#include "core/base/Exception.h"
#include "core/diagnostics/DebugLevels.h"
#include "core/diagnostics/DebugSingleton.h"
#include "core/imaging/PointSpread.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "enhancement/superresolution/solver/FrameScale.h"
#include "enhancement/superresolution/solver/SrFloatSystem.h"

namespace halvor::vx {

namespace {

int checkedPsfSize(float resolutionFactor)
{
    if (!(resolutionFactor * 3.0F >= 1.0F))
        throw Exception("The resolution factor is too small for a point-spread kernel.",
                        VX_WHERE("halvor::vx::SrFloatMinimization::SrFloatMinimization"));
    return static_cast<int>(resolutionFactor * 3.0F);
}

}  // namespace

SrFloatMinimization::SrFloatMinimization(int frameWidth, int frameHeight, int frames, float resolutionFactor)
    : DebugChannel("SrFloat"),
      width_(frameWidth),
      height_(frameHeight),
      psfSize_(checkedPsfSize(resolutionFactor)),
      numFrames_(frames),
      factor_(resolutionFactor),
      basePsf_(psfSize_),
      psfX_(numFrames_, basePsf_),
      psfY_(numFrames_, basePsf_),
      system_(std::make_unique<SrFloatSystem>(width_, height_, numFrames_, factor_, psfSize_, *this)),
      scale_(std::make_unique<FrameScale>(width_, height_))
{
    DebugSingleton::getInstance("").addDebugChannel(this);
    setPsfSigma(EngineDefaults::psfSigma);
    setWeightTV(EngineDefaults::weightTV);
    setEpsilon(EngineDefaults::epsilon);
    setRelRes(EngineDefaults::relativeResidue);
    setMaxIter(EngineDefaults::maxCGIters);
}

SrFloatMinimization::~SrFloatMinimization()
{
    DebugSingleton::getInstance("").removeDebugChannel(this);
}

void SrFloatMinimization::setPsfSigma(float sigma)
{
    psfSigma_ = sigma;
    fillBasePsf(sigma, factor_, basePsf_);
}

void SrFloatMinimization::setWeightTV(float weight)
{
    weightTv_ = weight;
    negInvWeightTv_ = -1.0F / weight;
}

void SrFloatMinimization::setEpsilon(float value)
{
    epsilon_ = value;
    invEpsilon_ = 1.0F / value;
}

int SrFloatMinimization::minimize(int frameCount, int referenceFrame, float* const* registeredFrames,
                                  PointF* const shifts, char** masks, float* outputImage)
{
    if (frameCount > numFrames_)
        throw Exception("More frames than the solver was made for.",
                        VX_WHERE("halvor::vx::SrFloatMinimization::minimize"));
    send("start minimize", DebugLevel::step);
    scale_->normalise(frameCount, registeredFrames, registeredFrames[referenceFrame]);
    generatePsfs(frameCount, shifts);
    const double squaredNormB =
        system_->backProject({registeredFrames, psfX_.data(), psfY_.data(), masks, frameCount});
    invNormB_ = static_cast<float>(1.0 / squaredNormB);

    int cumulated = 0;
    for (int large = 0; large < maxIter_; ++large) {
        send("start large iteration: ", large, DebugLevel::step);
        const int steps = conjugateGradients(maxIter_ - cumulated);
        cumulated += steps;
        send("end large iteration: ", large, DebugLevel::step);
        if (steps == 0)
            break;
    }
    send("cummulated iterations", cumulated, DebugLevel::step);
    system_->writeResult(scale_->sigma(), scale_->mean(), outputImage);
    send("end minimize", DebugLevel::step);
    return cumulated;
}

void SrFloatMinimization::generatePsfs(int count, const PointF* shifts)
{
    for (int k = 0; k < count; ++k) {
        shiftPsf(basePsf_, shifts[k].x * factor_, psfX_[k]);
        shiftPsf(basePsf_, shifts[k].y * factor_, psfY_[k]);
    }
}

int SrFloatMinimization::conjugateGradients(int budget)
{
    // Without a step to make only the debug lines would tell that the weights were formed once more.
    if (budget == 0 && !isDebugActive(DebugLevel::step))
        return 0;
    pnr_ = static_cast<float>(system_->linearise({negInvWeightTv_, epsilon_, invEpsilon_}));
    if (relRes_ * relRes_ > pnr_ * invNormB_)
        return 0;
    for (int i = 0; i < budget; ++i) {
        send("start small iteration: ", i, DebugLevel::step);
        if (iteration(i)) {
            send("abort small iteration: ", i, DebugLevel::step);
            return i + 1;
        }
        send("end small iteration: ", i, DebugLevel::step);
    }
    return budget;
}

bool SrFloatMinimization::iteration(int step)
{
    // S = beta * S + R is formed in the same pass as the system matrix is applied to it.
    const double dq = step == 0 ? system_->startDirection() : system_->nextDirection(beta_);
    const auto alpha = static_cast<float>(static_cast<double>(pnr_) / dq);
    const double nr = system_->step(alpha);
    if (static_cast<double>(relRes_ * relRes_) > static_cast<double>(invNormB_) * nr)
        return true;
    beta_ = static_cast<float>(nr / static_cast<double>(pnr_));
    pnr_ = static_cast<float>(nr);
    return false;
}

}  // namespace halvor::vx
