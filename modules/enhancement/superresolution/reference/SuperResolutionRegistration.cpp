// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/reference/SuperResolutionRegistration.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <opencv2/core/types.hpp>

#include "core/base/Exception.h"
#include "core/registration/Displacement.h"
#include "core/registration/FrameOverlap.h"
#include "core/registration/GradientRefinement.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"

namespace halvor::vx {

namespace {

// Calls visit(i) with the index of each pixel of a window, row by row.
template <typename Visit>
void forEachPixel(const cv::Rect& window, int width, Visit visit)
{
    for (int y = window.y; y < window.y + window.height; ++y) {
        for (int x = window.x; x < window.x + window.width; ++x)
            visit(static_cast<std::ptrdiff_t>(y) * width + x);
    }
}

}  // namespace

SuperResolutionRegistration::SuperResolutionRegistration(int frameWidth, int frameHeight,
                                                         float resolutionFactor, int kernelRadius)
    : width_(frameWidth),
      height_(frameHeight),
      size_(width_ * height_),
      fftSize_((width_ / 2 + 1) * height_),
      factor_(resolutionFactor),
      fft_(std::make_unique<SuperResolutionFft2d>(width_, height_)),
      gaussSpectrum_(std::make_unique<float[][2]>(fftSize_)),
      workSpectrum_(std::make_unique<float[][2]>(fftSize_)),
      correlation_(static_cast<std::size_t>(size_)),
      blurredRef_(correlation_),
      blurredFrame_(correlation_),
      gradX_(correlation_),
      gradY_(correlation_),
      errorImage_(correlation_),
      blurredError_(correlation_),
      conv_(width_, height_, 1, 1, factor_)
{
    setRegError(EngineDefaults::regError);
    setRegErrBlurRadius(3);
    setGaussRadius(kernelRadius);
}

int SuperResolutionRegistration::doRegistration(int frameCount, int referenceFrame, float** frames,
                                                float (**spectra)[2], PointF* shifts, char** masks,
                                                float** registered)
{
    registerFrames(frameCount, referenceFrame, frames, spectra, shifts, masks);
    if (static_cast<int>(completeShifts_.size()) < frameCount)
        completeShifts_.resize(static_cast<std::size_t>(frameCount));
    for (int i = 0; i < frameCount; ++i) {
        std::copy_n(frames[i], size_, registered[i]);
        completeShifts_[i] = shifts[i];
        if (!isWithin(shifts[i], height_ / 2))
            throw Exception("Too large displacement",
                            VX_WHERE("halvor::vx::SuperResolutionRegistration::doRegistration"));
        shiftFrame(frames[i], shifts[i], registered[i]);
    }
    return 0;
}

void SuperResolutionRegistration::setGaussRadius(int radius)
{
    std::vector<float> taps(radius < 0 ? 0 : static_cast<std::size_t>(radius) + 1);
    fft_->gaussFft(radius, GradientRefinement::smoothingSigma(radius), gaussSpectrum_.get(), taps.data());
    gaussRadius_ = radius;
    gaussKernel_ = std::move(taps);
}

void SuperResolutionRegistration::registerFrames(int frameCount, int referenceFrame, float** frames,
                                                 float (**spectra)[2], PointF* shifts, char** masks)
{
    refSpectrum_ = spectra[referenceFrame];
    blur(refSpectrum_, frames[referenceFrame], blurredRef_.data());
    initialize(masks, frameCount);
    for (int i = 0; i < frameCount; ++i) {
        if (i == referenceFrame) {
            shifts[i] = {0.0F, 0.0F};
            std::fill_n(masks[i], size_, char{1});
            continue;
        }
        frameSpectrum_ = spectra[i];
        const PointI shift = phaseCorrelation();
        blur(frameSpectrum_, frames[i], blurredFrame_.data());
        shifts[i] = opticalFlow(shift, masks[i]);
    }
}

// Gaussian smoothing of a frame by way of its spectrum, which the symmetric kernel's conjugate multiplies.
void SuperResolutionRegistration::blur(const float (*spectrum)[2], const float* frame, float* blurred)
{
    for (int i = 0; i < fftSize_; ++i) {
        const float(&f)[2] = spectrum[i];
        const float(&g)[2] = gaussSpectrum_[i];
        workSpectrum_[i][0] = f[0] * g[0] + f[1] * g[1];
        workSpectrum_[i][1] = f[1] * g[0] - f[0] * g[1];
    }
    fft_->backward(workSpectrum_.get(), blurred);
    fft_->repairGaussBlur(frame, blurred, gaussRadius_, gaussKernel_.data());
}

// Clears the masks, and computes gradients and structure sums of the smoothed reference.
void SuperResolutionRegistration::initialize(char** masks, int frameCount)
{
    for (int i = 0; i < frameCount; ++i)
        std::fill_n(masks[i], size_, char{0});

    const float* in = blurredRef_.data();
    sumXx_ = sumXy_ = sumYy_ = 0.0F;
    for (int y = 0; y < height_; ++y) {
        const std::ptrdiff_t above = static_cast<std::ptrdiff_t>(std::max(y - 1, 0)) * width_;
        const std::ptrdiff_t below = static_cast<std::ptrdiff_t>(std::min(y + 1, height_ - 1)) * width_;
        const std::ptrdiff_t row = static_cast<std::ptrdiff_t>(y) * width_;
        const bool isInnerRow = y > 0 && y < height_ - 1;
        for (int x = 0; x < width_; ++x) {
            const int left = std::max(x - 1, 0);
            const int right = std::min(x + 1, width_ - 1);
            const bool isInnerColumn = x > 0 && x < width_ - 1;
            const float gx = in[row + right] - in[row + left];
            const float gy = in[below + x] - in[above + x];
            gradX_[row + x] = isInnerColumn ? gx / 2.0F : gx;
            gradY_[row + x] = isInnerRow ? gy / 2.0F : gy;
        }
    }
    for (int i = 0; i < size_; ++i) {
        sumXx_ += gradX_[i] * gradX_[i];
        sumXy_ += gradX_[i] * gradY_[i];
        sumYy_ += gradY_[i] * gradY_[i];
    }
}

// Whole-pixel displacement: the place of the peak of the normalised cross-power spectrum (Kuglin and Hines,
// 1975). An element without magnitude makes the correlation not a number, whose peak is at the first pixel.
PointI SuperResolutionRegistration::phaseCorrelation()
{
    for (int i = 0; i < fftSize_; ++i) {
        const auto [a, b] = refSpectrum_[i];
        const auto [c, d] = frameSpectrum_[i];
        const float magnitude = std::sqrt((a * a + b * b) * (c * c + d * d));
        workSpectrum_[i][0] = (c * a + d * b) / magnitude;
        workSpectrum_[i][1] = (d * a - c * b) / magnitude;
    }
    fft_->backward(workSpectrum_.get(), correlation_.data());

    int peak = 0;
    for (int i = 0; i < size_; ++i) {
        if (correlation_[i] > correlation_[peak])
            peak = i;
    }
    PointI shift{peak % width_, peak / width_};
    if (shift.y > height_ / 2)
        shift.y -= height_;
    if (shift.x > width_ / 2)
        shift.x -= width_;
    return shift;
}

// One Gauss-Newton step from a whole-pixel to a sub-pixel displacement (Lucas and Kanade, 1981), and the mask
// of the pixels where the result fits.
PointF SuperResolutionRegistration::opticalFlow(PointI shift, char* mask)
{
    const cv::Size frameSize(width_, height_);
    const FrameOverlap overlap = overlapOf(frameSize, shift);
    const std::ptrdiff_t toFrame =
        static_cast<std::ptrdiff_t>(overlap.frame.y - overlap.reference.y) * width_ + overlap.frame.x -
        overlap.reference.x;
    const float* frame = blurredFrame_.data();
    const float* reference = blurredRef_.data();

    float outsideXX = 0.0F;
    float outsideXY = 0.0F;
    float outsideYY = 0.0F;
    for (const cv::Rect& outside : {overlap.band, overlap.strip}) {
        forEachPixel(outside, width_, [&](std::ptrdiff_t i) {
            outsideXX += gradX_[i] * gradX_[i];
            outsideXY += gradX_[i] * gradY_[i];
            outsideYY += gradY_[i] * gradY_[i];
            errorImage_[i] = regError_;
        });
    }
    const float a = sumXx_ - outsideXX;
    const float b = sumXy_ - outsideXY;
    const float c = sumYy_ - outsideYY;

    float bx = 0.0F;
    float by = 0.0F;
    forEachPixel(overlap.reference, width_, [&](std::ptrdiff_t i) {
        const float difference = frame[i + toFrame] - reference[i];
        bx += gradX_[i] * difference;
        by += gradY_[i] * difference;
    });
    const float det = a * c - b * b;
    const float dx = (b * by - c * bx) / det;
    const float dy = (b * bx - a * by) / det;
    const float norm = 1.0F / (a + c);

    forEachPixel(overlap.reference, width_, [&](std::ptrdiff_t i) {
        const float left = gradX_[i] * dx + gradY_[i] * dy + frame[i + toFrame] - reference[i];
        errorImage_[i] = left * left * norm;
    });
    const int blurRadius = std::clamp(regErrBlurRadius_, 0, std::min(width_, height_) / 2);
    conv_.sameConvOnes(errorImage_.data(), blurRadius, blurredError_.data());

    const PointF result{dx + static_cast<float>(shift.x), dy + static_cast<float>(shift.y)};
    const FrameOverlap refined = overlapOf(frameSize, roundToPixels(result));
    forEachPixel(refined.reference, width_, [&](std::ptrdiff_t i) {
        if (regError_ > blurredError_[i])
            mask[i] = 1;
    });
    return result;
}

// Moves a frame by the whole-pixel part of its displacement, of which the remainder is left.
void SuperResolutionRegistration::shiftFrame(const float* source, PointF& shift, float* target) const
{
    const PointI whole = roundToPixels(shift);
    const FlatMove move = flatMoveOf({width_, height_}, whole);
    for (int i = 0; i < move.begin; ++i)
        target[i] = 0.0F;
    for (int i = move.begin; i < move.end; ++i)
        target[i] = source[i + move.offset];
    for (int i = move.end; i < size_; ++i)
        target[i] = 0.0F;
    shift.y -= static_cast<float>(whole.y);
    shift.x -= static_cast<float>(whole.x);
}

}  // namespace halvor::vx
