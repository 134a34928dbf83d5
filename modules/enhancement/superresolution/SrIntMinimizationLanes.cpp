// SPDX-License-Identifier: Apache-2.0
// The convolution to the large grid in the shapes of a target with lanes. No solver calls these members; they
// are models to put a firmware's own form beside.
#include <algorithm>
#include <string>
#include <utility>

#include "core/base/Exception.h"
#include "core/base/ParallelExceptions.h"
#include "core/base/WrapArithmetic.h"
#include "core/diagnostics/DebugLevels.h"
#include "core/fixpoint/LaneOperations.h"
#include "core/fixpoint/RoundingShift.h"
#include "enhancement/superresolution/SrIntMinimization.h"
#include "enhancement/superresolution/fixedpoint/ConvolutionRows.h"

namespace halvor::vx {

namespace {

using fixedpoint::addLineSum;
using fixedpoint::lineProduct;
using fixedpoint::lineSumShift;
using fixedpoint::tapCount;

constexpr int lanes16 = 8;
constexpr int lanes32 = 4;
// Rows of which the line form in pairs of columns writes a trace.
constexpr int tracedRows = 2;

// One tap of the first pass on eight columns.
struct EightSums
{
    int32x4_t low;
    int32x4_t high;
};

EightSums addEight(const short* src, const signed char* mask, short tap, const std::int32_t* sums)
{
    const int16x8_t sample = vmulq_s16(vld1q_s16(src), vmovl_s8(vld1_s8(mask)));
    const int16x4_t taps = vget_low_s16(vdupq_n_s16(tap));
    return {vmlal_s16(vld1q_s32(sums), vget_low_s16(sample), taps),
            vmlal_s16(vld1q_s32(sums + lanes32), vget_high_s16(sample), taps)};
}

int16x4_t scaleFour(const std::int32_t* sums, int32x2_t tap, int64x2_t scale)
{
    const int32x2_t first = vmovn_s64(vrshlq_s64(vmull_s32(vld1_s32(sums), tap), scale));
    const int32x2_t second = vmovn_s64(vrshlq_s64(vmull_s32(vld1_s32(sums + 2), tap), scale));
    return vmovn_s32(vcombine_s32(first, second));
}

// One tap of the second pass on eight columns, whose targets are every second of sixteen.
void spreadEight(const std::int32_t* sums, short tap, std::int8_t scale, short* target, const char* function)
{
    short expected[2 * lanes16];
    for (int i = 0; i < lanes16; ++i) {
        const std::int64_t product = shiftRound64(static_cast<std::int64_t>(sums[i]) * tap, scale);
        expected[2 * i] = static_cast<short>(target[2 * i] + product);
        expected[2 * i + 1] = target[2 * i + 1];
    }
    const int64x2_t counts = vdupq_n_s64(scale);
    const int32x2_t taps = vdup_n_s32(tap);
    int16x8x2_t columns = vld2q_s16(target);
    columns.val[0] = vaddq_s16(
        columns.val[0], vcombine_s16(scaleFour(sums, taps, counts), scaleFour(sums + lanes32, taps, counts)));
    vst2q_s16(target, columns);
    for (int i = 0; i < lanes16; ++i) {
        if (target[2 * i] != expected[2 * i])
            throw Exception("mismatch ref", VX_WHERE(function));
        if (target[2 * i + 1] != expected[2 * i + 1])
            throw Exception("mismatch gap", VX_WHERE(function));
    }
}

int32x2_t wrapAddPairs(int32x2_t a, int32x2_t b)
{
    return int32x2_t{wrapAdd(a[0], b[0]), wrapAdd(a[1], b[1])};
}

// What the columns passed so far leave for the next two pairs of columns of a row.
struct PairSums
{
    int32x2_t next = vdup_n_s32(0);
    int32x2_t last = vdup_n_s32(0);

    // The sum of the pair at this column, once its vertical sum is known.
    int32x2_t step(const short* taps, std::int32_t sum)
    {
        const auto product = [=](int pair) {
            return int32x2_t{lineProduct(taps[2 * pair], sum), lineProduct(taps[2 * pair + 1], sum)};
        };
        const int32x2_t finished = wrapAddPairs(product(0), next);
        next = wrapAddPairs(product(1), last);
        last = product(2);
        return finished;
    }
};

// Text of the stages of a line, for as long as someone reads it.
class LineTrace
{
public:
    explicit LineTrace(bool isActive) : isActive_(isActive) {}

    void note(const char* stage, int index, std::int32_t value)
    {
        if (isActive_)
            text_ += stage + std::to_string(index) + "]=" + std::to_string(value) + ' ';
    }

    const std::string& text() const { return text_; }

private:
    bool isActive_;
    std::string text_;
};

// As PairSums, with the taps in lanes that are shifted up by 16, so that the doubling product rounds by 15.
// The sum with what was left over is halved on the way: it does not wrap, and one place less remains to be
// rounded.
struct LaneSums
{
    int32x2_t next = vdup_n_s32(0);
    int32x2_t last = vdup_n_s32(0);

    int32x2_t step(const int32x2_t* taps, int32x2_t sum)
    {
        const int32x2_t halved = vhadd_s32(vqrdmulh_s32(sum, taps[0]), next);
        next =
            vget_low_s32(vaddq_s32(vcombine_s32(vqrdmulh_s32(sum, taps[1]), last), vcombine_s32(last, last)));
        last = vqrdmulh_s32(sum, taps[2]);
        return halved;
    }

    // Two columns to each side of an even or odd row: four targets.
    void stepTwice(const int32x2_t* taps, int32x2_t firstSum, int32x2_t secondSum, short* target)
    {
        const int32x2_t first = step(taps, firstSum);
        const int32x2_t second = step(taps, secondSum);
        const int16x4_t rounded = vmovn_s32(vrshrq_n_s32(vcombine_s32(first, second), lineSumShift - 1));
        vst1_s16(target, vadd_s16(vld1_s16(target), rounded));
    }

    void flush(short* target) const
    {
        const int16x4_t rounded = vmovn_s32(vrshrq_n_s32(vcombine_s32(next, last), lineSumShift));
        vst1_s16(target, vadd_s16(vld1_s16(target), rounded));
    }
};

// Sample times mask of four columns, in 16 bits. A byte vector is loaded where four bytes are wanted, which
// must not reach past the line.
int32x4_t maskedFour(const short* src, const signed char* mask)
{
    signed char bytes[lanes16] = {};
    std::copy_n(mask, lanes32, bytes);
    const int32x4_t factors = vmovl_s16(vget_low_s16(vmovl_s8(vld1_s8(bytes))));
    return vmovl_s16(vmovn_s32(vmulq_s32(vmovl_s16(vld1_s16(src)), factors)));
}

// Vertical sums of two columns in one vector: even row, odd row, even row, odd row.
int32x4_t advanceTwo(int32x4_t samples, const int32x4_t* taps, std::int32_t* now, std::int32_t* later)
{
    const int32x4_t sums = vaddq_s32(vld1q_s32(now), vmulq_s32(samples, taps[0]));
    vst1q_s32(later, vaddq_s32(vld1q_s32(later), vmulq_s32(samples, taps[1])));
    vst1q_s32(now, vmulq_s32(samples, taps[2]));
    return sums;
}

}  // namespace

void SrIntMinimization::fullConvFromSparseNeon(const cv::Mat_<short>& image, const cv::Mat_<short>& rowMask,
                                               const cv::Mat_<short>& colMask,
                                               const cv::Mat_<signed char>& mask, cv::Mat_<short>& result,
                                               signed char shift)
{
    constexpr const char* function = "halvor::vx::SrIntMinimization::fullConvFromSparseNeon";
    requireFullSizes(image, rowMask, colMask, mask, result, {1, tapCount}, function);
    if (convWidth_ % lanes16 != 0)
        throw Exception("the frame's width is not a multiple of 8", VX_WHERE(function));
    debugChannel_.send("start SrInt_Convolution.fullConvFromSparseNeon", DebugLevel::step);
    debugChannel_.send("start SrInt_Convolution.fullConvFromSparseNeon 1st loop", DebugLevel::step);
    convScratch_.setTo(0);
    const bool isSilent =
        !debugChannel_.isDebugActive(DebugLevel::step);  // else the lines come in the order of pixels
    for (int k = 0; k < colMask.cols; ++k) {
#pragma omp parallel for schedule(static) if (isSilent)
        for (int y = 0; y < convHeight_; ++y)
            for (int x = 0; x < convWidth_; x += lanes16)
                addEightChecked(image[y] + x, mask[y] + x, colMask(0, k), convScratch_[k + 2 * y] + x);
    }
    debugChannel_.send("end SrInt_Convolution.fullConvFromSparseNeon 1st loop", DebugLevel::step);
    debugChannel_.send("start SrInt_Convolution.fullConvFromSparseNeon 2nd loop", DebugLevel::step);
    const auto scale = static_cast<std::int8_t>(shift * 2);
    ParallelExceptions failures;
#pragma omp parallel for schedule(static)
    for (int r = 0; r < fullHeight_; ++r)
        failures.run(r, [&] {
            for (int k = 0; k < rowMask.cols; ++k)
                for (int x = 0; x < convWidth_; x += lanes16)
                    spreadEight(convScratch_[r] + x, rowMask(0, k), scale, result[r] + x * factor_ + k,
                                function);
        });
    failures.rethrow();
    debugChannel_.send("end SrInt_Convolution.fullConvFromSparseNeon 2nd loop", DebugLevel::step);
    debugChannel_.send("end SrInt_Convolution.fullConvFromSparseNeon", DebugLevel::step);
}

void SrIntMinimization::addEightChecked(const short* src, const signed char* mask, short tap,
                                        std::int32_t* sums)
{
    const EightSums found = addEight(src, mask, tap, sums);
    bool isDifferent = false;
    for (int i = 0; i < lanes16; ++i) {
        const std::int32_t lane = i < lanes32 ? found.low[i] : found.high[i - lanes32];
        sums[i] = wrapAdd(sums[i], wrapMul(src[i] * mask[i], tap));
        if (lane == sums[i])
            continue;
        isDifferent = true;
        if (debugChannel_.isDebugActive(DebugLevel::step))
            debugChannel_.send("mismatch loop 1-" + std::to_string(i) + ": " + std::to_string(lane) +
                                   " != " + std::to_string(sums[i]),
                               DebugLevel::step);
    }
    if (isDifferent)
        debugChannel_.send("mismatch loop 1", DebugLevel::step);
}

void SrIntMinimization::fullConvFromSparseLinewise2(const cv::Mat_<short>& image,
                                                    const cv::Mat_<short>& rowMask,
                                                    const cv::Mat_<short>& colMask,
                                                    const cv::Mat_<signed char>& mask,
                                                    cv::Mat_<short>& result, signed char /*shift*/)
{
    requireFullSizes(image, rowMask, colMask, mask, result, {tapCount, tapCount},
                     "halvor::vx::SrIntMinimization::fullConvFromSparseLinewise2");
    debugChannel_.send("start SrInt_Convolution.fullConvFromSparseLinewise2", DebugLevel::step);
    startLines(rowMask, colMask);
    const auto line = [&](int y, const signed char* lineMask) {
        fullConvFromSparseLine2(image[std::min<int>(y, convHeight_ - 1)], lineMask, result[2 * y],
                                result[2 * y + 1]);
    };
    for (int y = 0; y < convHeight_; y += 2) {
        line(y, mask[y]);
        if (y + 1 < convHeight_)
            line(y + 1, mask[y + 1]);
    }
    line(convHeight_, zeroMask_.data());
    line(convHeight_ + 1, zeroMask_.data());
    debugChannel_.send("end SrInt_Convolution.fullConvFromSparseLinewise2", DebugLevel::step);
}

void SrIntMinimization::fullConvFromSparseLine2(const short* __restrict__ src,
                                                const signed char* __restrict__ mask, short* evenRow,
                                                short* oddRow)
{
    debugChannel_.send("Line2, row ", lineRow_, DebugLevel::step);
    LineTrace trace(lineRow_ < tracedRows && debugChannel_.isDebugActive(DebugLevel::step));
    PairSums even;
    PairSums odd;
    for (int x = 0; x < convWidth_; ++x) {
        const auto sample = static_cast<short>(src[x] * mask[x]);
        const std::int32_t evenSum = wrapAdd(lineA_[2 * x], colTaps_[0] * sample);
        const std::int32_t oddSum = wrapAdd(lineA_[2 * x + 1], colTaps_[1] * sample);
        trace.note("TempA[", x, evenSum);
        trace.note("TempB[", x, oddSum);
        const int32x2_t evenPair = even.step(rowTaps_.data(), evenSum);
        const int32x2_t oddPair = odd.step(rowTaps_.data(), oddSum);
        for (int i = 0; i < 2; ++i) {
            const int column = 2 * x + i;
            trace.note("Result1a[", column, evenPair[i]);
            trace.note("Result2a[", column, oddPair[i]);
            addLineSum(evenPair[i], evenRow[column]);
            addLineSum(oddPair[i], oddRow[column]);
            trace.note("ResultEvenLine[", column, evenRow[column]);
            trace.note("ResultOddLine[", column, oddRow[column]);
            lineB_[column] = wrapAdd(lineB_[column], sample * colTaps_[2 + i]);
            lineA_[column] = sample * colTaps_[4 + i];
        }
    }
    for (int i = 0; i < 4; ++i) {
        const int column = 2 * convWidth_ + i;
        addLineSum(i < 2 ? even.next[i] : even.last[i - 2], evenRow[column]);
        addLineSum(i < 2 ? odd.next[i] : odd.last[i - 2], oddRow[column]);
        trace.note("Results[", column, evenRow[column]);
        trace.note("Result[", column, oddRow[column]);
    }
    if (!trace.text().empty())
        debugChannel_.send(trace.text(), DebugLevel::step);
    std::swap(lineA_, lineB_);
    ++lineRow_;
}

void SrIntMinimization::fullConvFromSparseLinewise4(const cv::Mat_<short>& image,
                                                    const cv::Mat_<short>& rowMask,
                                                    const cv::Mat_<short>& colMask,
                                                    const cv::Mat_<signed char>& mask,
                                                    cv::Mat_<short>& result, signed char /*shift*/)
{
    constexpr const char* function = "halvor::vx::SrIntMinimization::fullConvFromSparseLinewise4";
    requireFullSizes(image, rowMask, colMask, mask, result, {tapCount, tapCount}, function);
    if (convWidth_ % lanes32 != 0)
        throw Exception("the frame's width is not a multiple of 4", VX_WHERE(function));
    debugChannel_.send("start SrInt_Convolution.fullConvFromSparseLinewise4", DebugLevel::step);
    startLines(rowMask, colMask);
    // Each pair of taps twice: the three of the columns, then the three of the rows.
    for (int pair = 0; pair < 6; ++pair)
        for (int lane = 0; lane < lanes32; ++lane) {
            const int tap = 2 * (pair % 3) + lane % 2;
            tapBuf_[lanes32 * pair + lane] = pair < 3 ? colTaps_[tap] : rowTaps_[tap];
        }
    for (int y = 0; y < convHeight_ + 2; ++y)
        fullConvFromSparseLine4(image[std::min<int>(y, convHeight_ - 1)],
                                y < convHeight_ ? mask[y] : zeroMask_.data(), result[2 * y],
                                result[2 * y + 1]);
    debugChannel_.send("end SrInt_Convolution.fullConvFromSparseLinewise4", DebugLevel::step);
}

void SrIntMinimization::fullConvFromSparseLine4(const short* __restrict__ src,
                                                const signed char* __restrict__ mask, short* evenRow,
                                                short* oddRow)
{
    int32x4_t columnTaps[3];
    int32x2_t rowTaps[3];
    for (int pair = 0; pair < 3; ++pair) {
        columnTaps[pair] = vmovl_s16(vld1_s16(&tapBuf_[lanes32 * pair]));
        rowTaps[pair] = vget_low_s32(vshlq_n_s32(vmovl_s16(vld1_s16(&tapBuf_[lanes32 * (3 + pair)])), 16));
    }
    LaneSums even;
    LaneSums odd;
    for (int x = 0; x < convWidth_; x += lanes32) {
        const int32x4_t samples = maskedFour(src + x, mask + x);
        const int32x2_t halves[2] = {vget_low_s32(samples), vget_high_s32(samples)};
        for (int half = 0; half < 2; ++half) {
            const int column = 2 * x + 4 * half;
            const int32x4_t two =
                vcombine_s32(vdup_lane_s32(halves[half], 0), vdup_lane_s32(halves[half], 1));
            const int32x4_t sums = advanceTwo(two, columnTaps, lineA_ + column, lineB_ + column);
            const int32x2_t first = vget_low_s32(sums);
            const int32x2_t second = vget_high_s32(sums);
            even.stepTwice(rowTaps, vdup_lane_s32(first, 0), vdup_lane_s32(second, 0), evenRow + column);
            odd.stepTwice(rowTaps, vdup_lane_s32(first, 1), vdup_lane_s32(second, 1), oddRow + column);
        }
    }
    even.flush(evenRow + 2 * convWidth_);
    odd.flush(oddRow + 2 * convWidth_);
    std::swap(lineA_, lineB_);
    ++lineRow_;
}

}  // namespace halvor::vx
