// SPDX-License-Identifier: Apache-2.0
// The blur kernels, the plain pair of convolutions and its line-wise forms.
#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <utility>

#include "core/base/Exception.h"
#include "core/base/ParallelPixels.h"
#include "core/base/WrapArithmetic.h"
#include "core/diagnostics/DebugLevels.h"
#include "core/extensions/cvext.h"
#include "core/fixpoint/RoundingShift.h"
#include "core/imaging/PointSpread.h"
#include "enhancement/superresolution/SrIntMinimization.h"
#include "enhancement/superresolution/fixedpoint/ConvolutionRows.h"

namespace halvor::vx {

namespace {

using fixedpoint::tapCount;

// Rows of the large image per row of a frame, whatever the factor between columns.
constexpr int rowSpacing = 2;

void require(bool isMet, const char* message, const char* function)
{
    if (!isMet)
        throw Exception(message, VX_WHERE(function));
}

bool isKernel(const cv::Mat_<short>& kernel, int fewest, int most)
{
    return kernel.rows == 1 && kernel.cols >= fewest && kernel.cols <= most;
}

// Horizontal sums of one row of the line-wise form that wait for the pixels to come.
struct PendingColumns
{
    std::array<std::int32_t, 4> sums{};

    // Takes the vertical sum at a pixel; its two columns of the large image are complete then.
    void step(const std::array<short, tapCount>& taps, std::int32_t sum, short* target)
    {
        const auto product = [&](int n) { return fixedpoint::lineProduct(taps[n], sum); };
        fixedpoint::addLineSum(wrapAdd(product(0), sums[0]), target[0]);
        fixedpoint::addLineSum(wrapAdd(product(1), sums[1]), target[1]);
        sums = {wrapAdd(product(2), sums[2]), wrapAdd(product(3), sums[3]), product(4), product(5)};
    }

    void flush(short* target) const
    {
        for (int i = 0; i < 4; ++i)
            fixedpoint::addLineSum(sums[i], target[i]);
    }
};

}  // namespace

void SrIntMinimization::setPsfSigma(float sigma)
{
    psfSigma_ = sigma;
    fillBasePsf(sigma, static_cast<float>(factor_), basePsf_);
}

void SrIntMinimization::generatePsfs(short n, const PointF* shifts)
{
    require(n <= numFrames_, "invalid number of frames", "halvor::vx::SrIntMinimization::generatePsfs");
    constexpr float greatestTap = 0.5F;
    constexpr float gain = 65536.0F;
    std::array<float, tapCount> taps{};
    const cv::Mat_<float> kernel(1, tapCount, taps.data());
    const auto build = [&](float shift, cv::Mat_<short>& psf) {
        shiftPsf(basePsf_, shift * static_cast<float>(factor_), taps);
        convertMatFloatToMatInt(kernel, 0.0F, greatestTap, gain, 0.0F, false, psf);
    };
    for (short i = 0; i < n; ++i) {
        build(shifts[i].x, psfX_[i]);
        build(shifts[i].y, psfY_[i]);
    }
}

void SrIntMinimization::requireFullSizes(const cv::Mat_<short>& image, const cv::Mat_<short>& rowMask,
                                         const cv::Mat_<short>& colMask, const cv::Mat_<signed char>& mask,
                                         const cv::Mat_<short>& result, TapRange taps,
                                         const char* function) const
{
    const cv::Size low(convWidth_, convHeight_);
    require(image.size() == low, "invalid image frame size", function);
    require(isKernel(rowMask, taps.fewest, taps.most), "invalid row mask size", function);
    require(isKernel(colMask, taps.fewest, taps.most), "invalid col mask size", function);
    require(mask.size() == low, "invalid input mask size", function);
    require(result.size() == cv::Size(fullWidth_, fullHeight_), "invalid result frame size", function);
}

void SrIntMinimization::requireValidSizes(const cv::Mat_<short>& image, const cv::Mat_<short>& rowMask,
                                          const cv::Mat_<short>& colMask, const cv::Mat_<short>& result,
                                          TapRange taps, const char* function) const
{
    require(image.size() == cv::Size(fullWidth_, fullHeight_), "invalid image frame size", function);
    require(isKernel(rowMask, taps.fewest, taps.most), "invalid row mask size", function);
    require(isKernel(colMask, taps.fewest, taps.most), "invalid col mask size", function);
    require(result.size() == cv::Size(convWidth_, convHeight_), "invalid result frame size", function);
}

// The plain pair. Rows fail or succeed on their own, so that what a failure leaves behind does not depend on
// the threads: a row that fails ends in front of the pixel, all others are complete.

void SrIntMinimization::fullConvFromSparse(const cv::Mat_<short>& image, const cv::Mat_<short>& rowMask,
                                           const cv::Mat_<short>& colMask, const cv::Mat_<signed char>& mask,
                                           cv::Mat_<short>& result, signed char shift)
{
    constexpr const char* function = "halvor::vx::SrIntMinimization::fullConvFromSparse";
    requireFullSizes(image, rowMask, colMask, mask, result, {1, tapCount + 1}, function);
    debugChannel_.send("start SrInt_Convolution.fullConvFromSparse", DebugLevel::step);
    const bool isLarge = convScratch_.total() >= parallelPixels;
    bool isInRange = true;
#pragma omp parallel for schedule(static) reduction(&& : isInRange) if (isLarge)
    for (int r = 0; r < fullHeight_; ++r) {
        std::fill_n(convScratch_[r], convWidth_, 0);
        for (int k = r % rowSpacing; k < colMask.cols && k <= r; k += rowSpacing) {
            const int y = (r - k) / rowSpacing;
            if (y < convHeight_)
                isInRange = fixedpoint::addMaskedProducts(image[y], mask[y], colMask(0, k), convScratch_[r],
                                                          convWidth_) &&
                            isInRange;
        }
    }
    require(isInRange, "integer out of int32_t range in first loop of fullConvFromSparse", function);

    const auto scale = static_cast<std::int8_t>(shift * 2);
#pragma omp parallel for schedule(static) reduction(&& : isInRange) if (isLarge)
    for (int r = 0; r < fullHeight_; ++r) {
        bool isRowInRange = true;
        for (int k = 0; k < rowMask.cols && isRowInRange; ++k)
            isRowInRange = fixedpoint::addScaledProducts(convScratch_[r], rowMask(0, k), scale, result[r] + k,
                                                         factor_, convWidth_);
        isInRange = isInRange && isRowInRange;
    }
    require(isInRange, "integer out of int16_t range in second loop of fullConvFromSparse", function);
    debugChannel_.send("end SrInt_Convolution.fullConvFromSparse", DebugLevel::step);
}

void SrIntMinimization::validCorrToSparse(const cv::Mat_<short>& image, const cv::Mat_<short>& rowMask,
                                          const cv::Mat_<short>& colMask, cv::Mat_<short>& result,
                                          signed char shift)
{
    constexpr const char* function = "halvor::vx::SrIntMinimization::validCorrToSparse";
    requireValidSizes(image, rowMask, colMask, result, {1, tapCount + 1}, function);
    debugChannel_.send("start SrInt_Convolution.validCorrToSparse", DebugLevel::step);
    result.setTo(short{0});
    const bool isLarge = convScratch_.total() >= parallelPixels;
    bool isInRange = true;
#pragma omp parallel for schedule(static) reduction(&& : isInRange) if (isLarge)
    for (int r = 0; r < fullHeight_; ++r) {
        std::fill_n(convScratch_[r], convWidth_, 0);
        for (int k = 0; k < rowMask.cols; ++k)
            isInRange =
                fixedpoint::addSpacedProducts(image[r] + k, rowMask(0, k), convScratch_[r], convWidth_) &&
                isInRange;
    }
    require(isInRange, "integer out of int32_t range in first loop of validCorrToSparse", function);

    const auto scale = static_cast<std::int8_t>(shift * 2);
#pragma omp parallel for schedule(static) reduction(&& : isInRange) if (isLarge)
    for (int y = 0; y < convHeight_; ++y) {
        bool isRowInRange = true;
        for (int k = 0; k < colMask.cols && isRowInRange; ++k)
            isRowInRange = fixedpoint::addScaledProducts(convScratch_[rowSpacing * y + k], colMask(0, k),
                                                         scale, result[y], 1, convWidth_);
        isInRange = isInRange && isRowInRange;
    }
    require(isInRange, "integer out of int16_t range in second loop of validCorrToSparse", function);
    debugChannel_.send("end SrInt_Convolution.validCorrToSparse", DebugLevel::step);
}

// The line-wise forms see each pixel once, in the order in which a sensor gives it.

void SrIntMinimization::startLines(const cv::Mat_<short>& rowMask, const cv::Mat_<short>& colMask)
{
    std::copy_n(colMask[0], tapCount, colTaps_.begin());
    std::copy_n(rowMask[0], tapCount, rowTaps_.begin());
    std::fill(lineBuf0_.begin(), lineBuf0_.end(), 0);
    std::fill(lineBuf1_.begin(), lineBuf1_.end(), 0);
    lineA_ = lineBuf0_.data();
    lineB_ = lineBuf1_.data();
    lineRow_ = 0;
}

void SrIntMinimization::fullConvFromSparseLinewise(const cv::Mat_<short>& image,
                                                   const cv::Mat_<short>& rowMask,
                                                   const cv::Mat_<short>& colMask,
                                                   const cv::Mat_<signed char>& mask, cv::Mat_<short>& result,
                                                   signed char /*shift*/)
{
    requireFullSizes(image, rowMask, colMask, mask, result, {tapCount, tapCount},
                     "halvor::vx::SrIntMinimization::fullConvFromSparseLinewise");
    debugChannel_.send("start SrInt_Convolution.fullConvFromSparseLinewise", DebugLevel::step);
    startLines(rowMask, colMask);
    // Two rows more than the frame has let the last ones drain.
    for (int y = 0; y < convHeight_ + 2; ++y) {
        const short* const src = image[std::min<int>(y, convHeight_ - 1)];
        const signed char* const m = y < convHeight_ ? mask[y] : zeroMask_.data();
        PendingColumns even;
        PendingColumns odd;
        for (int x = 0; x < convWidth_; ++x) {
            const auto p = static_cast<short>(src[x] * m[x]);
            even.step(rowTaps_, wrapAdd(lineA_[2 * x], colTaps_[0] * p), result[2 * y] + 2 * x);
            odd.step(rowTaps_, wrapAdd(lineA_[2 * x + 1], colTaps_[1] * p), result[2 * y + 1] + 2 * x);
            lineB_[2 * x] = wrapAdd(lineB_[2 * x], p * colTaps_[2]);
            lineB_[2 * x + 1] = wrapAdd(lineB_[2 * x + 1], p * colTaps_[3]);
            lineA_[2 * x] = p * colTaps_[4];
            lineA_[2 * x + 1] = p * colTaps_[5];
        }
        even.flush(result[2 * y] + 2 * convWidth_);
        odd.flush(result[2 * y + 1] + 2 * convWidth_);
        std::swap(lineA_, lineB_);
    }
    debugChannel_.send("end SrInt_Convolution.fullConvFromSparseLinewise", DebugLevel::step);
}

void SrIntMinimization::validCorrToSparseLinewise(const cv::Mat_<short>& image,
                                                  const cv::Mat_<short>& rowMask,
                                                  const cv::Mat_<short>& colMask, cv::Mat_<short>& result,
                                                  signed char shift)
{
    requireValidSizes(image, rowMask, colMask, result, {tapCount, tapCount},
                      "halvor::vx::SrIntMinimization::validCorrToSparseLinewise");
    debugChannel_.send("start SrInt_Convolution.validCorrToSparseLinewise", DebugLevel::step);
    const int width = image.cols;
    const int height = image.rows;
    cv::Mat_<short> ring(3, convWidth_, reinterpret_cast<short*>(convScratch_[0]));
    const auto scale = static_cast<std::int8_t>(shift * 2);
    // What a horizontal sum gives to three rows of the frame, the oldest of which is complete with an odd
    // row.
    const auto distribute = [&](int r, int x, std::int32_t sum) {
        const int odd = r % 2;
        const auto share = [&](int tap) {
            return static_cast<short>(shiftRound64(static_cast<std::int64_t>(sum) * colMask(0, tap), scale));
        };
        short& newest = ring[(r / 2 + 3) % 3][x];
        short& middle = ring[(r / 2 + 2) % 3][x];
        short& oldest = ring[(r / 2 + 1) % 3][x];
        if (r < height - 5)
            newest = static_cast<short>((odd != 0 ? newest : 0) + share(odd));
        if (r >= 2 && r < height - 3)
            middle = static_cast<short>(middle + share(2 + odd));
        if (r >= 4 && r < height - 1)
            (odd != 0 ? result[r / 2 - 2][x] : oldest) = static_cast<short>(share(4 + odd) + oldest);
    };
    for (int r = 0; r < height; ++r) {
        std::array<std::int32_t, 3> sums{};
        for (int c = 0; c < width; ++c) {
            const int odd = c % 2;
            const short value = image[r][c];
            if (c < width - 5)
                sums[0] = wrapAdd(sums[0], value * rowMask(0, odd));
            if (c >= 2 && c < width - 3)
                sums[1] = wrapAdd(sums[1], value * rowMask(0, 2 + odd));
            if (c >= 4 && c < width - 1)
                sums[2] = wrapAdd(sums[2], value * rowMask(0, 4 + odd));
            if (odd == 0)
                continue;
            if (c > 3)
                distribute(r, c / 2 - 2, sums[2]);
            sums = {0, sums[0], sums[1]};
        }
    }
    debugChannel_.send("end SrInt_Convolution.validCorrToSparseLinewise", DebugLevel::step);
}

}  // namespace halvor::vx
