// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/base/Export.h"
#include "core/base/PointF.h"
#include "core/diagnostics/DebugChannel.h"

namespace halvor::vx {

class FrameScale;
class SrFloatSystem;

/// Numerical core of the float engine: finds the large image that explains a burst of displaced frames best
/// under blur and subsampling, regularised by the total variation over eight neighbours.
///
/// Lagged diffusivity (Vogel and Oman): in each round the weights of the total-variation term are frozen from
/// the current estimate, and conjugate gradients run on the linear system that is left. A step budget covers
/// all rounds together.
///
/// All pixel memory is allocated by the constructor. One thread at a time may use an object; results are the
/// same bit for bit for any number of OpenMP threads.
class VXKIT_API SrFloatMinimization : public DebugChannel
{
public:
    /// @param frameWidth, frameHeight  size of a frame in pixels
    /// @param frames  capacity: the most frames that minimize() may be given
    /// @param resolutionFactor  enlargement in each direction; the engine runs with 2
    /// @throws Exception  if the factor is too small for a kernel
    SrFloatMinimization(int frameWidth, int frameHeight, int frames, float resolutionFactor);
    SrFloatMinimization(const SrFloatMinimization&) = delete;
    SrFloatMinimization(SrFloatMinimization&&) = delete;
    SrFloatMinimization& operator=(const SrFloatMinimization&) = delete;
    SrFloatMinimization& operator=(SrFloatMinimization&&) = delete;
    ~SrFloatMinimization() override;

    // The setters take any value; the engine checks ranges.

    /// Standard deviation of the sensor's point spread in pixels of the large image; 0.683.
    float getPsfSigma() const { return psfSigma_; }
    void setPsfSigma(float sigma);
    /// Inverse strength of the total-variation term: a larger value smooths less; 400.
    float getWeightTV() const { return weightTv_; }
    void setWeightTV(float weight);
    /// Difference of neighbours, in standard deviations of the reference frame, below which the
    /// total-variation term is quadratic; above its inverse it is so again; 0.1.
    float getEpsilon() const { return epsilon_; }
    void setEpsilon(float value);
    /// Relative residue at which a round ends; 0.007.
    float getRelRes() const { return relRes_; }
    void setRelRes(float value) { relRes_ = value; }
    /// Budget of conjugate-gradient steps for one image, and bound on its rounds; 8.
    int getMaxIter() const { return maxIter_; }
    void setMaxIter(int value) { maxIter_ = value; }

    /// Solves for the large image.
    ///
    /// @param frameCount        frames given, at most the capacity
    /// @param referenceFrame    index of the frame whose mean and standard deviation normalise all frames;
    ///                          one of zero variance makes the result not-a-number
    /// @param registeredFrames  frames, moved by the whole pixels of their displacement; hold the normalised
    ///                          values afterwards
    /// @param shifts            what is left of each displacement, in frame pixels; positive when the scene
    ///                          lies further right or lower than in the reference frame
    /// @param masks             per frame one signed byte per pixel: 1 for a usable pixel, else 0
    /// @param outputImage       written: frame size times the factor
    /// @return the conjugate-gradient steps of all rounds together
    /// @throws Exception  if the factor is below 2
    int minimize(int frameCount, int referenceFrame, float* const* registeredFrames, PointF* const shifts,
                 char** masks, float* outputImage);

private:
    void generatePsfs(int count, const PointF* shifts);
    int conjugateGradients(int budget);
    bool iteration(int step);

    std::int32_t width_;
    std::int32_t height_;
    std::int32_t psfSize_;
    std::int32_t numFrames_;
    float factor_;
    float psfSigma_ = 0.0F;
    float weightTv_ = 0.0F;
    float relRes_ = 0.0F;
    std::int32_t maxIter_ = 0;
    std::vector<float> basePsf_;
    std::vector<std::vector<float>> psfX_;
    std::vector<std::vector<float>> psfY_;
    float negInvWeightTv_ = 0.0F;
    float epsilon_ = 0.0F;
    float invEpsilon_ = 0.0F;
    float pnr_ = 0.0F;
    float invNormB_ = 0.0F;  // 1 / (sum of B * B)
    float beta_ = 0.0F;
    std::unique_ptr<SrFloatSystem> system_;
    std::unique_ptr<FrameScale> scale_;
};

}  // namespace halvor::vx
