#include "enhancement/superresolution/SrFloat.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <opencv2/core.hpp>
#include <string>

#include "core/base/Exception.h"
#include "core/base/Kernel.h"
#include "core/diagnostics/DebugSingleton.h"
#include "enhancement/superresolution/EngineSettings.h"
#include "enhancement/superresolution/SrFloatRegistration1.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"

namespace halvor::vx {

namespace {

constexpr int stepLevel = 11;
constexpr float smallestFactor = 0.0F;  // below 2, the solver refuses to work
constexpr float poorShare = 0.5F;

VX_KERNEL int usablePixels(const char* mask, int n)
{
    int sum = 0;
    for (int i = 0; i < n; ++i)
        sum += mask[i];
    return sum;
}

VX_KERNEL void countUsable(const char* mask, int n, int* counts)
{
    for (int i = 0; i < n; ++i)
        counts[i] += mask[i] != 0 ? 1 : 0;
}

// One less than the number of frames that cover a pixel, summed over pixels; more than the most that are
// usable count no further.
VX_KERNEL int surplusCoverage(const int* counts, int n, int maxUsable)
{
    int sum = 0;
    for (int i = 0; i < n; ++i)
        sum += (counts[i] < maxUsable ? counts[i] : maxUsable) - 1;
    return sum;
}

std::string constructorWhere()
{
    return VX_WHERE("halvor::vx::SrFloat::SrFloat");
}

template <typename Value>
std::vector<Value*> slices(std::vector<Value>& storage, int count, int size)
{
    storage.resize(static_cast<std::size_t>(count) * static_cast<std::size_t>(size));
    std::vector<Value*> pointers;
    pointers.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        pointers.push_back(storage.data() + static_cast<std::ptrdiff_t>(i) * size);
    return pointers;
}

}  // namespace

template <typename Registration>
SrFloat<Registration>::SrFloat(int frameWidth, int frameHeight, int window, float factor)
    : DebugChannel("SrFloat"),
      width(frameWidth),
      height(frameHeight),
      inputSize(pixelCount(frameWidth, frameHeight, constructorWhere())),
      outWidth(enlarged(frameWidth, factor, smallestFactor, constructorWhere())),
      outHeight(enlarged(frameHeight, factor, smallestFactor, constructorWhere())),
      outputSize(pixelCount(outWidth, outHeight, constructorWhere())),
      fftSize((frameWidth / 2 + 1) * frameHeight),
      // A negative window is an empty one, which setReferenceIndex() refuses.
      windowSize(std::max(window, 0)),
      srFactor(factor),
      registration(width, height, windowSize),
      minimization(width, height, windowSize, srFactor),
      badPixelHandling(static_cast<unsigned int>(windowSize)),
      frames(slices(frameStorage_, windowSize, inputSize)),
      registeredFrames(slices(registeredStorage_, windowSize, inputSize)),
      outputImage(static_cast<std::size_t>(outputSize)),
      shifts(static_cast<std::size_t>(windowSize)),
      masks(slices(maskStorage_, windowSize, inputSize))
{
    setReferenceIndex(0);
    DebugSingleton::getInstance("").addDebugChannel(this);
}

template <typename Registration>
SrFloat<Registration>::~SrFloat()
{
    DebugSingleton::getInstance("").removeDebugChannel(this);
}

template <typename Registration>
int SrFloat<Registration>::addFrame(const float* frame)
{
    send("start addFrame", stepLevel);
    const int result = loadFrame(frame);
    send("end addFrame", stepLevel);
    return result;
}

template <typename Registration>
int SrFloat<Registration>::addFrame(const cv::Mat_<float>& frame)
{
    if (frame.rows != height || frame.cols != width || !frame.isContinuous())
        throw Exception("addFrame(): expected a continuous matrix of " + std::to_string(height) +
                            " rows and " + std::to_string(width) + " columns, got " +
                            std::to_string(frame.rows) + " and " + std::to_string(frame.cols),
                        VX_WHERE("halvor::vx::SrFloat::addFrame"));
    return addFrame(frame.template ptr<float>());
}

template <typename Registration>
float SrFloat<Registration>::computeSR(float* out)
{
    // Of the first engine of this type in the process, for all of them: hosts know the figure of factor 2.
    static const int maxUsable = static_cast<int>(srFactor * srFactor + 1.0F);

    const int referenceFrame = std::max(frameCount - referenceIndex - 1, 0);
    const int registered = registration.doRegistration(frameCount, referenceFrame, frames.data(),
                                                       shifts.data(), masks.data(), registeredFrames.data());
    if (registered < 0)
        return static_cast<float>(registered);

    std::vector<PointF> completeShifts;
    registration.getCompleteShifts(completeShifts);
    const int warning = warningFor(completeShifts);

    const int solved = minimization.minimize(frameCount, referenceFrame, registeredFrames.data(),
                                             shifts.data(), masks.data(), outputImage.data());
    if (solved < 0)
        return static_cast<float>(solved);
    iterations_ = solved;

    cv::Mat_<float> image(outHeight, outWidth, outputImage.data());
    badPixelHandling.maskBadPixel(image, completeShifts);
    std::vector<cv::Mat_<float>> window;
    window.reserve(static_cast<std::size_t>(frameCount));
    for (int i = 0; i < frameCount; ++i)
        window.push_back(frameView(i));
    badPixelHandling.replaceMaskedPixel(image, completeShifts, window);

    saveFrame(out);
    const float achieved = achievedFactor(maxUsable);
    send("end computeSR", stepLevel);
    return warning == 0 ? achieved : static_cast<float>(warning);
}

template <typename Registration>
float SrFloat<Registration>::computeSR(cv::Mat_<float>& out)
{
    out.create(outHeight, outWidth);
    if (out.isContinuous())
        return computeSR(out.template ptr<float>());
    cv::Mat_<float> image = out.clone();
    const float result = computeSR(image.template ptr<float>());
    image.copyTo(out);
    return result;
}

template <typename Registration>
void SrFloat<Registration>::clearFrames()
{
    frameCount = 0;
}

template <typename Registration>
bool SrFloat<Registration>::checkImageStructureQuality(const cv::Mat_<float>& frame) const
{
    double minimum = 0.0;
    double maximum = 0.0;
    cv::minMaxLoc(frame, &minimum, &maximum);
    return maximum - minimum >= static_cast<double>(minStructureThreshold);
}

template <typename Registration>
void SrFloat<Registration>::getCompleteShifts(std::vector<PointF>& out)
{
    registration.getCompleteShifts(out);
}

template <typename Registration>
void SrFloat<Registration>::getMasks(std::vector<cv::Mat_<unsigned char>>& out) const
{
    out.resize(masks.size());
    for (std::size_t i = 0; i < masks.size(); ++i)
        cv::Mat_<char>(height, width, masks[i]).convertTo(out[i], CV_8U);
}

template <typename Registration>
int SrFloat<Registration>::getIterations() const
{
    return iterations_;
}

template <typename Registration>
void SrFloat<Registration>::setDataIsNUC(bool isNUC)
{
    badPixelHandling.setDataIsNUC(isNUC);
}

template <typename Registration>
int SrFloat<Registration>::getInputSize() const
{
    return inputSize;
}

template <typename Registration>
int SrFloat<Registration>::getOutputSize() const
{
    return outputSize;
}

template <typename Registration>
int SrFloat<Registration>::getWindowSize() const
{
    return windowSize;
}

template <typename Registration>
int SrFloat<Registration>::getReferenceIndex() const
{
    return referenceIndex;
}

template <typename Registration>
float SrFloat<Registration>::getPsfSigma() const
{
    return minimization.getPsfSigma();
}

template <typename Registration>
float SrFloat<Registration>::getWeightTV() const
{
    return minimization.getWeightTV();
}

template <typename Registration>
float SrFloat<Registration>::getRegError() const
{
    return registration.getRegError();
}

template <typename Registration>
float SrFloat<Registration>::getRelativeResidue() const
{
    return minimization.getRelRes();
}

template <typename Registration>
int SrFloat<Registration>::getMaxCGIters() const
{
    return minimization.getMaxIter();
}

template <typename Registration>
void SrFloat<Registration>::setReferenceIndex(int index)
{
    requireReferenceIndex(index, windowSize);
    referenceIndex = index;
}

template <typename Registration>
void SrFloat<Registration>::setPsfSigma(float sigma)
{
    requirePsfSigma(sigma);
    minimization.setPsfSigma(sigma);
}

template <typename Registration>
void SrFloat<Registration>::setWeightTV(float weight)
{
    requireWeightTV(weight);
    minimization.setWeightTV(weight);
}

template <typename Registration>
void SrFloat<Registration>::setRegError(float error)
{
    requireRegError(error);
    registration.setRegError(error);
}

template <typename Registration>
void SrFloat<Registration>::setRelativeResidue(float residue)
{
    requireRelativeResidue(residue);
    minimization.setRelRes(residue);
}

template <typename Registration>
void SrFloat<Registration>::setMaxCGIters(int iterations)
{
    requireMaxCGIters(iterations);
    minimization.setMaxIter(iterations);
}

template <typename Registration>
void SrFloat<Registration>::setMinStructureThreshold(float threshold)
{
    minStructureThreshold = threshold;
}

template <typename Registration>
int SrFloat<Registration>::loadFrame(const float* frame)
{
    if (frameCount < windowSize)
        ++frameCount;
    else
        std::rotate(frames.begin(), frames.begin() + 1, frames.end());

    cv::Mat_<float> newest = frameView(frameCount - 1);
    std::copy_n(frame, inputSize, newest.template ptr<float>());
    const int result = badPixelHandling.detectAndReplaceBadPixel(newest);
    registration.prepareFrame(newest.template ptr<float>());
    return result;
}

template <typename Registration>
void SrFloat<Registration>::saveFrame(float* out) const
{
    std::copy(outputImage.begin(), outputImage.end(), out);
}

template <typename Registration>
int SrFloat<Registration>::warningFor(const std::vector<PointF>& completeShifts) const
{
    const int tenth = height / 10;
    const auto limit = static_cast<float>(tenth);
    bool largeDisplacement = false;
    bool poorFrame = false;
    for (std::size_t i = 0; i < static_cast<std::size_t>(frameCount); ++i) {
        // Upwards any displacement passes: hosts rely on the codes that they get.
        largeDisplacement |= std::abs(completeShifts[i].x) > limit || completeShifts[i].y > limit;
        const int unusable = inputSize - usablePixels(masks[i], inputSize);
        poorFrame |= static_cast<float>(unusable) / static_cast<float>(inputSize) >= poorShare;
    }
    if (largeDisplacement)
        return -6;
    return poorFrame ? -3 : 0;
}

template <typename Registration>
float SrFloat<Registration>::achievedFactor(int maxUsable) const
{
    std::int64_t total = 0;
    std::array<int, 1024> counts{};
    const int chunk = static_cast<int>(counts.size());
    for (int first = 0; first < inputSize; first += chunk) {
        const int n = std::min(chunk, inputSize - first);
        counts.fill(0);
        for (int i = 0; i < frameCount; ++i)
            countUsable(masks[static_cast<std::size_t>(i)] + first, n, counts.data());
        total += surplusCoverage(counts.data(), n, maxUsable);
    }
    // Four is the surplus of a fully covered pixel at factor 2; other factors share it.
    return static_cast<float>(total) / (static_cast<float>(inputSize) * 4.0F) + 1.0F;
}

template <typename Registration>
cv::Mat_<float> SrFloat<Registration>::frameView(int index)
{
    return {height, width, frames[static_cast<std::size_t>(index)]};
}

template class SrFloat<SrFloatRegistration1>;
template class SrFloat<SrFloatRegistration2>;

}  // namespace halvor::vx
