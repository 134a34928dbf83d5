#include "enhancement/superresolution/SrFloatMinimization.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "core/base/Exception.h"
#include "core/base/Kernel.h"
#include "core/base/ParallelPixels.h"
#include "core/base/RowSums.h"
#include "core/diagnostics/DebugSingleton.h"
#include "core/imaging/PointSpread.h"
#include "enhancement/superresolution/SrFloatSystem.h"

namespace halvor::vx {

namespace {

constexpr int debugLevel = 11;

VX_KERNEL double sumRow(const float* row, int n)
{
    return laneSum(n, [=](int i) { return row[i]; });
}

VX_KERNEL double squaredDeviationRow(const float* row, double mean, int n)
{
    return laneSum(n, [=](int i) {
        const double difference = static_cast<double>(row[i]) - mean;
        return difference * difference;
    });
}

VX_KERNEL void normaliseRow(float* row, float mean, float sigma, int n)
{
    for (int i = 0; i < n; ++i)
        row[i] = (row[i] - mean) / sigma;
}

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
      width(frameWidth),
      height(frameHeight),
      psfSize(checkedPsfSize(resolutionFactor)),
      numFrames(frames),
      factor(resolutionFactor),
      basePsf(psfSize),
      psfX(numFrames, basePsf),
      psfY(numFrames, basePsf),
      system_(std::make_unique<SrFloatSystem>(width, height, numFrames, factor, psfSize, *this)),
      rowSums_(height)
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
    if (frameCount > numFrames)
        throw Exception("More frames than the solver was made for.",
                        VX_WHERE("halvor::vx::SrFloatMinimization::minimize"));
    send("start minimize", debugLevel);
    const Normalisation norm = normalise(frameCount, registeredFrames, registeredFrames[referenceFrame]);
    generatePsfs(frameCount, shifts);
    const double squaredNormB =
        system_->backProject({registeredFrames, psfX.data(), psfY.data(), masks, frameCount});
    NormB = static_cast<float>(1.0 / squaredNormB);

    int cumulated = 0;
    for (int large = 0; large < maxIter; ++large) {
        send("start large iteration: ", large, debugLevel);
        const int steps = conjugateGradients(maxIter - cumulated);
        cumulated += steps;
        send("end large iteration: ", large, debugLevel);
        if (steps == 0)
            break;
    }
    send("cummulated iterations", cumulated, debugLevel);
    system_->writeResult(norm.sigma, norm.mean, outputImage);
    send("end minimize", debugLevel);
    return cumulated;
}

SrFloatMinimization::Normalisation SrFloatMinimization::normalise(int count, float* const* frames,
                                                                  const float* reference)
{
    const auto rowStart = [this](int r) { return static_cast<std::ptrdiff_t>(r) * width; };
    const double inputSize = static_cast<double>(width) * height;
    const bool isLarge = static_cast<std::size_t>(width) * height >= lightPassPixels;
#pragma omp parallel for schedule(static) if (isLarge)
    for (int r = 0; r < height; ++r)
        rowSums_[r] = sumRow(reference + rowStart(r), width);
    const double mean = rowSums_.total() / inputSize;
#pragma omp parallel for schedule(static) if (isLarge)
    for (int r = 0; r < height; ++r)
        rowSums_[r] = squaredDeviationRow(reference + rowStart(r), mean, width);
    const double variance = rowSums_.total() / inputSize;

    const Normalisation norm{static_cast<float>(mean), std::sqrt(static_cast<float>(variance))};
#pragma omp parallel for schedule(static)
    for (int r = 0; r < height; ++r)
        for (int k = 0; k < count; ++k)
            normaliseRow(frames[k] + rowStart(r), norm.mean, norm.sigma, width);
    return norm;
}

void SrFloatMinimization::generatePsfs(int count, const PointF* shifts)
{
    for (int k = 0; k < count; ++k) {
        shiftPsf(basePsf, shifts[k].x * factor, psfX[k]);
        shiftPsf(basePsf, shifts[k].y * factor, psfY[k]);
    }
}

int SrFloatMinimization::conjugateGradients(int budget)
{
    // Without a step to make only the debug lines would tell that the weights were formed once more.
    if (budget == 0 && !isDebugActive(debugLevel))
        return 0;
    Pnr = static_cast<float>(system_->linearise({negInvWeightTV, epsilon, invEpsilon}));
    if (relRes * relRes > Pnr * NormB)
        return 0;
    for (int i = 0; i < budget; ++i) {
        send("start small iteration: ", i, debugLevel);
        if (iteration(i)) {
            send("abort small iteration: ", i, debugLevel);
            return i + 1;
        }
        send("end small iteration: ", i, debugLevel);
    }
    return budget;
}

bool SrFloatMinimization::iteration(int step)
{
    // S = beta * S + R is formed in the same pass as the system matrix is applied to it.
    const double dq = step == 0 ? system_->startDirection() : system_->nextDirection(beta_);
    const auto alpha = static_cast<float>(static_cast<double>(Pnr) / dq);
    const double nr = system_->step(alpha);
    if (static_cast<double>(relRes * relRes) > static_cast<double>(NormB) * nr)
        return true;
    beta_ = static_cast<float>(nr / static_cast<double>(Pnr));
    Pnr = static_cast<float>(nr);
    return false;
}

}  // namespace halvor::vx
