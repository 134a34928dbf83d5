#pragma once

#include <vector>

#include "core/base/PointF.h"

namespace halvor::vx::plain {

// The float engine's operators and solver with their loops in the plainest form: serial, on row-major arrays,
// tap by tap, no thought of speed. The fast forms are held against them, bit for bit, so every product and
// sum has the same order here. Sums over an image are made of the same sums per row.

/// The operator pair between a frame and the large image.
struct Convolution
{
    int lowWidth;
    int lowHeight;
    int taps;
    int stride;
    int fullWidth = lowWidth * stride + taps - 1;
    int fullHeight = lowHeight * 2 + taps - 1;
    std::vector<float> tmp = std::vector<float>(static_cast<std::size_t>(fullHeight) * lowWidth);

    void fullConvFromSparse(const float* sparse, const float* kernelX, const float* kernelY, const char* mask,
                            float* full);
    void validCorrToSparse(const float* full, const float* kernelX, const float* kernelY, float* sparse);
};

/// The total-variation solver for a factor of 2.
struct Solver
{
    Solver(int frameWidth, int frameHeight);

    void setPsfSigma(float sigma);
    int minimize(int count, int referenceFrame, float* const* frames, const PointF* shifts, char** masks,
                 float* result);

    void generatePsfs(int count, const PointF* shifts);
    void backProject(int count, const float* const* frames, char** masks);
    int conjugateGradients(int count, char** masks, int budget);
    void computeL();
    void gradient(const std::vector<float>& x, int count, char** masks, std::vector<float>& out);
    bool iteration(int count, char** masks);
    double dot(const std::vector<float>& a, const std::vector<float>& b) const;

    static constexpr int taps = 6;
    static constexpr float factor = 2.0F;
    int width;
    int height;
    int fullWidth;
    int fullHeight;
    float weightTV = 400.0F;
    float epsilon = 0.1F;
    float relRes = 0.007F;
    int maxIter = 8;
    Convolution conv;
    std::vector<float> basePsf;
    std::vector<std::vector<float>> psfX;
    std::vector<std::vector<float>> psfY;
    std::vector<float> tmpConv;
    std::vector<float> tmpFull;
    std::vector<float> B;
    std::vector<float> U;
    std::vector<float> Lr;
    std::vector<float> Ld;
    std::vector<float> Ldl;
    std::vector<float> Ldr;
    std::vector<float> Lc;
    std::vector<float> R;
    std::vector<float> S;
    std::vector<float> Q;
    float Pnr = 0.0F;
    float NormB = 0.0F;
};

}  // namespace halvor::vx::plain
