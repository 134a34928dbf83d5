// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/engine/FrameWindow.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "core/base/Kernel.h"

namespace halvor::vx {

namespace {

VX_KERNEL int sumMask(const char* mask, int n)
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

FrameWindow::FrameWindow(int width, int height, int capacity)
    : width_(width),
      height_(height),
      frames_(slices(frameStorage_, capacity, width * height)),
      registeredFrames_(slices(registeredStorage_, capacity, width * height)),
      masks_(slices(maskStorage_, capacity, width * height)),
      shifts_(static_cast<std::size_t>(capacity))
{}

cv::Mat_<float> FrameWindow::push()
{
    return {height_, width_, frames_.push()};
}

int FrameWindow::referenceFrame(int index) const
{
    return std::max(count() - index - 1, 0);
}

std::vector<cv::Mat_<float>> FrameWindow::views() const
{
    std::vector<cv::Mat_<float>> views;
    views.reserve(static_cast<std::size_t>(count()));
    for (int i = 0; i < count(); ++i)
        views.emplace_back(height_, width_, frames_[i]);
    return views;
}

void FrameWindow::copyMasks(std::vector<cv::Mat_<unsigned char>>& out) const
{
    out.resize(masks_.size());
    for (std::size_t i = 0; i < masks_.size(); ++i)
        cv::Mat_<char>(height_, width_, masks_[i]).convertTo(out[i], CV_8U);
}

int FrameWindow::usablePixels(int frame) const
{
    return sumMask(masks_[static_cast<std::size_t>(frame)], width_ * height_);
}

float FrameWindow::achievedFactor(int maxUsable) const
{
    const int size = width_ * height_;
    std::int64_t total = 0;
    std::array<int, 1024> counts{};
    const int chunk = static_cast<int>(counts.size());
    for (int first = 0; first < size; first += chunk) {
        const int n = std::min(chunk, size - first);
        counts.fill(0);
        for (int i = 0; i < count(); ++i)
            countUsable(masks_[static_cast<std::size_t>(i)] + first, n, counts.data());
        total += surplusCoverage(counts.data(), n, maxUsable);
    }
    // Four is the surplus of a fully covered pixel at factor 2; other factors share it.
    return static_cast<float>(total) / (static_cast<float>(size) * 4.0F) + 1.0F;
}

}  // namespace halvor::vx
