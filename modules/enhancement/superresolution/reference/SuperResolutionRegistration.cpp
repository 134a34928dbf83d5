#include "enhancement/superresolution/reference/SuperResolutionRegistration.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <opencv2/core/types.hpp>

#include "core/base/Exception.h"
#include "core/imaging/Displacement.h"
#include "core/imaging/FrameOverlap.h"
#include "core/imaging/GradientRefinement.h"

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
    : width(frameWidth),
      height(frameHeight),
      size(width * height),
      fftSize((width / 2 + 1) * height),
      factor(resolutionFactor),
      fft(std::make_unique<SuperResolutionFft2d>(width, height)),
      gaussSpectrum(std::make_unique<float[][2]>(fftSize)),
      workSpectrum(std::make_unique<float[][2]>(fftSize)),
      correlation(static_cast<std::size_t>(size)),
      blurredRef(correlation),
      blurredFrame(correlation),
      gradX(correlation),
      gradY(correlation),
      errorImage(correlation),
      blurredError(correlation),
      conv(width, height, 1, 1, factor)
{
    setRegError(0.0001F);
    setRegErrBlurRadius(3);
    setGaussRadius(kernelRadius);
}

int SuperResolutionRegistration::doRegistration(int frameCount, int referenceFrame, float** frames,
                                                float (**spectra)[2], PointF* shifts, char** masks,
                                                float** registered)
{
    registerFrames(frameCount, referenceFrame, frames, spectra, shifts, masks);
    if (static_cast<int>(completeShifts.size()) < frameCount)
        completeShifts.resize(static_cast<std::size_t>(frameCount));
    for (int i = 0; i < frameCount; ++i) {
        std::copy_n(frames[i], size, registered[i]);
        completeShifts[i] = shifts[i];
        if (!isWithin(shifts[i], height / 2))
            throw Exception("Too large displacement",
                            VX_WHERE("halvor::vx::SuperResolutionRegistration::doRegistration"));
        shiftFrame(frames[i], shifts[i], registered[i]);
    }
    return 0;
}

void SuperResolutionRegistration::setGaussRadius(int radius)
{
    std::vector<float> taps(radius < 0 ? 0 : static_cast<std::size_t>(radius) + 1);
    fft->gaussFft(radius, GradientRefinement::smoothingSigma(radius), gaussSpectrum.get(), taps.data());
    gaussRadius = radius;
    gaussKernel = std::move(taps);
}

void SuperResolutionRegistration::registerFrames(int frameCount, int referenceFrame, float** frames,
                                                 float (**spectra)[2], PointF* shifts, char** masks)
{
    refSpectrum = spectra[referenceFrame];
    blur(refSpectrum, frames[referenceFrame], blurredRef.data());
    initialize(masks, frameCount);
    for (int i = 0; i < frameCount; ++i) {
        if (i == referenceFrame) {
            shifts[i] = {0.0F, 0.0F};
            std::fill_n(masks[i], size, char{1});
            continue;
        }
        frameSpectrum = spectra[i];
        const PointI shift = phaseCorrelation();
        blur(frameSpectrum, frames[i], blurredFrame.data());
        shifts[i] = opticalFlow(shift, masks[i]);
    }
}

// Gaussian smoothing of a frame by way of its spectrum, which the symmetric kernel's conjugate multiplies.
void SuperResolutionRegistration::blur(const float (*spectrum)[2], const float* frame, float* blurred)
{
    for (int i = 0; i < fftSize; ++i) {
        const float(&f)[2] = spectrum[i];
        const float(&g)[2] = gaussSpectrum[i];
        workSpectrum[i][0] = f[0] * g[0] + f[1] * g[1];
        workSpectrum[i][1] = f[1] * g[0] - f[0] * g[1];
    }
    fft->backward(workSpectrum.get(), blurred);
    fft->repairGaussBlur(frame, blurred, gaussRadius, gaussKernel.data());
}

// Clears the masks, and computes gradients and structure sums of the smoothed reference.
void SuperResolutionRegistration::initialize(char** masks, int frameCount)
{
    for (int i = 0; i < frameCount; ++i)
        std::fill_n(masks[i], size, char{0});

    const float* in = blurredRef.data();
    sumXX = sumXY = sumYY = 0.0F;
    for (int y = 0; y < height; ++y) {
        const std::ptrdiff_t above = static_cast<std::ptrdiff_t>(std::max(y - 1, 0)) * width;
        const std::ptrdiff_t below = static_cast<std::ptrdiff_t>(std::min(y + 1, height - 1)) * width;
        const std::ptrdiff_t row = static_cast<std::ptrdiff_t>(y) * width;
        const bool isInnerRow = y > 0 && y < height - 1;
        for (int x = 0; x < width; ++x) {
            const int left = std::max(x - 1, 0);
            const int right = std::min(x + 1, width - 1);
            const bool isInnerColumn = x > 0 && x < width - 1;
            const float gx = in[row + right] - in[row + left];
            const float gy = in[below + x] - in[above + x];
            gradX[row + x] = isInnerColumn ? gx / 2.0F : gx;
            gradY[row + x] = isInnerRow ? gy / 2.0F : gy;
        }
    }
    for (int i = 0; i < size; ++i) {
        sumXX += gradX[i] * gradX[i];
        sumXY += gradX[i] * gradY[i];
        sumYY += gradY[i] * gradY[i];
    }
}

// Whole-pixel displacement: the place of the peak of the normalised cross-power spectrum (Kuglin and Hines,
// 1975). An element without magnitude makes the correlation not a number, whose peak is at the first pixel.
PointI SuperResolutionRegistration::phaseCorrelation()
{
    for (int i = 0; i < fftSize; ++i) {
        const auto [a, b] = refSpectrum[i];
        const auto [c, d] = frameSpectrum[i];
        const float magnitude = std::sqrt((a * a + b * b) * (c * c + d * d));
        workSpectrum[i][0] = (c * a + d * b) / magnitude;
        workSpectrum[i][1] = (d * a - c * b) / magnitude;
    }
    fft->backward(workSpectrum.get(), correlation.data());

    int peak = 0;
    for (int i = 0; i < size; ++i) {
        if (correlation[i] > correlation[peak])
            peak = i;
    }
    PointI shift{peak % width, peak / width};
    if (shift.y > height / 2)
        shift.y -= height;
    if (shift.x > width / 2)
        shift.x -= width;
    return shift;
}

// One Gauss-Newton step from a whole-pixel to a sub-pixel displacement (Lucas and Kanade, 1981), and the mask
// of the pixels where the result fits.
PointF SuperResolutionRegistration::opticalFlow(PointI shift, char* mask)
{
    const cv::Size frameSize(width, height);
    const FrameOverlap overlap = overlapOf(frameSize, shift);
    const std::ptrdiff_t toFrame =
        static_cast<std::ptrdiff_t>(overlap.frame.y - overlap.reference.y) * width + overlap.frame.x -
        overlap.reference.x;
    const float* frame = blurredFrame.data();
    const float* reference = blurredRef.data();

    float outsideXX = 0.0F;
    float outsideXY = 0.0F;
    float outsideYY = 0.0F;
    for (const cv::Rect& outside : {overlap.band, overlap.strip}) {
        forEachPixel(outside, width, [&](std::ptrdiff_t i) {
            outsideXX += gradX[i] * gradX[i];
            outsideXY += gradX[i] * gradY[i];
            outsideYY += gradY[i] * gradY[i];
            errorImage[i] = regError;
        });
    }
    const float a = sumXX - outsideXX;
    const float b = sumXY - outsideXY;
    const float c = sumYY - outsideYY;

    float bx = 0.0F;
    float by = 0.0F;
    forEachPixel(overlap.reference, width, [&](std::ptrdiff_t i) {
        const float difference = frame[i + toFrame] - reference[i];
        bx += gradX[i] * difference;
        by += gradY[i] * difference;
    });
    const float det = a * c - b * b;
    const float dx = (b * by - c * bx) / det;
    const float dy = (b * bx - a * by) / det;
    const float norm = 1.0F / (a + c);

    forEachPixel(overlap.reference, width, [&](std::ptrdiff_t i) {
        const float left = gradX[i] * dx + gradY[i] * dy + frame[i + toFrame] - reference[i];
        errorImage[i] = left * left * norm;
    });
    const int blurRadius = std::clamp(regErrBlurRadius, 0, std::min(width, height) / 2);
    conv.sameConvOnes(errorImage.data(), blurRadius, blurredError.data());

    const PointF result{dx + static_cast<float>(shift.x), dy + static_cast<float>(shift.y)};
    const FrameOverlap refined = overlapOf(frameSize, roundToPixels(result));
    forEachPixel(refined.reference, width, [&](std::ptrdiff_t i) {
        if (regError > blurredError[i])
            mask[i] = 1;
    });
    return result;
}

// Moves a frame by the whole-pixel part of its displacement, of which the remainder is left.
void SuperResolutionRegistration::shiftFrame(const float* source, PointF& shift, float* target) const
{
    const PointI whole = roundToPixels(shift);
    const FlatMove move = flatMoveOf({width, height}, whole);
    for (int i = 0; i < move.begin; ++i)
        target[i] = 0.0F;
    for (int i = move.begin; i < move.end; ++i)
        target[i] = source[i + move.offset];
    for (int i = move.end; i < size; ++i)
        target[i] = 0.0F;
    shift.y -= static_cast<float>(whole.y);
    shift.x -= static_cast<float>(whole.x);
}

}  // namespace halvor::vx
