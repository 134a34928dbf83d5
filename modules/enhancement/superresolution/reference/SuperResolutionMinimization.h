// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

#include "core/base/Export.h"
#include "core/base/PointF.h"
#include "core/diagnostics/DebugChannel.h"
#include "enhancement/superresolution/reference/SuperResolutionConvolution.h"

namespace halvor::vx {

/// Serial twin of SrFloatMinimization: solves for the large image that best explains all frames under blur,
/// sampling and a total-variation prior.
///
/// Lagged diffusivity with conjugate gradients, as in the twin; every sum is a single-precision one in pixel
/// order, so that the two agree up to rounding. Every step reports its values on the channel "SR" at level
/// 11.
class VXKIT_API SuperResolutionMinimization
{
public:
    /// @param width, height  size of a frame in pixels
    /// @param numFrames      largest number of frames that minimize() may be given
    /// @param factor         resolution factor, 1 or more
    SuperResolutionMinimization(int width, int height, int numFrames, float factor);

    /// Standard deviation of the point spread in pixels of the large image; 0.683 at first.
    float getPsfSigma() const { return psfSigma_; }
    void setPsfSigma(float sigma);
    /// Inverse strength of the prior; 400 at first.
    float getWeightTV() const { return weightTv_; }
    void setWeightTV(float weight);
    /// Lower clamp of a gradient's magnitude, whose inverse is the upper one; 0.1 at first.
    float getEpsilon() const { return epsilon_; }
    void setEpsilon(float value);
    /// Relative residue at which a round ends; 0.007 at first.
    float getRelRes() const { return relRes_; }
    void setRelRes(float residue) { relRes_ = residue; }
    /// Budget of conjugate-gradient steps for one image; 8 at first.
    int getMaxIter() const { return maxIter_; }
    void setMaxIter(int iterations) { maxIter_ = iterations; }

    /// @param count     frames given, at least 1 and at most the capacity
    /// @param refIndex  the frame whose mean and deviation normalise all frames
    /// @param frames    `height` rows of `width` values each; normalised in place
    /// @param shifts    sub-pixel displacement of each frame in frame pixels
    /// @param masks     one value per pixel of each frame: 1 if it is usable, else 0
    /// @param result    takes the large image, (int)(height * factor) rows of (int)(width * factor) values
    /// @return the number of conjugate-gradient steps
    /// @throws Exception  if there are more frames than the capacity
    int minimize(int count, int refIndex, float* const* frames, const PointF* shifts, char** masks,
                 float* result);

    /// Reports minimum, maximum, sum and mean of a matrix on the channel at level 11. Costs one comparison
    /// when that level is not active.
    void debugMat(const std::string& name, const cv::Mat_<float>& mat) const;

    /// The channels of the convolution and of this object.
    std::vector<DebugChannel*> getInternalDebugChannelObjects();

private:
    void normalize(int count, int refIndex, float* const* frames, float& mean, float& sigma);
    void generatePsfs(int count, const PointF* shifts);
    void initialize(int count, float* const* frames, char** masks);
    int conjugateGradients(int count, char** masks, int budget);
    void computeL();
    void gradient(const float* x, int count, char** masks, float* out);
    bool iteration(int count, char** masks);
    void cutOut(float mean, float sigma, float* result);
    float edgeWeight(float difference) const;
    void applyL(const float* x, float* out) const;
    void debugFull(const char* name, std::vector<float>& values) const;

    std::int32_t width_;
    std::int32_t height_;
    std::int32_t psfSize_;
    std::int32_t fullWidth_;
    std::int32_t fullHeight_;
    std::int32_t pixelCount_;
    std::int32_t numFrames_;
    float factor_;
    float psfSigma_ = 0.0F;
    float weightTv_ = 0.0F;
    float relRes_ = 0.0F;
    std::int32_t maxIter_ = 0;
    std::vector<float> basePsf_;
    std::vector<std::vector<float>> psfX_;
    std::vector<std::vector<float>> psfY_;
    SuperResolutionConvolution conv_;
    std::vector<float> tmpConv_;
    std::vector<float> tmpFull_;
    std::vector<float> b_;
    std::vector<float> u_;
    std::vector<float> lr_;
    std::vector<float> ld_;
    std::vector<float> ldl_;
    std::vector<float> ldr_;
    std::vector<float> lc_;
    std::vector<float> r_;
    std::vector<float> s_;
    std::vector<float> q_;
    float negInvWeightTv_ = 0.0F;
    float epsilon_ = 0.0F;
    float invEpsilon_ = 0.0F;
    float pnr_ = 0.0F;
    float invNormB_ = 0.0F;  // 1 / (sum of B * B)
    DebugChannel channel_;
};

}  // namespace halvor::vx
