// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/reference/SuperResolution.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <opencv2/core.hpp>
#include <ostream>
#include <string>
#include <type_traits>

#include "core/base/Exception.h"
#include "core/diagnostics/DebugLevels.h"
#include "core/diagnostics/LogFacility.h"
#include "core/diagnostics/OutputSink.h"
#include "core/diagnostics/StopWatch.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "enhancement/superresolution/engine/EngineDefaults.h"
#include "enhancement/superresolution/engine/EngineSettings.h"
#include "enhancement/superresolution/engine/FrameQuality.h"
#include "enhancement/superresolution/engine/FrameWindow.h"
#include "enhancement/superresolution/engine/SpectrumWindow.h"
#include "enhancement/superresolution/engine/StageTime.h"

namespace halvor::vx {

namespace {

constexpr int gaussRadius = 5;
constexpr float smallestFactor = 1.0F;  // of which a frame's samples still fall on a grid

std::string constructorWhere()
{
    return VX_WHERE("halvor::vx::SuperResolution::SuperResolution");
}

// Runs one stage of a computation and writes its label and duration to the standard output.
template <typename Stage>
void timed(const char* label, Stage&& stage)
{
    StopWatch watch;
    watch.start();
    stage();
    watch.stop();
    standardOutput() << label << StageTime{watch} << std::endl;
}

bool isInfinite(const float (*spectrum)[2], int size)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    for (int i = 0; i < size; ++i) {
        if (spectrum[i][0] == infinity || spectrum[i][1] == infinity)
            return true;
    }
    return false;
}

float toPixel(float value, const float*)
{
    return value;
}

// Truncated, and the low 16 bits of that; beyond 2^40 these are zero in any float.
short toPixel(float value, const short*)
{
    constexpr float limit = 1099511627776.0F;
    return std::abs(value) < limit ? static_cast<short>(static_cast<std::int64_t>(value)) : short{0};
}

}  // namespace

SuperResolution::SuperResolution(int frameWidth, int frameHeight, int window, float factor)
    : DebugChannel("DBG"),
      width_(frameWidth),
      height_(frameHeight),
      inputSize_(pixelCount(width_, height_, constructorWhere())),
      outWidth_(enlarged(width_, factor, smallestFactor, constructorWhere())),
      outHeight_(enlarged(height_, factor, smallestFactor, constructorWhere())),
      outputSize_(pixelCount(outWidth_, outHeight_, constructorWhere())),
      windowSize_(std::max(window, 0)),
      srFactor_(factor),
      minStructureThreshold_(EngineDefaults::minStructureThreshold),
      registration_(std::make_unique<SuperResolutionRegistration>(width_, height_, srFactor_, gaussRadius)),
      minimization_(std::make_unique<SuperResolutionMinimization>(width_, height_, windowSize_, srFactor_)),
      badPixelHandling_(static_cast<unsigned int>(windowSize_)),
      window_(std::make_unique<FrameWindow>(width_, height_, windowSize_)),
      spectra_(std::make_unique<SpectrumWindow>((width_ / 2 + 1) * height_, windowSize_)),
      outputImage_(static_cast<std::size_t>(outputSize_))
{
    setReferenceIndex(EngineDefaults::referenceIndex);
}

SuperResolution::~SuperResolution() = default;

template <typename Pixel>
int SuperResolution::addFrame(const Pixel* frame)
{
    send("start addFrame", DebugLevel::step);
    VX_LOG(LogFacility::progress, "    calling SuperResolution::loadFrame()");
    const int result = loadFrame(frame);
    send("end addFrame", DebugLevel::step);
    return result;
}

template <typename Pixel>
float SuperResolution::computeSR(Pixel* out)
{
    standardOutput() << "++++++++++ SuperResolution ++++++++++" << std::endl;
    send("start computeSR", DebugLevel::step);
    // Of the first engine in the process, for all of them and each type of frames, as in the fast engines.
    static const int maxUsable = static_cast<int>(srFactor_ * srFactor_ + 1.0F);
    const int count = window_->count();
    const int referenceFrame = window_->referenceFrame(referenceIndex_);

    VX_LOG(LogFacility::progress,
           "    calling doRegistration(" << count << " , " << referenceFrame << ", ...)");
    registeredCount_ = 0;
    int code = 0;
    timed(" registration:         ", [&] {
        code =
            registration_->doRegistration(count, referenceFrame, window_->frames(), spectra_->pointers(),
                                          window_->shifts(), window_->masks(), window_->registeredFrames());
    });
    if (code < 0) {
        VX_LOG(LogFacility::problems, "Too large image displacement. Cannot compute SR.");
        return SuperResolution_registrationFailed;
    }
    registeredCount_ = count;

    std::vector<PointF> completeShifts;
    getCompleteShifts(completeShifts);
    int warning = 0;
    timed(" large_displacement:   ", [&] { warning = checkRegistration(completeShifts); });

    VX_LOG(LogFacility::progress, "    calling minimize()");
    timed(" minimization:         ", [&] {
        code = minimization_->minimize(count, referenceFrame, window_->registeredFrames(), window_->shifts(),
                                       window_->masks(), outputImage_.data());
    });
    if (code < 0) {
        send("abort computeSR", DebugLevel::step);
        return static_cast<float>(code);
    }
    iterations_ = code;
    if constexpr (std::is_same_v<Pixel, float>)
        refillBadPixels(completeShifts);

    VX_LOG(LogFacility::progress, "    calling saveFrame()");
    float achieved = 0.0F;
    timed(" save+srfactor calc:   ", [&] {
        saveFrame(out);
        achieved = window_->achievedFactor(maxUsable);
    });
    standardOutput() << "+++++++++++++++++++++++++++++" << std::endl;
    send("end computeSR", DebugLevel::step);
    return warning == 0 ? achieved : static_cast<float>(warning);
}

void SuperResolution::getMasks(std::vector<cv::Mat_<unsigned char>>& out) const
{
    window_->copyMasks(out);
}

void SuperResolution::simpleCombine()
{
    for (int i = 0; i < outputSize_; ++i) {
        // The divisor is fixed; with a larger factor the frame's last pixels are repeated.
        const int row = std::min(i / outWidth_ / 2, height_ - 1);
        const int column = std::min(i % outWidth_ / 2, width_ - 1);
        float sum = 0.0F;
        for (int k = 0; k < window_->count(); ++k)
            sum += window_->registeredFrames()[k][static_cast<std::ptrdiff_t>(row) * width_ + column];
        outputImage_[i] = sum / static_cast<float>(window_->count());
    }
}

void SuperResolution::getOutputImage(cv::Mat_<float>& out) const
{
    out.create(outHeight_, outWidth_);
    std::copy(outputImage_.begin(), outputImage_.end(), out.begin());
}

template <typename Pixel>
bool SuperResolution::checkImageStructureQuality(const cv::Mat_<Pixel>& frame) const
{
    // Unlike in the fast engines a span that is not a number passes.
    return !(static_cast<double>(minStructureThreshold_) > valueSpan(frame));
}

void SuperResolution::clearFrames()
{
    window_->clear();
    spectra_->clear();
}

void SuperResolution::setReferenceIndex(int index)
{
    requireReferenceIndex(index, windowSize_);
    referenceIndex_ = index;
}

void SuperResolution::setRegError(float error)
{
    requireRegError(error);
    registration_->setRegError(error);
}

void SuperResolution::setPsfSigma(float sigma)
{
    requirePsfSigma(sigma);
    minimization_->setPsfSigma(sigma);
}

void SuperResolution::setWeightTV(float weight)
{
    requireWeightTV(weight);
    minimization_->setWeightTV(weight);
}

void SuperResolution::setRelativeResidue(float residue)
{
    requireRelativeResidue(residue);
    minimization_->setRelRes(residue);
}

void SuperResolution::setMaxCGIters(int iterations)
{
    requireMaxCGIters(iterations);
    minimization_->setMaxIter(iterations);
}

template <typename Pixel>
int SuperResolution::loadFrame(const Pixel* frame)
{
    cv::Mat_<float> newest = window_->push();
    float(*const spectrum)[2] = spectra_->push();
    std::transform(frame, frame + inputSize_, newest.begin(),
                   [](Pixel value) { return static_cast<float>(value); });

    int result = 0;
    if constexpr (std::is_same_v<Pixel, float>) {
        result = badPixelHandling_.detectAndReplaceBadPixel(newest);
        if (result < 0)
            VX_LOG(LogFacility::problems, "BadPixelHandler discovered really bad pixel.");
    }

    registration_->getFft()->forward(newest[0], spectrum);
    if (isInfinite(spectrum, spectra_->elements()))
        throw Exception("FFT resulted in infinite values. No processing possible",
                        VX_WHERE("halvor::vx::SuperResolution::loadFrame"));
    return result;
}

template <typename Pixel>
void SuperResolution::saveFrame(Pixel* out) const
{
    std::transform(outputImage_.begin(), outputImage_.end(), out,
                   [out](float value) { return toPixel(value, out); });
}

// Logs displacement and usable pixels of each frame, and derives the warning code.
int SuperResolution::checkRegistration(const std::vector<PointF>& completeShifts) const
{
    bool largeDisplacement = false;
    bool tooManyMasked = false;
    for (int i = 0; i < window_->count(); ++i) {
        const PointF shift = completeShifts[i];
        if (isLargeDisplacement(shift, height_)) {
            VX_LOG(LogFacility::problems, "Large image displacement (not too large at all).");
            largeDisplacement = true;
        }
        const auto total = static_cast<float>(inputSize_);
        const float masked = total - static_cast<float>(window_->usablePixels(i));
        const float ratio = masked / total;
        VX_LOG(LogFacility::progress, "Num masked pixel " << i << ": " << masked << " ratio: " << ratio);
        VX_LOG(LogFacility::progress, " shifts " << i << ": " << shift.x << " , " << shift.y);
        if (isPoorFrame(masked, total)) {
            VX_LOG(LogFacility::problems, "Too many masked pixels!");
            tooManyMasked = true;
        }
    }
    return warningCode(tooManyMasked, largeDisplacement);
}

void SuperResolution::refillBadPixels(const std::vector<PointF>& completeShifts)
{
    cv::Mat_<float> image(outHeight_, outWidth_, outputImage_.data());
    badPixelHandling_.maskBadPixel(image, completeShifts);
    badPixelHandling_.replaceMaskedPixel(image, completeShifts, window_->views());
}

template VXKIT_API int SuperResolution::addFrame<short>(const short*);
template VXKIT_API int SuperResolution::addFrame<float>(const float*);
template VXKIT_API float SuperResolution::computeSR<short>(short*);
template VXKIT_API float SuperResolution::computeSR<float>(float*);
template VXKIT_API bool SuperResolution::checkImageStructureQuality<short>(const cv::Mat_<short>&) const;
template VXKIT_API bool SuperResolution::checkImageStructureQuality<float>(const cv::Mat_<float>&) const;

}  // namespace halvor::vx
