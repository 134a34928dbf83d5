// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdlib>
#include <limits>

#include "core/base/Exception.h"
#include "core/base/Kernel.h"
#include "core/base/ParallelPixels.h"
#include "core/base/WrapArithmetic.h"
#include "core/diagnostics/DebugLevels.h"
#include "core/fixpoint/LaneOperations.h"
#include "core/fixpoint/RoundingShift.h"
#include "enhancement/superresolution/SrIntRegistration.h"
#include "enhancement/superresolution/fixedpoint/BoxFilters.h"

// The passes over pixels of the registration: gradients, sums, errors and masks.
namespace halvor::vx {

namespace {

constexpr int largestGray = 255;

bool isShared(const cv::Mat& image)
{
    return image.total() >= 4 * parallelPixels;
}

// Central differences, halved; at an edge, where the caller passes the line itself for the one that is missing,
// the one-sided difference at full scale.
VX_KERNEL void differenceOfRows(const unsigned char* VX_RESTRICT before,
                                const unsigned char* VX_RESTRICT behind, int shift, int n,
                                short* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<short>((behind[i] - before[i]) >> shift);
}

// As one lane unit does eight pixels; a halving subtraction keeps its 17th bit.
void halvedDifferencesInLanes(const short* before, const short* behind, int n, short* out)
{
    constexpr int lanes = 8;
    int i = 0;
    for (; i + lanes <= n; i += lanes)
        vst1q_s16(out + i, vhsubq_s16(vld1q_s16(behind + i), vld1q_s16(before + i)));
    for (; i < n; ++i)
        out[i] = static_cast<short>((behind[i] - before[i]) >> 1);
}

struct TensorSums
{
    std::int64_t xx = 0;
    std::int64_t xy = 0;
    std::int64_t yy = 0;
};

VX_KERNEL TensorSums tensorOfRow(const short* VX_RESTRICT dx, const short* VX_RESTRICT dy, int n)
{
    std::int64_t xx = 0;
    std::int64_t xy = 0;
    std::int64_t yy = 0;
    for (int i = 0; i < n; ++i) {
        xx += dx[i] * dx[i];
        xy += dx[i] * dy[i];
        yy += dy[i] * dy[i];
    }
    return {xx, xy, yy};
}

void addTensor(const cv::Mat_<short>& dx, const cv::Mat_<short>& dy, std::int64_t& xx, std::int64_t& xy,
               std::int64_t& yy)
{
    std::int64_t sumXX = 0;
    std::int64_t sumXY = 0;
    std::int64_t sumYY = 0;
#pragma omp parallel for schedule(static) reduction(+ : sumXX, sumXY, sumYY) if (isShared(dx))
    for (int y = 0; y < dx.rows; ++y) {
        const TensorSums row = tensorOfRow(dx[y], dy[y], dx.cols);
        sumXX += row.xx;
        sumXY += row.xy;
        sumYY += row.yy;
    }
    xx = wrapAdd64(xx, sumXX);
    xy = wrapAdd64(xy, sumXY);
    yy = wrapAdd64(yy, sumYY);
}

struct TemporalSums
{
    std::int64_t xt;
    std::int64_t yt;
};

VX_KERNEL TemporalSums temporalSumsOfRow(const unsigned char* VX_RESTRICT ref,
                                         const unsigned char* VX_RESTRICT frame, const short* VX_RESTRICT dx,
                                         const short* VX_RESTRICT dy, int n)
{
    std::int64_t xt = 0;
    std::int64_t yt = 0;
    for (int i = 0; i < n; ++i) {
        const int t = frame[i] - ref[i];
        xt += dx[i] * t;
        yt += dy[i] * t;
    }
    return {xt, yt};
}

/// What turns a pixel's gradients and grey values into its squared error.
struct ErrorTerms
{
    int x;  // flow, times 2^-exponent
    int y;
    int exponent;
    int weight;
    int weightShift;
};

constexpr std::int8_t shiftCount(int count)
{
    return static_cast<std::int8_t>(std::clamp(count, -128, 127));
}

std::int64_t shiftedLeft(std::int64_t value, int count)
{
    if (count < 0)
        return value >> std::min(-count, 63);
    return shiftRound64(value, shiftCount(count));
}

/// @return whether all grey values that are left fit 16 bits; else the errors are undefined
bool errorRow(const unsigned char* ref, const unsigned char* frame, const short* dx, const short* dy,
              const ErrorTerms& terms, int n, short* out)
{
    bool isInRange = true;
    for (int i = 0; i < n; ++i) {
        std::int64_t s = std::int64_t{dx[i]} * terms.x + std::int64_t{dy[i]} * terms.y;
        s = wrapAdd64(s, shiftedLeft(frame[i], -terms.exponent));
        s = wrapSub64(s, shiftedLeft(ref[i], -terms.exponent));
        s = shiftRound64(s, shiftCount(terms.exponent));
        isInRange = isInRange && s >= -32768 && s <= 32767;
        const std::int64_t square = wrapMul64(wrapMul64(s, s), terms.weight);
        const std::int64_t error = shiftRound64(square, shiftCount(terms.weightShift));
        out[i] = static_cast<short>(std::clamp<std::int64_t>(error, -32768, 32767));
    }
    return isInRange;
}

// The same in 32 bits up to the square, for numbers that fitsNarrow() admits: those of nearly every frame.
VX_KERNEL bool narrowErrorRow(const unsigned char* VX_RESTRICT ref, const unsigned char* VX_RESTRICT frame,
                              const short* VX_RESTRICT dx, const short* VX_RESTRICT dy, ErrorTerms terms,
                              int n, short* VX_RESTRICT out)
{
    const int right = -terms.exponent;
    const int one = 1 << right;
    const int weightRight = -terms.weightShift;
    const std::uint64_t half = std::uint64_t{1} << (weightRight - 1);
    std::uint32_t beyond = 0;
    for (int i = 0; i < n; ++i) {
        const int s = dx[i] * terms.x + dy[i] * terms.y + (frame[i] - ref[i]) * one;
        const int gray = ((s >> (right - 1)) + 1) >> 1;
        beyond |= (static_cast<std::uint32_t>(gray) + 32768U) >> 16;
        const std::uint32_t square = static_cast<std::uint32_t>(gray) * static_cast<std::uint32_t>(gray);
        const std::uint64_t error =
            (std::uint64_t{square} * static_cast<std::uint32_t>(terms.weight) + half) >> weightRight;
        out[i] = static_cast<short>(error < 32767 ? error : 32767);
    }
    return beyond == 0;
}

VX_KERNEL int largestMagnitude(const short* values, int n)
{
    int largest = 0;
    for (int i = 0; i < n; ++i) {
        const int magnitude = values[i] < 0 ? -values[i] : values[i];
        largest = magnitude > largest ? magnitude : largest;
    }
    return largest;
}

bool fitsNarrow(const short* dx, const short* dy, const ErrorTerms& terms, int n)
{
    if (terms.exponent > -1 || terms.exponent < -22 || terms.weight < 0 || terms.weightShift > -1 ||
        terms.weightShift < -63)
        return false;
    const std::int64_t largest = std::int64_t{largestMagnitude(dx, n)} * std::abs(terms.x) +
                                 std::int64_t{largestMagnitude(dy, n)} * std::abs(terms.y) +
                                 (std::int64_t{largestGray} << -terms.exponent);
    return largest < std::numeric_limits<std::int32_t>::max();  // one is added before the last shift
}

VX_KERNEL void maskRow(const short* VX_RESTRICT error, int threshold, int n, signed char* VX_RESTRICT mask)
{
    for (int i = 0; i < n; ++i)
        mask[i] = error[i] >= threshold ? 0 : 1;
}

}  // namespace

void SrIntRegistration::prepareGradientsRefImage(unsigned int index)
{
    channel_.send("start prepareGradientsRefImage", DebugLevel::step);
    diffX_.create(rows_, cols_);
    diffY_.create(rows_, cols_);
    const cv::Mat_<unsigned char> base = baseOf(index);
    computeDiffY(base, diffY_);
    computeDiffX(base, diffX_);
    computeStructureTensor(diffX_, diffY_, tensorXX_, tensorXY_, tensorYY_);
    channel_.send("end prepareGradientsRefImage", DebugLevel::step);
}

void SrIntRegistration::computeDiffX(const cv::Mat_<unsigned char>& ref, cv::Mat_<short>& diffX) const
{
    if (ref.empty() || ref.size() != diffX.size())
        throw Exception("invalid Ref or DiffX frame size",
                        VX_WHERE("halvor::vx::SrIntRegistration::computeDiffX"));
    const int n = ref.cols;
#pragma omp parallel for schedule(static) if (isShared(ref))
    for (int y = 0; y < ref.rows; ++y) {
        const unsigned char* in = ref[y];
        short* out = diffX[y];
        if (n > 2)
            differenceOfRows(in, in + 2, 1, n - 2, out + 1);
        out[0] = static_cast<short>(in[std::min(1, n - 1)] - in[0]);
        out[n - 1] = static_cast<short>(in[n - 1] - in[std::max(n - 2, 0)]);
    }
}

void SrIntRegistration::computeDiffY(const cv::Mat_<unsigned char>& ref, cv::Mat_<short>& diffY) const
{
    if (ref.empty() || ref.size() != diffY.size())
        throw Exception("invalid Ref or DiffY frame size",
                        VX_WHERE("halvor::vx::SrIntRegistration::computeDiffY"));
#pragma omp parallel for schedule(static) if (isShared(ref))
    for (int y = 0; y < ref.rows; ++y) {
        const int above = std::max(y - 1, 0);
        const int below = std::min(y + 1, ref.rows - 1);
        differenceOfRows(ref[above], ref[below], below - above == 2 ? 1 : 0, ref.cols, diffY[y]);
    }
}

void SrIntRegistration::computeDiffX_neon(const cv::Mat_<short>& src, cv::Mat_<short>& diffX)
{
    if (src.empty() || src.size() != diffX.size())
        throw Exception("invalid Ref or DiffX frame size",
                        VX_WHERE("halvor::vx::SrIntRegistration::computeDiffX_neon"));
    const int n = src.cols;
#pragma omp parallel for schedule(static) if (isShared(src))
    for (int y = 0; y < src.rows; ++y) {
        const short* in = src[y];
        short* out = diffX[y];
        if (n > 2)
            halvedDifferencesInLanes(in, in + 2, n - 2, out + 1);
        out[0] = lowSigned16(in[std::min(1, n - 1)] - in[0]);
        out[n - 1] = lowSigned16(in[n - 1] - in[std::max(n - 2, 0)]);
    }
}

void SrIntRegistration::computeStructureTensor(const cv::Mat_<short>& dx, const cv::Mat_<short>& dy,
                                               std::int64_t& xx, std::int64_t& xy, std::int64_t& yy)
{
    if (dx.empty() || dx.size() != dy.size())
        throw Exception("invalid DiffX or DiffY frame size",
                        VX_WHERE("halvor::vx::SrIntRegistration::computeStructureTensor"));
    xx = xy = yy = 0;
    addTensor(dx, dy, xx, xy, yy);
}

void SrIntRegistration::computeRepair(const cv::Mat_<short>& dxBand, const cv::Mat_<short>& dyBand,
                                      const cv::Mat_<short>& dxStrip, const cv::Mat_<short>& dyStrip,
                                      std::int64_t& xx, std::int64_t& xy, std::int64_t& yy)
{
    xx = xy = yy = 0;
    computeHorizontalRepair(dxBand, dyBand, xx, xy, yy);
    computeVerticalRepair(dxStrip, dyStrip, xx, xy, yy);
}

void SrIntRegistration::computeHorizontalRepair(const cv::Mat_<short>& dxBand, const cv::Mat_<short>& dyBand,
                                                std::int64_t& xx, std::int64_t& xy, std::int64_t& yy)
{
    addTensor(dxBand, dyBand, xx, xy, yy);
}

void SrIntRegistration::computeVerticalRepair(const cv::Mat_<short>& dxStrip, const cv::Mat_<short>& dyStrip,
                                              std::int64_t& xx, std::int64_t& xy, std::int64_t& yy)
{
    addTensor(dxStrip, dyStrip, xx, xy, yy);
}

void SrIntRegistration::computeOpticalFlowSumDiffXtYt(const cv::Mat_<unsigned char>& ref,
                                                      const cv::Mat_<unsigned char>& frame,
                                                      const cv::Mat_<short>& dx, const cv::Mat_<short>& dy,
                                                      std::int64_t& sumXt, std::int64_t& sumYt)
{
    std::int64_t xt = 0;
    std::int64_t yt = 0;
#pragma omp parallel for schedule(static) reduction(+ : xt, yt) if (isShared(ref))
    for (int y = 0; y < ref.rows; ++y) {
        const TemporalSums row = temporalSumsOfRow(ref[y], frame[y], dx[y], dy[y], ref.cols);
        xt += row.xt;
        yt += row.yt;
    }
    sumXt = xt;
    sumYt = yt;
}

void SrIntRegistration::computeOpticalFlowError(const cv::Mat_<unsigned char>& ref,
                                                const cv::Mat_<unsigned char>& frame,
                                                const cv::Mat_<short>& dx, const cv::Mat_<short>& dy,
                                                cv::Mat_<short>& errBand, cv::Mat_<short>& errStrip,
                                                unsigned short fill, cv::Mat_<short>& err,
                                                cv::Point_<short> shift, std::int8_t exponent,
                                                short weightMantissa, int weightShift)
{
    errBand.setTo(static_cast<short>(fill));
    errStrip.setTo(static_cast<short>(fill));
    const ErrorTerms terms{shift.x, shift.y, exponent, weightMantissa, weightShift};
    bool isInRange = true;
#pragma omp parallel for schedule(static) reduction(&& : isInRange) if (isShared(ref))
    for (int y = 0; y < ref.rows; ++y) {
        const bool isNarrow = fitsNarrow(dx[y], dy[y], terms, ref.cols);
        const bool isRowInRange =
            isNarrow ? narrowErrorRow(ref[y], frame[y], dx[y], dy[y], terms, ref.cols, err[y])
                     : errorRow(ref[y], frame[y], dx[y], dy[y], terms, ref.cols, err[y]);
        isInRange = isInRange && isRowInRange;
    }
    if (!isInRange)
        throw Exception("out of range", VX_WHERE("halvor::vx::SrIntRegistration::computeOpticalFlowError"));
}

void SrIntRegistration::computeImageMask(const cv::Mat_<short>& smoothedError, cv::Mat_<signed char>& mask,
                                         unsigned short threshold) const
{
    mask.create(smoothedError.size());
#pragma omp parallel for schedule(static) if (isShared(smoothedError))
    for (int y = 0; y < smoothedError.rows; ++y)
        maskRow(smoothedError[y], threshold, smoothedError.cols, mask[y]);
}

void SrIntRegistration::boxingFilterForSmoothing(const cv::Mat_<short>& src, cv::Mat_<short>& dst)
{
    smoothByEightTaps(src, scratch_, dst);
}

void SrIntRegistration::boxSepFilter2D(const cv::Mat_<short>& src, cv::Mat_<short>& dst)
{
    smoothByNineTaps(src, scratch_, dst);
}

void SrIntRegistration::boxSepFilter2D_Neon(const cv::Mat_<short>& src, cv::Mat_<short>& dst)
{
    smoothByNineTapShifts(src, scratch_, dst);
}

void SrIntRegistration::boxSepFilter2D_NeonBorder(const cv::Mat_<short>& src, cv::Mat_<short>& dst)
{
    smoothByMirroredNineTapShifts(src, scratch_, dst);
}

cv::Mat_<unsigned char> SrIntRegistration::baseOf(unsigned int index) const
{
    return pyramids_[index].levels[0];
}

}  // namespace halvor::vx
