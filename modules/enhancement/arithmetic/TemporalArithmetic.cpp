// SPDX-License-Identifier: Apache-2.0
#include "enhancement/arithmetic/TemporalArithmetic.h"

#include <algorithm>

#include "core/base/Kernel.h"
#include "core/base/WrapArithmetic.h"
#include "enhancement/arithmetic/AlphaTable.h"
#include "enhancement/arithmetic/ChainSample.h"

namespace halvor::vx::temporal {
namespace {

constexpr int tilePixels = 512;
constexpr int tableSize = 1024;
constexpr int quietIndex = 50;

template <typename Pixel>
VX_KERNEL_BODY void start(const Pixel* in, int* history, int n)
{
    for (int i = 0; i < n; ++i)
        history[i] = offsetBinary(in[i]) * 4;
}

// The history stays within -65536 and 327675, whatever the settings: differences can't overflow, products
// can.
template <typename Pixel>
VX_KERNEL_BODY std::int64_t indexDifferences(const Pixel* in, const int* history, int controlGain,
                                             int* VX_RESTRICT index, int n)
{
    std::int64_t motion = 0;
    for (int i = 0; i < n; ++i) {
        const int difference = wrapAbs(history[i] - offsetBinary(in[i]) * 4);
        index[i] = wrapMul(difference, controlGain) >> 6;
        motion += index[i] > quietIndex ? index[i] : 0;
    }
    return motion;
}

template <bool marks, typename Pixel>
VX_KERNEL_BODY void blend(const Pixel* in, const int* VX_RESTRICT weight, int alpha, int* VX_RESTRICT history,
                          Pixel* out, int n)
{
    for (int i = 0; i < n; ++i) {
        const int pixel = in[i];
        const int sample = offsetBinary(pixel);
        const int difference = history[i] - sample * 4;
        const int gain = wrapMul(weight[i], alpha) >> 11;
        const int filtered = (wrapMul(gain, difference) >> 15) + sample * 4;
        const int rounded = (filtered + 2) >> 2;
        const bool reset = (wrapAbs(difference) >> 17) != 0;
        if constexpr (marks) {
            const bool mark = isMarked(pixel);
            history[i] = mark ? (sample & 0xFFC0) * 4 : reset ? sample * 4 : filtered;
            out[i] = mark || reset ? pixel : maskedPattern(rounded);
        } else {
            history[i] = reset ? sample * 4 : filtered;
            out[i] = static_cast<Pixel>(reset ? pixel : rounded - 32768);
        }
    }
}

VX_KERNEL void startBlock(const int* in, int* history, int n)
{
    start(in, history, n);
}

VX_KERNEL void startImage(const short* in, int* history, int n)
{
    start(in, history, n);
}

VX_KERNEL std::int64_t indexBlock(const int* in, const int* history, int controlGain, int* index, int n)
{
    return indexDifferences(in, history, controlGain, index, n);
}

VX_KERNEL std::int64_t indexImage(const short* in, const int* history, int controlGain, int* index, int n)
{
    return indexDifferences(in, history, controlGain, index, n);
}

// Indices beyond the table, and those that a control gain out of range wraps to negative, weigh nothing.
VX_KERNEL void lookUp(int* index, int n)
{
    for (int i = 0; i < n; ++i) {
        const int weight = alphaTable[index[i] & (tableSize - 1)];
        index[i] = (index[i] & ~(tableSize - 1)) == 0 ? weight : 0;
    }
}

VX_KERNEL void blendBlock(const int* in, const int* weight, int alpha, int* history, int* out, int n)
{
    blend<false>(in, weight, alpha, history, out, n);
}

VX_KERNEL void blendMarkedBlock(const int* in, const int* weight, int alpha, int* history, int* out, int n)
{
    blend<true>(in, weight, alpha, history, out, n);
}

VX_KERNEL void blendImage(const short* in, const int* weight, int alpha, int* history, short* out, int n)
{
    blend<false>(in, weight, alpha, history, out, n);
}

template <auto indexKernel, auto blendKernel, typename Pixel>
std::int64_t filterRow(const Pixel* in, Pixel* out, int* history, int n, const Recursion& recursion)
{
    int weight[tilePixels];
    std::int64_t motion = 0;
    for (int first = 0; first < n; first += tilePixels) {
        const int count = std::min(tilePixels, n - first);
        motion += indexKernel(in + first, history + first, recursion.controlGain, weight, count);
        lookUp(weight, count);
        blendKernel(in + first, weight, recursion.alpha, history + first, out + first, count);
    }
    return motion;
}

template <auto startKernel, auto indexKernel, auto blendKernel, typename Pixel>
std::int64_t filterRows(const FrameView<Pixel>& frame, const History& history, const Recursion& recursion)
{
    std::int64_t motion = 0;
#pragma omp parallel for schedule(static) reduction(+ : motion) if (frame.pixelCount() >= lightPassPixels)
    for (int y = 0; y < frame.rows; ++y) {
        int* rowHistory = history.data + static_cast<std::size_t>(y) * history.stride;
        if (history.start)
            startKernel(frame.input(y), rowHistory, frame.cols);
        motion += filterRow<indexKernel, blendKernel>(frame.input(y), frame.output(y), rowHistory, frame.cols,
                                                      recursion);
    }
    return motion;
}

}  // namespace

std::int64_t filterFrame(const FrameView<int>& frame, const History& history, const Recursion& recursion)
{
    return filterRows<startBlock, indexBlock, blendBlock>(frame, history, recursion);
}

std::int64_t filterFrame(const FrameView<short>& frame, const History& history, const Recursion& recursion)
{
    return filterRows<startImage, indexImage, blendImage>(frame, history, recursion);
}

std::int64_t filterMarkedFrame(const FrameView<int>& frame, const History& history,
                               const Recursion& recursion)
{
    return filterRows<startBlock, indexBlock, blendMarkedBlock>(frame, history, recursion);
}

void adapt(Feedback feedback, std::int64_t motion, int pixelCount, const FeedbackSettings& settings)
{
    // The tripled error wraps in 32 bits before the sum widens.
    feedback.globalError = static_cast<int>(wrapAdd64(motion >> 2, wrapMul(3, feedback.globalError)) >> 2);
    const int threshold = wrapMul(settings.globalThreshold, pixelCount) >> 12;
    feedback.motionLow = (feedback.globalError >> 4) < threshold;
    feedback.motionBelowThreshold = feedback.globalError < threshold;

    int alpha = feedback.alpha;
    if (globalOff(settings.globalThreshold))
        alpha = settings.alpha;
    else if (!feedback.motionLow)
        alpha = wrapSub(alpha, 102);
    else if (alpha < settings.alpha)
        alpha = wrapAdd(alpha, 4);
    else
        // A quiet picture lets the factor creep above its setting: the hardware's asymmetry.
        alpha = feedback.motionBelowThreshold ? wrapAdd(alpha, 1) : wrapSub(alpha, 20);

    const int low = std::max(wrapSub(settings.alpha, 205), 0);
    const int high = std::min(wrapAdd(settings.alpha, 205), 2047);
    if (alpha < low)
        alpha = low;
    if (alpha > high)  // wins when a setting out of range puts the limits the wrong way round
        alpha = high;
    feedback.alpha = alpha;
}

}  // namespace halvor::vx::temporal
