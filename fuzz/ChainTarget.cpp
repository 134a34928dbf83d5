// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cstdlib>
#include <opencv2/core.hpp>
#include <type_traits>
#include <vector>

#include "core/base/Exception.h"
#include "enhancement/ClusterPatternRemover.h"
#include "enhancement/MARLOImageEnhancer.h"
#include "enhancement/SpatialNoiseRemover.h"
#include "enhancement/StaticPatternRemover.h"
#include "enhancement/TemporalNoiseReduction.h"
#include "enhancement/UnsharpMask.h"
#include "fuzz/FuzzInput.h"

// The enhancer chain and the pixel filters with any settings, on streams of small frames.
namespace {

using halvor::vx::CamInternalSettings;
using halvor::vx::MARLOImageEnhancer;

constexpr int largestSide = 40;
constexpr int mostFrames = 10;

using Setter = void (MARLOImageEnhancer::*)(int);
constexpr std::array<Setter, 31> setters{
    &MARLOImageEnhancer::tnrSetBypass,      &MARLOImageEnhancer::sprSetBypass,
    &MARLOImageEnhancer::snrSetBypass,      &MARLOImageEnhancer::tnrSetAlpha,
    &MARLOImageEnhancer::tnrSetCGain,       &MARLOImageEnhancer::tnrSetGlobal,
    &MARLOImageEnhancer::sprSetThreshold,   &MARLOImageEnhancer::sprSetMaxFrame,
    &MARLOImageEnhancer::sprSetMaxLine,     &MARLOImageEnhancer::snrSetGain,
    &MARLOImageEnhancer::peakSetEnabled,    &MARLOImageEnhancer::peakSetGain,
    &MARLOImageEnhancer::peakSetCoring,     &MARLOImageEnhancer::peakSetLimit,
    &MARLOImageEnhancer::peakSetWidth,      &MARLOImageEnhancer::peakSetReductThres,
    &MARLOImageEnhancer::peakSetReductGain, &MARLOImageEnhancer::histSetMode,
    &MARLOImageEnhancer::histSetRange,      &MARLOImageEnhancer::histSetOffset,
    &MARLOImageEnhancer::histSetSpeed,      &MARLOImageEnhancer::histSetGamma,
    &MARLOImageEnhancer::histSetTridis,     &MARLOImageEnhancer::histSetRangeDis,
    &MARLOImageEnhancer::histSetPoffdis,    &MARLOImageEnhancer::histSetLimit,
    &MARLOImageEnhancer::histSetLimit2,     &MARLOImageEnhancer::histSetGain,
    &MARLOImageEnhancer::histSetGainLow,    &MARLOImageEnhancer::histSetGainHigh,
    &MARLOImageEnhancer::histSetTest};

constexpr std::array<int CamInternalSettings::*, 26> fields{
    &CamInternalSettings::tnrBypass,       &CamInternalSettings::tnrCGain,
    &CamInternalSettings::tnrGlobal,       &CamInternalSettings::tnrAlpha,
    &CamInternalSettings::sprBypass,       &CamInternalSettings::sprThreshold,
    &CamInternalSettings::sprMaxFrame,     &CamInternalSettings::sprMaxLine,
    &CamInternalSettings::sprDelay,        &CamInternalSettings::snrBypass,
    &CamInternalSettings::snrGain,         &CamInternalSettings::histMode,
    &CamInternalSettings::histGain,        &CamInternalSettings::histGainLow,
    &CamInternalSettings::histGainHigh,    &CamInternalSettings::histReserved,
    &CamInternalSettings::histWidth,       &CamInternalSettings::histLimit,
    &CamInternalSettings::histLimit2,      &CamInternalSettings::peakEnabled,
    &CamInternalSettings::peakCoring,      &CamInternalSettings::peakGain,
    &CamInternalSettings::peakLimit,       &CamInternalSettings::peakWidth,
    &CamInternalSettings::peakReductThres, &CamInternalSettings::peakReductGain};

cv::Size anySize(vxfuzz::Numbers& numbers)
{
    return {1 + numbers.upTo(largestSide - 1), 1 + numbers.upTo(largestSide - 1)};
}

template <typename T>
cv::Mat_<T> frameOf(vxfuzz::Numbers& numbers, cv::Size size)
{
    cv::RNG noise(numbers.word());
    const int kind = numbers.upTo(3);
    cv::Mat_<T> frame(size);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) {
            const int count = kind == 0   ? static_cast<int>(noise.next() % 65536) - 32768
                              : kind == 1 ? 3000 + 50 * x + noise.uniform(0, 9)
                              : kind == 2 ? numbers.byte() * 257 - 32768
                                          : 32767;
            frame(y, x) = static_cast<T>(count);
        }
    return frame;
}

template <typename T>
void enhance(MARLOImageEnhancer& enhancer, vxfuzz::Numbers& numbers, cv::Size size)
{
    cv::Mat_<T> frame;
    if constexpr (std::is_same_v<T, float>)
        frame = numbers.frame(size);
    else
        frame = frameOf<T>(numbers, size);
    cv::Mat_<T> result;
    enhancer.processFrame(frame, result);
    vxfuzz::require(result.size() == size, "a result has the size of its frame");
}

void enhanceAny(MARLOImageEnhancer& enhancer, vxfuzz::Numbers& numbers, cv::Size size)
{
    switch (numbers.upTo(5)) {
        case 0:
            return enhance<short>(enhancer, numbers, size);
        case 1:
            return enhance<unsigned short>(enhancer, numbers, size);
        case 2:
            return enhance<int>(enhancer, numbers, size);
        case 3:
            return enhance<unsigned int>(enhancer, numbers, size);
        case 4:
            return enhance<float>(enhancer, numbers, size);
        default:
            return enhance<double>(enhancer, numbers, size);
    }
}

void runChain(vxfuzz::Numbers& numbers)
{
    CamInternalSettings settings;
    for (int i = numbers.upTo(8); i > 0; --i)
        settings.*fields.at(static_cast<std::size_t>(numbers.upTo(static_cast<int>(fields.size()) - 1))) =
            numbers.setting();
    settings.sprDelay = std::abs(settings.sprDelay % 3);  // others end the process, as its header tells
    const cv::Size size = anySize(numbers);
    MARLOImageEnhancer enhancer(size.width, size.height, &settings);
    for (int i = 0; i < mostFrames && !numbers.isAtEnd(); ++i) {
        for (int changes = numbers.upTo(3); changes > 0; --changes) {
            const auto setter = static_cast<std::size_t>(numbers.upTo(static_cast<int>(setters.size()) - 1));
            (enhancer.*setters.at(setter))(numbers.setting());
        }
        enhanceAny(enhancer, numbers, numbers.upTo(7) == 0 ? anySize(numbers) : size);
    }
}

template <typename Filter>
void runFilter(Filter filter, vxfuzz::Numbers& numbers)
{
    cv::Size size = anySize(numbers);
    for (int i = 0; i < mostFrames && !numbers.isAtEnd(); ++i) {
        if (numbers.upTo(7) == 0)
            size = anySize(numbers);
        cv::Mat_<short> result;
        filter.process(frameOf<short>(numbers, size), result);
        vxfuzz::require(result.size() == size, "a result has the size of its frame");
    }
}

void runCluster(vxfuzz::Numbers& numbers)
{
    const auto side = [&] { return static_cast<unsigned>(numbers.setting()); };
    halvor::vx::ClusterPatternRemover remover{side(), side(), numbers.value(), numbers.value(),
                                              numbers.value()};
    const cv::Size size = anySize(numbers);
    std::vector<cv::Mat> frames;
    for (int i = numbers.upTo(4); i > 0; --i)
        frames.push_back(numbers.frame(numbers.upTo(31) == 0 ? anySize(numbers) : size));
    try {
        for (int i = 0; i < 2; ++i)
            remover.learn(frames, numbers.upTo(1) == 0 ? halvor::vx::ClusterPatternRemover::MEDIAN
                                                       : halvor::vx::ClusterPatternRemover::GAUSSIAN);
    } catch (const halvor::vx::Exception&) {  // too few frames, or of several sizes
    }
    cv::Mat damping;
    remover.getDamping(damping, true);
}

void runUnsharp(vxfuzz::Numbers& numbers)
{
    const cv::Size size = anySize(numbers);
    cv::Mat frame = numbers.frame(size);
    if (const int kind = numbers.upTo(2); kind == 0)
        frame.convertTo(frame, CV_8U);
    else if (kind == 1)
        cv::merge(std::vector<cv::Mat>{frame, frame}, frame);
    const double sigma = numbers.upTo(40) / 4.0 + 0.25;
    cv::Mat result;
    try {
        halvor::vx::UnsharpMask::unsharp(frame, result, static_cast<double>(numbers.value()), sigma,
                                         numbers.upTo(10) / 10.0);
    } catch (const cv::Exception&) {  // one channel of floats
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    vxfuzz::Numbers numbers(vxfuzz::textOf(data, size));
    const auto setting = [&] { return numbers.setting(); };
    switch (numbers.upTo(8)) {
        case 0:
            runFilter(halvor::vx::TemporalNoiseReduction{setting(), setting(), setting(), setting() % 2 != 0},
                      numbers);
            break;
        case 1:
            runFilter(halvor::vx::StaticPatternRemover{setting(), setting(), setting()}, numbers);
            break;
        case 2:
            runFilter(halvor::vx::SpatialNoiseRemover(setting()), numbers);
            break;
        case 3:
            runCluster(numbers);
            break;
        case 4:
            runUnsharp(numbers);
            break;
        default:
            runChain(numbers);
    }
    return 0;
}
