#include "enhancement/superresolution/SrFloatRegistration1.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "core/base/Exception.h"
#include "core/base/Kernel.h"
#include "core/base/ParallelPixels.h"
#include "core/imaging/Displacement.h"
#include "core/imaging/GaussianTaps.h"

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
        out[2 * i] = a * c + b * d;
        out[2 * i + 1] = b * c - a * d;
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
        out[2 * i] = (c * a + d * b) / magnitude;
        out[2 * i + 1] = (d * a - c * b) / magnitude;
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

}  // namespace

// Scratch of one of the threads that register frames at the same time.
struct SrFloatRegistration1::Worker
{
    Worker(int fftSize, int size)
        : workSpectrum(std::make_unique<float[][2]>(fftSize)), correlation(static_cast<std::size_t>(size))
    {}

    std::unique_ptr<float[][2]> workSpectrum;
    std::vector<float> correlation;
};

SrFloatRegistration1::SrFloatRegistration1(int frameWidth, int frameHeight, int window)
    : width(frameWidth),
      height(frameHeight),
      size(frameWidth * frameHeight),
      windowSize(window),
      fftSize((frameWidth / 2 + 1) * frameHeight),
      fft(frameWidth, frameHeight),
      gaussSpectrum(std::make_unique<float[][2]>(fftSize)),
      refinement_(cv::Size(frameWidth, frameHeight), window)
{
    for (int i = 0; i < windowSize; ++i) {
        spectrumStorage_.push_back(std::make_unique<float[][2]>(fftSize));
        spectra.push_back(spectrumStorage_.back().get());
        blurredFrames_.emplace_back(height, width);
    }
    for (int i = 0; i < std::min(fft.workers(), 2 * windowSize); ++i)
        workers_.emplace_back(fftSize, size);
    setRegError(0.0001F);
    setRegErrBlurRadius(3);
    setGaussRadius(5);
}

SrFloatRegistration1::~SrFloatRegistration1() = default;

void SrFloatRegistration1::prepareFrame(float* frame)
{
    if (frameCount < windowSize)
        ++frameCount;
    else
        std::rotate(spectra.begin(), spectra.begin() + 1, spectra.end());
    fft.forward(frame, spectra[frameCount - 1]);
}

int SrFloatRegistration1::doRegistration(int count, int reference, float* const* rawFrames, PointF* shifts,
                                         char** masks, float** registeredFrames)
{
    registerFrames(count, reference, rawFrames, shifts, masks);
    if (!settleDisplacements(cv::Size(width, height), count, rawFrames, shifts, completeShifts,
                             registeredFrames))
        throw Exception("Too large displacement",
                        VX_WHERE("halvor::vx::SrFloatRegistration1::doRegistration"));
    return 0;
}

void SrFloatRegistration1::getCompleteShifts(std::vector<PointF>& out)
{
    out = completeShifts;
}

void SrFloatRegistration1::setGaussRadius(int radius)
{
    requireKernelFits(radius, width, height);
    gaussRadius = radius;
    gaussKernel.resize(static_cast<std::size_t>(radius) + 1);
    fft.gaussFft(radius, GradientRefinement::smoothingSigma(radius), gaussSpectrum.get(), gaussKernel.data());
}

// Smoothing and correlation of all frames are one list of tasks of about equal length, each of which runs on
// one thread: few barriers, and the same bits for any number of threads.
void SrFloatRegistration1::registerFrames(int count, int reference, float* const* rawFrames, PointF* shifts,
                                          char** masks)
{
    if (lastShifts.empty())
        lastShifts.resize(static_cast<std::size_t>(count));
    wholeShifts_.assign(static_cast<std::size_t>(count), PointI{0, 0});
#pragma omp parallel for schedule(static) num_threads(teamSize())
    for (int task = 0; task < 2 * count; ++task) {
        const int i = task / 2;
        if (task % 2 == 0)
            blur(omp_get_thread_num(), spectra[i], rawFrames[i], blurredFrames_[i][0]);
        else if (i != reference)
            wholeShifts_[i] = phaseCorrelation(omp_get_thread_num(), spectra[reference], spectra[i]);
    }
    initialize(masks, count, reference);
    refinement_.refineAll(blurredFrames_, wholeShifts_, reference, regError, regErrBlurRadius, masks,
                          measured_);
    std::copy(measured_.begin(), measured_.end(), shifts);
    lastShifts = measured_;
}

int SrFloatRegistration1::teamSize() const
{
    // A task is a transform and more: worth a thread on smaller frames than a plain pass is.
    const bool isWorthIt = static_cast<std::size_t>(size) >= parallelPixels / 4;
    return isWorthIt ? std::min(omp_get_max_threads(), static_cast<int>(workers_.size())) : 1;
}

// Gaussian smoothing of a frame by way of its spectrum, which the symmetric kernel's conjugate multiplies.
void SrFloatRegistration1::blur(int worker, const float (*spectrum)[2], const float* frame, float* blurred)
{
    float(*product)[2] = workers_[worker].workSpectrum.get();
    multiplyByConjugate(spectrum[0], gaussSpectrum[0], fftSize, product[0]);
    fft.backward(worker, product, blurred);
    fft.repairGaussBlur(worker, frame, blurred, gaussRadius, gaussKernel.data());
}

// Place of the correlation's peak, the first of equal ones in index order; the first pixel if the
// correlation is not a number.
PointI SrFloatRegistration1::phaseCorrelation(int worker, const float (*refSpectrum)[2],
                                              const float (*frameSpectrum)[2])
{
    float(*product)[2] = workers_[worker].workSpectrum.get();
    std::vector<float>& correlation = workers_[worker].correlation;
    crossPower(refSpectrum[0], frameSpectrum[0], fftSize, product[0]);
    fft.backward(worker, product, correlation.data());

    const float peak = peakOf(correlation.data(), size);
    const auto found = std::find(correlation.begin(), correlation.end(), peak);
    const auto index = found == correlation.end() ? 0 : static_cast<int>(found - correlation.begin());
    PointI shift{index % width, index / width};
    if (shift.y > height / 2)
        shift.y -= height;
    if (shift.x > width / 2)
        shift.x -= width;
    return shift;
}

void SrFloatRegistration1::initialize(char** masks, int count, int reference)
{
    for (int i = 0; i < count; ++i)
        std::fill_n(masks[i], size, static_cast<char>(i == reference ? 1 : 0));
    refinement_.setReference(blurredFrames_[reference]);
}

}  // namespace halvor::vx
