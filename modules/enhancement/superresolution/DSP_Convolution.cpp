// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/DSP_Convolution.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <ostream>
#include <string>

#include "core/base/Exception.h"
#include "core/base/Kernel.h"
#include "core/base/ParallelPixels.h"
#include "core/base/WrapArithmetic.h"
#include "core/diagnostics/DebugLevels.h"

namespace halvor::vx {

namespace {

constexpr int largestSize = 1'000'000;
constexpr float phaseUpscaling = 2.0F;
constexpr int phases = 4;       // of the large grid: even and odd rows, even and odd columns
constexpr int kernelSize = 3;   // rows and columns of a phase's kernel
constexpr int largestTaps = 6;  // of a filter that two phases share
constexpr int margin = 2;       // of zeros around a frame
constexpr int tapUnit = 32768;  // one in Q15
constexpr int largestRun = std::numeric_limits<short>::max();  // what the routine's count can tell

template <typename T>
VX_KERNEL_BODY void correlate(const T* in, std::ptrdiff_t pitch, const T* mask, int shift, T* VX_RESTRICT out,
                              int n)
{
    for (int i = 0; i < n; ++i) {
        std::int32_t sum = 0;
        for (int r = 0; r < kernelSize; ++r)
            for (int c = 0; c < kernelSize; ++c)
                sum = wrapAdd(sum, wrapMul(in[pitch * r + i + c], mask[kernelSize * r + c]));
        // Saturated to 16 bits for wide samples as well: the routine knows no others.
        out[i] = static_cast<T>(std::clamp(sum >> shift, -32768, 32767));
    }
}

VX_KERNEL void correlateRun(const short* in, std::ptrdiff_t pitch, const short* mask, int shift,
                            short* VX_RESTRICT out, int n)
{
    correlate(in, pitch, mask, shift, out, n);
}

VX_KERNEL void correlateRun(const int* in, std::ptrdiff_t pitch, const int* mask, int shift,
                            int* VX_RESTRICT out, int n)
{
    correlate(in, pitch, mask, shift, out, n);
}

// out[i] += (in[i * step] * tap) / divisor. Doubles hold a product and, closely enough to truncate it, its
// quotient: there are vector units for them, and none for integers.
template <typename T>
VX_KERNEL_BODY void addQuotients(const T* in, std::ptrdiff_t step, std::int32_t tap, double divisor,
                                 T* VX_RESTRICT out, int n)
{
    for (int i = 0; i < n; ++i) {
        const double product = static_cast<double>(wrapMul(in[i * step], tap));
        out[i] = static_cast<T>(wrapAdd(out[i], static_cast<std::int32_t>(product / divisor)));
    }
}

VX_KERNEL void addRow(const short* in, std::ptrdiff_t step, std::int32_t tap, double divisor,
                      short* VX_RESTRICT out, int n)
{
    addQuotients(in, step, tap, divisor, out, n);
}

VX_KERNEL void addRow(const int* in, std::ptrdiff_t step, std::int32_t tap, double divisor,
                      int* VX_RESTRICT out, int n)
{
    addQuotients(in, step, tap, divisor, out, n);
}

// A divisor of -1 becomes the sign of the tap, so that the one quotient beyond 32 bits wraps as well.
std::int32_t signedTap(std::int32_t tap, std::int32_t divisor)
{
    return divisor == -1 ? wrapNeg(tap) : tap;
}

double divisorUnlessSign(std::int32_t divisor)
{
    return divisor == -1 ? 1.0 : static_cast<double>(divisor);
}

int checkedSize(int size, const std::string& name)
{
    if (size < 1 || size > largestSize)
        throw Exception(
            name + " of " + std::to_string(size) + ": expected 1 to " + std::to_string(largestSize),
            VX_WHERE("halvor::vx::DSP_Convolution::DSP_Convolution"));
    return size;
}

float checkedFactor(float upscaling)
{
    if (!(upscaling >= 1.0F && upscaling <= static_cast<float>(largestSize)))
        throw Exception(
            "upscaling of " + std::to_string(upscaling) + ": expected 1 to " + std::to_string(largestSize),
            VX_WHERE("halvor::vx::DSP_Convolution::DSP_Convolution"));
    return upscaling;
}

// One entry of a phase's kernel, with the taps that made it.
struct KernelEntry
{
    int phase;
    int row;
    int column;
    int value;
    int tapY;
    int tapX;
};

std::ostream& operator<<(std::ostream& out, const KernelEntry& entry)
{
    return out << entry.phase << '[' << entry.row << "][" << entry.column << "]: " << entry.value
               << ", rm: " << entry.tapX << " cm: " << entry.tapY;
}

// What a plane would be normalised by, to be looked at.
struct PlaneRange
{
    int phase;
    int lowest;
    int highest;
};

std::ostream& operator<<(std::ostream& out, const PlaneRange& range)
{
    return out << " plane " << range.phase << ": " << range.lowest << " to " << range.highest;
}

}  // namespace

template <typename T>
DSP_Convolution<T>::DSP_Convolution(int width, int height, int filterLengthX, int filterLengthY,
                                    float upscaling)
    : width_(checkedSize(width, "width")),
      height_(checkedSize(height, "height")),
      filterLengthX_(checkedSize(filterLengthX, "filter length X")),
      filterLengthY_(checkedSize(filterLengthY, "filter length Y")),
      fullWidth_(width + filterLengthX - 1),
      fullHeight_(height + filterLengthY - 1),
      upscaling_(checkedFactor(upscaling)),
      buffer_(static_cast<std::size_t>(width_) * static_cast<std::size_t>(fullHeight_)),
      channel_("DSP_Convolution")
{
    if (run() > largestRun)
        return;  // validCorrToSparse() works all the same
    const std::size_t samples =
        static_cast<std::size_t>(paddedWidth()) * static_cast<std::size_t>(paddedHeight());
    padded_.resize(samples);
    planes_.resize(phases * samples);
}

template <typename T>
DSP_Convolution<T>::DSP_Convolution(const DSP_Convolution&) = default;
template <typename T>
DSP_Convolution<T>& DSP_Convolution<T>::operator=(const DSP_Convolution&) = default;
template <typename T>
DSP_Convolution<T>::DSP_Convolution(DSP_Convolution&&) noexcept = default;
template <typename T>
DSP_Convolution<T>& DSP_Convolution<T>::operator=(DSP_Convolution&&) noexcept = default;
template <typename T>
DSP_Convolution<T>::~DSP_Convolution() = default;

template <typename T>
void DSP_Convolution<T>::setFilterScale(int scale)
{
    filterScale_ = scale;
}

template <typename T>
void DSP_Convolution<T>::fullConvFromSparse(const T* src, const T* filterX, const T* filterY,
                                            const char* mask, T* dst)
{
    channel_.send("start DSP_Convolution.fullConvFromSparse", DebugLevel::step);
    const short count = checkedRun();
    padFrame(src, mask);
    for (int phase = 0; phase < phases; ++phase) {
        std::array<T, kernelSize * kernelSize> kernel{};
        makePhaseKernel(phase, filterX, filterY, kernel.data());
        ImgConv3x3I16sC16s(padded_.data(), planes_.data() + phase * padded_.size(), count,
                           static_cast<short>(paddedWidth()), kernel.data(), static_cast<T>(filterScale_));
        tellPlane(phase);
    }
    interleave(dst);
    channel_.send("end DSP_Convolution.fullConvFromSparse", DebugLevel::step);
}

template <typename T>
short DSP_Convolution<T>::checkedRun() const
{
    const std::string where = VX_WHERE("halvor::vx::DSP_Convolution::fullConvFromSparse");
    if (upscaling_ != phaseUpscaling)
        throw Exception("upscaling of " + std::to_string(upscaling_) + ": expected 2", where);
    if (filterLengthX_ > largestTaps || filterLengthY_ > largestTaps)
        throw Exception("filters of " + std::to_string(filterLengthX_) + " and " +
                            std::to_string(filterLengthY_) + " taps: expected at most 6",
                        where);
    if (filterScale_ < 0 || filterScale_ > 31)
        throw Exception("filter scale " + std::to_string(filterScale_) + ": expected a shift of 0 to 31",
                        where);
    if (run() > largestRun)
        throw Exception("frame of " + std::to_string(lowWidth()) + "x" + std::to_string(lowHeight()) +
                            ": expected at most 32767 padded samples, not " + std::to_string(run()),
                        where);
    return static_cast<short>(run());
}

template <typename T>
void DSP_Convolution<T>::padFrame(const T* src, const char* mask)
{
    const int columns = lowWidth();
    for (int y = 0; y < lowHeight(); ++y) {
        T* row = padded_.data() + static_cast<std::ptrdiff_t>(y + margin) * paddedWidth() + margin;
        for (int x = 0; x < columns; ++x, ++src, ++mask)
            row[x] = static_cast<T>(wrapMul(*src, static_cast<std::int8_t>(*mask)));
    }
}

// The taps of one phase, reversed for a convolution.
template <typename T>
void DSP_Convolution<T>::makePhaseKernel(int phase, const T* filterX, const T* filterY, T* kernel) const
{
    for (int r = 0; r < kernelSize; ++r) {
        for (int c = 0; c < kernelSize; ++c) {
            const int iy = ((phase / 2) & 1) + (2 - r) * 2;
            const int ix = (phase & 1) + (2 - c) * 2;
            const int tapY = iy < filterLengthY_ ? filterY[iy] : 0;
            const int tapX = ix < filterLengthX_ ? filterX[ix] : 0;
            T& entry = kernel[kernelSize * r + c];
            entry = static_cast<T>(wrapMul(tapY, tapX) / tapUnit);
            channel_.send("H", KernelEntry{phase, r, c, entry, tapY, tapX}, DebugLevel::detail);
        }
    }
}

template <typename T>
void DSP_Convolution<T>::tellPlane(int phase) const
{
    if (!channel_.isDebugActive(DebugLevel::detail))
        return;
    const auto first = planes_.begin() + static_cast<std::ptrdiff_t>(phase * padded_.size());
    const auto [lowest, highest] =
        std::minmax_element(first, first + static_cast<std::ptrdiff_t>(padded_.size()));
    channel_.send("Norm", PlaneRange{phase, *lowest, *highest}, DebugLevel::detail);
}

template <typename T>
void DSP_Convolution<T>::interleave(T* dst) const
{
    const int columns = lowWidth() + margin;
    const std::ptrdiff_t pitch = 2 * static_cast<std::ptrdiff_t>(lowWidth()) + 5;
    for (int y = 0; y < lowHeight() + margin; ++y) {
        for (int line = 0; line < 2; ++line) {
            const T* even =
                planes_.data() + 2 * line * padded_.size() + static_cast<std::ptrdiff_t>(y) * paddedWidth();
            const T* odd = even + padded_.size();
            T* row = dst + (2 * y + line) * pitch;
            for (int x = 0; x < columns; ++x) {
                row[2 * x] = even[x];
                row[2 * x + 1] = odd[x];
            }
        }
    }
}

template <typename T>
void DSP_Convolution<T>::ImgConv3x3I16sC16s(const T* in, T* out, short count, short pitch, const T* mask,
                                            T shift) const
{
    correlateRun(in, pitch, mask, static_cast<int>(shift), out, count);
}

template <typename T>
void DSP_Convolution<T>::validCorrToSparse(const T* src, const T* filterX, const T* filterY, T* dst)
{
    channel_.send("start DSP_Convolution.validCorrToSparse", DebugLevel::step);
    if (filterScale_ == 0)
        throw Exception("filter scale 0: expected a divisor; setFilterScale sets it",
                        VX_WHERE("halvor::vx::DSP_Convolution::validCorrToSparse"));
    const double divisor = divisorUnlessSign(filterScale_);
    const int columns = lowWidth();
    const int rows = lowHeight();
    const auto step = static_cast<int>(upscaling_);
    const std::ptrdiff_t pitch = static_cast<std::ptrdiff_t>(step) * columns + filterLengthX_ - 1;
    const auto rowGap =
        static_cast<std::ptrdiff_t>((static_cast<double>(upscaling_) - 1.0) * static_cast<double>(columns));
    const bool isLarge = buffer_.size() >= parallelPixels;
#pragma omp parallel if (isLarge)
    {
#pragma omp for schedule(static)
        for (int y = 0; y < fullHeight_; ++y) {
            T* row = buffer_.data() + static_cast<std::ptrdiff_t>(y) * columns;
            std::fill_n(row, columns, T{0});
            for (int k = 0; k < filterLengthX_; ++k)
                addRow(src + y * pitch + k, step, signedTap(filterX[k], filterScale_), divisor, row, columns);
        }
#pragma omp for schedule(static)
        for (int y = 0; y < rows; ++y) {
            T* row = dst + static_cast<std::ptrdiff_t>(y) * columns;
            std::fill_n(row, columns, T{0});
            for (int k = 0; k < filterLengthY_; ++k)
                addRow(buffer_.data() + static_cast<std::ptrdiff_t>(k) * columns + y * (columns + rowGap), 1,
                       signedTap(filterY[k], filterScale_), divisor, row, columns);
        }
    }
    channel_.send("end DSP_Convolution.validCorrToSparse", DebugLevel::step);
}

template <typename T>
std::vector<DebugChannel*> DSP_Convolution<T>::getInternalDebugChannelObjects()
{
    return {&channel_};
}

template class DSP_Convolution<short>;
template class DSP_Convolution<int>;

}  // namespace halvor::vx
