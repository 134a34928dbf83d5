// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrFloatRegistration1.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "core/base/Exception.h"
#include "core/base/Kernel.h"
#include "core/base/ParallelPixels.h"
#include "core/base/Rounded.h"
#include "core/imaging/GaussianTaps.h"
#include "core/registration/Displacement.h"
#include "core/registration/GradientRefinement.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "enhancement/superresolution/engine/SpectrumWindow.h"

namespace halvor::vx {

namespace {

// A spectrum times the conjugate of another.
VX_KERNEL void multiplyByConjugate(const float* VX_RESTRICT spectrum, const float* VX_RESTRICT other, int n,
                                   float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i) {
        const float a = spectrum[2 * i];
        const float b = spectrum[2 * i + 1];
        const float c = other[2 * i];
        const float d = other[2 * i + 1];
        out[2 * i] = rounded(a * c) + rounded(b * d);
        out[2 * i + 1] = rounded(b * c) - rounded(a * d);
    }
}

// Normalised cross-power spectrum. An element without magnitude gives what is not a number.
VX_KERNEL void crossPower(const float* VX_RESTRICT reference, const float* VX_RESTRICT frame, int n,
                          float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i) {
        const float a = reference[2 * i];
        const float b = reference[2 * i + 1];
        const float c = frame[2 * i];
        const float d = frame[2 * i + 1];
        const float magnitude = std::sqrt((a * a + b * b) * (c * c + d * d));
        out[2 * i] = (rounded(c * a) + rounded(d * b)) / magnitude;
        out[2 * i + 1] = (rounded(d * a) - rounded(c * b)) / magnitude;
    }
}

// Largest of all values; the first one if that is not a number, and no other one that is not.
VX_KERNEL float peakOf(const float* values, int n)
{
    constexpr int lanes = 16;
    float partial[lanes];
    std::fill(partial, partial + lanes, values[0]);
    int i = 0;
    for (; i + lanes <= n; i += lanes)
        for (int lane = 0; lane < lanes; ++lane)
            partial[lane] = values[i + lane] > partial[lane] ? values[i + lane] : partial[lane];
    float peak = values[0];
    for (; i < n; ++i)
        peak = values[i] > peak ? values[i] : peak;
    for (const float value : partial)
        peak = value > peak ? value : peak;
    return peak;
}

// Scratch of one of the threads that register frames at the same time.
struct Worker
{
    Worker(int fftSize, int size)
        : workSpectrum(std::make_unique<float[][2]>(fftSize)), correlation(static_cast<std::size_t>(size))
    {}

    std::unique_ptr<float[][2]> workSpectrum;
    std::vector<float> correlation;
};

}  // namespace

// The steps of a run, and what lies between them.
struct SrFloatRegistration1::Parts
{
    Parts(const cv::Size& size, int fftSize, int window) : spectra(fftSize, window), refinement(size, window)
    {}

    SpectrumWindow spectra;
    std::vector<Worker> workers;
    std::vector<cv::Mat_<float>> blurredFrames;
    std::vector<PointI> wholeShifts;
    GradientRefinement refinement;
    std::vector<PointF> measured;
};

SrFloatRegistration1::SrFloatRegistration1(int frameWidth, int frameHeight, int window)
    : width_(frameWidth),
      height_(frameHeight),
      size_(frameWidth * frameHeight),
      fftSize_((frameWidth / 2 + 1) * frameHeight),
      fft_(frameWidth, frameHeight),
      gaussSpectrum_(std::make_unique<float[][2]>(fftSize_)),
      parts_(std::make_unique<Parts>(cv::Size(frameWidth, frameHeight), fftSize_, window))
{
    for (int i = 0; i < window; ++i)
        parts_->blurredFrames.emplace_back(height_, width_);
    for (int i = 0; i < std::min(fft_.workers(), 2 * window); ++i)
        parts_->workers.emplace_back(fftSize_, size_);
    setRegError(EngineDefaults::regError);
    setRegErrBlurRadius(3);
    setGaussRadius(5);
}

SrFloatRegistration1::~SrFloatRegistration1() = default;

void SrFloatRegistration1::prepareFrame(float* frame)
{
    fft_.forward(frame, parts_->spectra.push());
}

int SrFloatRegistration1::doRegistration(int count, int reference, float* const* rawFrames, PointF* shifts,
                                         char** masks, float** registeredFrames)
{
    registerFrames(count, reference, rawFrames, shifts, masks);
    if (!settleDisplacements(cv::Size(width_, height_), count, rawFrames, shifts, completeShifts_,
                             registeredFrames))
        throw Exception("Too large displacement",
                        VX_WHERE("halvor::vx::SrFloatRegistration1::doRegistration"));
    return 0;
}

void SrFloatRegistration1::getCompleteShifts(std::vector<PointF>& out)
{
    out = completeShifts_;
}

void SrFloatRegistration1::setGaussRadius(int radius)
{
    requireKernelFits(radius, width_, height_);
    gaussRadius_ = radius;
    gaussKernel_.resize(static_cast<std::size_t>(radius) + 1);
    fft_.gaussFft(radius, GradientRefinement::smoothingSigma(radius), gaussSpectrum_.get(),
                  gaussKernel_.data());
}

// Smoothing and correlation of all frames are one list of tasks of about equal length, each of which runs on
// one thread: few barriers, and the same bits for any number of threads.
void SrFloatRegistration1::registerFrames(int count, int reference, float* const* rawFrames, PointF* shifts,
                                          char** masks)
{
    const SpectrumWindow::Spectrum* const spectra = parts_->spectra.pointers();
    parts_->wholeShifts.assign(static_cast<std::size_t>(count), PointI{0, 0});
#pragma omp parallel for schedule(static) num_threads(teamSize())
    for (int task = 0; task < 2 * count; ++task) {
        const int i = task / 2;
        if (task % 2 == 0)
            blur(omp_get_thread_num(), spectra[i], rawFrames[i], parts_->blurredFrames[i][0]);
        else if (i != reference)
            parts_->wholeShifts[i] = phaseCorrelation(omp_get_thread_num(), spectra[reference], spectra[i]);
    }
    initialize(masks, count, reference);
    parts_->refinement.refineAll(parts_->blurredFrames, parts_->wholeShifts, reference, regError_,
                                 regErrBlurRadius_, masks, parts_->measured);
    std::copy(parts_->measured.begin(), parts_->measured.end(), shifts);
}

int SrFloatRegistration1::teamSize() const
{
    // A task is a transform and more: worth a thread on smaller frames than a plain pass is.
    const bool isWorthIt = static_cast<std::size_t>(size_) >= parallelPixels / 4;
    return isWorthIt ? std::min(omp_get_max_threads(), static_cast<int>(parts_->workers.size())) : 1;
}

// Gaussian smoothing of a frame by way of its spectrum, which the symmetric kernel's conjugate multiplies.
void SrFloatRegistration1::blur(int worker, const float (*spectrum)[2], const float* frame, float* blurred)
{
    float(*product)[2] = parts_->workers[worker].workSpectrum.get();
    multiplyByConjugate(spectrum[0], gaussSpectrum_[0], fftSize_, product[0]);
    fft_.backward(worker, product, blurred);
    fft_.repairGaussBlur(worker, frame, blurred, gaussRadius_, gaussKernel_.data());
}

// Place of the correlation's peak, the first of equal ones in index order; the first pixel if the
// correlation is not a number.
PointI SrFloatRegistration1::phaseCorrelation(int worker, const float (*refSpectrum)[2],
                                              const float (*frameSpectrum)[2])
{
    float(*product)[2] = parts_->workers[worker].workSpectrum.get();
    std::vector<float>& correlation = parts_->workers[worker].correlation;
    crossPower(refSpectrum[0], frameSpectrum[0], fftSize_, product[0]);
    fft_.backward(worker, product, correlation.data());

    const float peak = peakOf(correlation.data(), size_);
    const auto found = std::find(correlation.begin(), correlation.end(), peak);
    const auto index = found == correlation.end() ? 0 : static_cast<int>(found - correlation.begin());
    PointI shift{index % width_, index / width_};
    if (shift.y > height_ / 2)
        shift.y -= height_;
    if (shift.x > width_ / 2)
        shift.x -= width_;
    return shift;
}

void SrFloatRegistration1::initialize(char** masks, int count, int reference)
{
    for (int i = 0; i < count; ++i)
        std::fill_n(masks[i], size_, static_cast<char>(i == reference ? 1 : 0));
    parts_->refinement.setReference(parts_->blurredFrames[reference]);
}

}  // namespace halvor::vx
