// SPDX-License-Identifier: Apache-2.0
#include "core/imaging/SymmetricFilter.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <opencv2/imgproc.hpp>
#include <type_traits>
#include <utility>

#include "core/base/Kernel.h"

namespace halvor::vx {

namespace {

// Two orders of the products: from the first tap to the last, or from the middle outwards, where the two
// pixels of equal taps are added first. `inputs` holds what each tap multiplies, `Taps...` counts from 0.

template <std::size_t... Taps>
VX_KERNEL_BODY void sumInOrder(const float* const* inputs, const float* taps, int n, float* VX_RESTRICT out,
                               std::index_sequence<Taps...>)
{
    const std::array<const float*, sizeof...(Taps)> input{inputs[Taps]...};
    const std::array<float, sizeof...(Taps)> tap{taps[Taps]...};
    for (int i = 0; i < n; ++i) {
        float sum = 0.0F;
        ((sum += input[Taps][i] * tap[Taps]), ...);
        out[i] = sum;
    }
}

template <std::size_t... Steps>
VX_KERNEL_BODY void sumFolded(const float* const* middle, const float* middleTap, int n,
                              float* VX_RESTRICT out, std::index_sequence<Steps...>)
{
    const std::array<const float*, sizeof...(Steps)> before{*(middle - Steps - 1)...};
    const std::array<const float*, sizeof...(Steps)> after{middle[Steps + 1]...};
    const std::array<float, sizeof...(Steps)> tap{middleTap[Steps + 1]...};
    for (int i = 0; i < n; ++i) {
        float sum = middle[0][i] * middleTap[0];
        ((sum += (after[Steps][i] + before[Steps][i]) * tap[Steps]), ...);
        out[i] = sum;
    }
}

// The registrations' own radius keeps its sums in registers.
constexpr std::size_t usualRadius = 5;

VX_KERNEL void usualInOrder(const float* const* inputs, const float* taps, int n, float* VX_RESTRICT out)
{
    sumInOrder(inputs, taps, n, out, std::make_index_sequence<2 * usualRadius + 1>{});
}

VX_KERNEL void usualFolded(const float* const* middle, const float* middleTap, int n, float* VX_RESTRICT out)
{
    sumFolded(middle, middleTap, n, out, std::make_index_sequence<usualRadius>{});
}

VX_KERNEL void weigh(const float* VX_RESTRICT in, float tap, int n, float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i)
        out[i] = in[i] * tap;
}

VX_KERNEL void addWeighed(const float* VX_RESTRICT in, float tap, int n, float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i)
        out[i] += in[i] * tap;
}

VX_KERNEL void addPairWeighed(const float* before, const float* after, float tap, int n,
                              float* VX_RESTRICT out)
{
    for (int i = 0; i < n; ++i)
        out[i] += (after[i] + before[i]) * tap;
}

void weighInOrder(const std::vector<const float*>& inputs, const std::vector<float>& taps, int n, float* out)
{
    if (taps.size() == 2 * usualRadius + 1) {
        usualInOrder(inputs.data(), taps.data(), n, out);
        return;
    }
    weigh(inputs[0], taps[0], n, out);
    for (std::size_t k = 1; k < taps.size(); ++k)
        addWeighed(inputs[k], taps[k], n, out);
}

void weighFolded(const std::vector<const float*>& inputs, const std::vector<float>& taps, int n, float* out)
{
    const std::size_t radius = taps.size() / 2;
    if (radius == usualRadius) {
        usualFolded(inputs.data() + radius, taps.data() + radius, n, out);
        return;
    }
    weigh(inputs[radius], taps[radius], n, out);
    for (std::size_t k = 1; k <= radius; ++k)
        addPairWeighed(inputs[radius - k], inputs[radius + k], taps[radius + k], n, out);
}

// To the nearest of the levels 0 to 255: adding 1.5 * 2^23 leaves no room for a fraction.
VX_KERNEL void roundRow(const float* VX_RESTRICT in, int n, unsigned char* VX_RESTRICT out)
{
    constexpr float wholeNumbers = 12582912.0F;
    for (int i = 0; i < n; ++i) {
        const float level = std::min(std::max(in[i], 0.0F), 255.0F);
        out[i] = static_cast<unsigned char>(static_cast<int>((level + wholeNumbers) - wholeNumbers));
    }
}

int mirrored(int position, int length)
{
    return cv::borderInterpolate(position, length, cv::BORDER_REFLECT_101);
}

}  // namespace

SymmetricFilter::SymmetricFilter(const cv::Size& size)
    : size_(size), sums_(static_cast<std::size_t>(size.width))
{
    setTaps({1.0F});
}

void SymmetricFilter::setTaps(const std::vector<float>& taps)
{
    taps_ = taps;
    radius_ = static_cast<int>(taps.size() / 2);
    const int padded = size_.width + 2 * radius_;
    line_.resize(static_cast<std::size_t>(padded));
    inputs_.resize(taps.size());
    ring_ = std::min(2 * radius_ + 1, size_.height);
    filteredRows_.resize(static_cast<std::size_t>(ring_) * static_cast<std::size_t>(size_.width));
    marginColumns_.clear();
    if (size_.empty())
        return;
    for (int i = 0; i < radius_; ++i)
        marginColumns_.push_back(mirrored(i - radius_, size_.width));
    for (int i = 0; i < radius_; ++i)
        marginColumns_.push_back(mirrored(size_.width + i, size_.width));
}

void SymmetricFilter::run(const cv::Mat_<float>& src, cv::Mat_<float>& dst)
{
    filter(src, dst);
}

void SymmetricFilter::run(const cv::Mat_<unsigned char>& src, cv::Mat_<unsigned char>& dst)
{
    filter(src, dst);
}

template <typename Pixel>
void SymmetricFilter::filter(const cv::Mat_<Pixel>& src, cv::Mat_<Pixel>& dst)
{
    dst.create(size_);
    int filtered = 0;
    for (int y = 0; y < size_.height; ++y) {
        for (; filtered < std::min(y + radius_ + 1, size_.height); ++filtered)
            filterRow(src, filtered);
        for (int k = 0; k <= 2 * radius_; ++k)
            inputs_[static_cast<std::size_t>(k)] = filteredRow(mirrored(y - radius_ + k, size_.height));
        if constexpr (std::is_same_v<Pixel, float>) {
            weighFolded(inputs_, taps_, size_.width, dst[y]);
        } else {
            weighFolded(inputs_, taps_, size_.width, sums_.data());
            roundRow(sums_.data(), size_.width, dst[y]);
        }
    }
}

template <typename Pixel>
void SymmetricFilter::filterRow(const cv::Mat_<Pixel>& src, int y)
{
    const Pixel* row = src[y];
    float* inner = line_.data() + radius_;
    const int* rightMargin = marginColumns_.data() + radius_;
    std::copy(row, row + size_.width, inner);
    for (int i = 0; i < radius_; ++i) {
        inner[i - radius_] = inner[marginColumns_[static_cast<std::size_t>(i)]];
        inner[size_.width + i] = inner[rightMargin[i]];
    }
    for (int k = 0; k <= 2 * radius_; ++k)
        inputs_[static_cast<std::size_t>(k)] = line_.data() + k;
    const bool isFolded = std::is_same_v<Pixel, float> && radius_ <= 2;
    if (isFolded)
        weighFolded(inputs_, taps_, size_.width, filteredRow(y));
    else
        weighInOrder(inputs_, taps_, size_.width, filteredRow(y));
}

std::vector<float> gaussianKernel(int radius, double sigma)
{
    const cv::Mat_<float> kernel = cv::getGaussianKernel(2 * radius + 1, sigma, CV_32F);
    return {kernel.begin(), kernel.end()};
}

}  // namespace halvor::vx
