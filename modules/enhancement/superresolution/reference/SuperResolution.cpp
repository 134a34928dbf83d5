#include "enhancement/superresolution/reference/SuperResolution.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iostream>
#include <limits>
#include <opencv2/core.hpp>
#include <string>
#include <type_traits>

#include "core/base/Exception.h"
#include "core/diagnostics/LogFacility.h"
#include "core/diagnostics/StopWatch.h"
#include "enhancement/superresolution/EngineSettings.h"

namespace halvor::vx {

namespace {

constexpr int stepLevel = 11;
constexpr int gaussRadius = 5;
constexpr float poorShare = 0.5F;
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
    std::cout << label << watch.timeElapsed() * 1000.0 << "[ms]" << std::endl;
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
      width(frameWidth),
      height(frameHeight),
      inputSize(pixelCount(width, height, constructorWhere())),
      outWidth(enlarged(width, factor, smallestFactor, constructorWhere())),
      outHeight(enlarged(height, factor, smallestFactor, constructorWhere())),
      outputSize(pixelCount(outWidth, outHeight, constructorWhere())),
      fftSize((width / 2 + 1) * height),
      windowSize(std::max(window, 0)),
      srFactor(factor),
      registration(std::make_unique<SuperResolutionRegistration>(width, height, srFactor, gaussRadius)),
      minimization(std::make_unique<SuperResolutionMinimization>(width, height, windowSize, srFactor)),
      badPixelHandling(static_cast<unsigned int>(windowSize)),
      outputImage(static_cast<std::size_t>(outputSize)),
      shifts(static_cast<std::size_t>(windowSize)),
      frameStorage_(static_cast<std::size_t>(windowSize), std::vector<float>(inputSize)),
      registeredStorage_(frameStorage_),
      maskStorage_(static_cast<std::size_t>(windowSize), std::vector<char>(inputSize))
{
    for (int i = 0; i < windowSize; ++i) {
        spectrumStorage_.push_back(std::make_unique<float[][2]>(fftSize));
        frames.push_back(frameStorage_[i].data());
        spectra.push_back(spectrumStorage_[i].get());
        registeredFrames.push_back(registeredStorage_[i].data());
        masks.push_back(maskStorage_[i].data());
    }
    setReferenceIndex(0);
}

SuperResolution::~SuperResolution() = default;

template <typename Pixel>
int SuperResolution::addFrame(const Pixel* frame)
{
    send("start addFrame", stepLevel);
    VX_LOG(LogFacility::progress, "    calling SuperResolution::loadFrame()");
    const int result = loadFrame(frame);
    send("end addFrame", stepLevel);
    return result;
}

template <typename Pixel>
float SuperResolution::computeSR(Pixel* out)
{
    std::cout << "++++++++++ SuperResolution ++++++++++" << std::endl;
    send("start computeSR", stepLevel);
    // Of the first engine in the process, for all of them and each type of frames, as in the fast engines.
    static const int maxUsable = static_cast<int>(srFactor * srFactor + 1.0F);
    const int referenceFrame = std::max(frameCount - referenceIndex - 1, 0);

    VX_LOG(LogFacility::progress,
           "    calling doRegistration(" << frameCount << " , " << referenceFrame << ", ...)");
    registeredCount_ = 0;
    int code = 0;
    timed(" registration:         ", [&] {
        code = registration->doRegistration(frameCount, referenceFrame, frames.data(), spectra.data(),
                                            shifts.data(), masks.data(), registeredFrames.data());
    });
    if (code < 0) {
        VX_LOG(LogFacility::problems, "Too large image displacement. Cannot compute SR.");
        return -998.0F;
    }
    registeredCount_ = frameCount;

    std::vector<PointF> completeShifts;
    getCompleteShifts(completeShifts);
    int warning = 0;
    timed(" large_displacement:   ", [&] { warning = checkRegistration(completeShifts); });

    VX_LOG(LogFacility::progress, "    calling minimize()");
    timed(" minimization:         ", [&] {
        code = minimization->minimize(frameCount, referenceFrame, registeredFrames.data(), shifts.data(),
                                      masks.data(), outputImage.data());
    });
    if (code < 0) {
        send("abort computeSR", stepLevel);
        return static_cast<float>(code);
    }
    iterations_ = code;
    if constexpr (std::is_same_v<Pixel, float>)
        refillBadPixels(completeShifts);

    VX_LOG(LogFacility::progress, "    calling saveFrame()");
    float achieved = 0.0F;
    timed(" save+srfactor calc:   ", [&] {
        saveFrame(out);
        achieved = achievedFactor(maxUsable);
    });
    std::cout << "+++++++++++++++++++++++++++++" << std::endl;
    send("end computeSR", stepLevel);
    return warning == 0 ? achieved : static_cast<float>(warning);
}

void SuperResolution::getMasks(std::vector<cv::Mat_<unsigned char>>& out) const
{
    out.resize(masks.size());
    for (std::size_t i = 0; i < masks.size(); ++i) {
        out[i].create(height, width);
        std::copy_n(masks[i], inputSize, out[i].begin());
    }
}

void SuperResolution::getCompleteShifts(std::vector<PointF>& out) const
{
    registration->getCompleteShifts(out);
}

int SuperResolution::getIterations() const
{
    return iterations_;
}

void SuperResolution::simpleCombine()
{
    for (int i = 0; i < outputSize; ++i) {
        // The divisor is fixed; with a larger factor the frame's last pixels are repeated.
        const int row = std::min(i / outWidth / 2, height - 1);
        const int column = std::min(i % outWidth / 2, width - 1);
        float sum = 0.0F;
        for (int k = 0; k < frameCount; ++k)
            sum += registeredFrames[k][static_cast<std::ptrdiff_t>(row) * width + column];
        outputImage[i] = sum / static_cast<float>(frameCount);
    }
}

void SuperResolution::getOutputImage(cv::Mat_<float>& out) const
{
    out.create(outHeight, outWidth);
    std::copy(outputImage.begin(), outputImage.end(), out.begin());
}

template <typename Pixel>
bool SuperResolution::checkImageStructureQuality(const cv::Mat_<Pixel>& frame) const
{
    double minimum = 0.0;
    double maximum = 0.0;
    cv::minMaxLoc(frame, &minimum, &maximum);
    return !(static_cast<double>(minStructureThreshold) > maximum - minimum);
}

void SuperResolution::clearFrames()
{
    frameCount = 0;
}

std::vector<DebugChannel*> SuperResolution::getInternalDebugChannelObjects()
{
    return minimization ? minimization->getInternalDebugChannelObjects() : std::vector<DebugChannel*>{};
}

void SuperResolution::setDataIsNUC(bool isNUC)
{
    badPixelHandling.setDataIsNUC(isNUC);
}

int SuperResolution::getInputSize() const
{
    return inputSize;
}

int SuperResolution::getOutputSize() const
{
    return outputSize;
}

int SuperResolution::getWindowSize() const
{
    return windowSize;
}

int SuperResolution::getReferenceIndex() const
{
    return referenceIndex;
}

float SuperResolution::getRegError() const
{
    return registration->getRegError();
}

float SuperResolution::getPsfSigma() const
{
    return minimization->getPsfSigma();
}

float SuperResolution::getWeightTV() const
{
    return minimization->getWeightTV();
}

float SuperResolution::getRelativeResidue() const
{
    return minimization->getRelRes();
}

int SuperResolution::getMaxCGIters() const
{
    return minimization->getMaxIter();
}

void SuperResolution::setReferenceIndex(int index)
{
    requireReferenceIndex(index, windowSize);
    referenceIndex = index;
}

void SuperResolution::setRegError(float error)
{
    requireRegError(error);
    registration->setRegError(error);
}

void SuperResolution::setPsfSigma(float sigma)
{
    requirePsfSigma(sigma);
    minimization->setPsfSigma(sigma);
}

void SuperResolution::setWeightTV(float weight)
{
    requireWeightTV(weight);
    minimization->setWeightTV(weight);
}

void SuperResolution::setRelativeResidue(float residue)
{
    requireRelativeResidue(residue);
    minimization->setRelRes(residue);
}

void SuperResolution::setMaxCGIters(int iterations)
{
    requireMaxCGIters(iterations);
    minimization->setMaxIter(iterations);
}

void SuperResolution::setMinStructureThreshold(float threshold)
{
    minStructureThreshold = threshold;
}

template <typename Pixel>
int SuperResolution::loadFrame(const Pixel* frame)
{
    if (frameCount < windowSize) {
        ++frameCount;
    } else {
        std::rotate(frames.begin(), frames.begin() + 1, frames.end());
        std::rotate(spectra.begin(), spectra.begin() + 1, spectra.end());
    }
    float* newest = frames[frameCount - 1];
    std::transform(frame, frame + inputSize, newest, [](Pixel value) { return static_cast<float>(value); });

    int result = 0;
    if constexpr (std::is_same_v<Pixel, float>) {
        cv::Mat_<float> view(height, width, newest);
        result = badPixelHandling.detectAndReplaceBadPixel(view);
        if (result < 0)
            VX_LOG(LogFacility::problems, "BadPixelHandler discovered really bad pixel.");
    }

    registration->getFft()->forward(newest, spectra[frameCount - 1]);
    if (isInfinite(spectra[frameCount - 1], fftSize))
        throw Exception("FFT resulted in infinite values. No processing possible",
                        VX_WHERE("halvor::vx::SuperResolution::loadFrame"));
    return result;
}

template <typename Pixel>
void SuperResolution::saveFrame(Pixel* out) const
{
    std::transform(outputImage.begin(), outputImage.end(), out,
                   [out](float value) { return toPixel(value, out); });
}

// Logs displacement and usable pixels of each frame, and derives the warning code.
int SuperResolution::checkRegistration(const std::vector<PointF>& completeShifts) const
{
    const int wholeTenth = height / 10;
    const auto limit = static_cast<float>(wholeTenth);
    bool largeDisplacement = false;
    bool tooManyMasked = false;
    for (int i = 0; i < frameCount; ++i) {
        const PointF shift = completeShifts[i];
        // Upwards any displacement passes: hosts rely on the codes that they get.
        if (std::abs(shift.x) > limit || shift.y > limit) {
            VX_LOG(LogFacility::problems, "Large image displacement (not too large at all).");
            largeDisplacement = true;
        }
        const cv::Mat_<char> mask(height, width, masks[i]);
        const auto total = static_cast<float>(mask.rows * mask.cols);
        const float masked = total - static_cast<float>(cv::sum(mask)[0]);
        const float ratio = masked / total;
        VX_LOG(LogFacility::progress, "Num masked pixel " << i << ": " << masked << " ratio: " << ratio);
        VX_LOG(LogFacility::progress, " shifts " << i << ": " << shift.x << " , " << shift.y);
        if (ratio >= poorShare) {
            VX_LOG(LogFacility::problems, "Too many masked pixels!");
            tooManyMasked = true;
        }
    }
    if (largeDisplacement)
        return -6;
    return tooManyMasked ? -3 : 0;
}

void SuperResolution::refillBadPixels(const std::vector<PointF>& completeShifts)
{
    cv::Mat_<float> image(outHeight, outWidth, outputImage.data());
    badPixelHandling.maskBadPixel(image, completeShifts);
    std::vector<cv::Mat_<float>> window;
    window.reserve(static_cast<std::size_t>(frameCount));
    for (int i = 0; i < frameCount; ++i)
        window.emplace_back(height, width, frames[i]);
    badPixelHandling.replaceMaskedPixel(image, completeShifts, window);
}

float SuperResolution::achievedFactor(int maxUsable) const
{
    std::int64_t sum = 0;
    for (int p = 0; p < inputSize; ++p) {
        int count = 0;
        for (int i = 0; i < frameCount; ++i)
            count += masks[i][p] != 0 ? 1 : 0;
        sum += std::min(count, maxUsable) - 1;
    }
    // Four is the surplus of a fully covered pixel at factor 2; other factors share it.
    return static_cast<float>(sum) / (static_cast<float>(inputSize) * 4.0F) + 1.0F;
}

template VXKIT_API int SuperResolution::addFrame<short>(const short*);
template VXKIT_API int SuperResolution::addFrame<float>(const float*);
template VXKIT_API float SuperResolution::computeSR<short>(short*);
template VXKIT_API float SuperResolution::computeSR<float>(float*);
template VXKIT_API bool SuperResolution::checkImageStructureQuality<short>(const cv::Mat_<short>&) const;
template VXKIT_API bool SuperResolution::checkImageStructureQuality<float>(const cv::Mat_<float>&) const;

}  // namespace halvor::vx
