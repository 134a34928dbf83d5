// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <opencv2/core/mat.hpp>
#include <vector>

namespace halvor::vx {

/// Separable filter with one symmetric kernel for rows and columns. Beyond its edges the image goes on as its
/// mirror picture, the edge pixel being the mirror (BORDER_REFLECT_101).
///
/// The bits are those of cv::sepFilter2D, and of cv::GaussianBlur for more than one row and column, on a processor without fused multiply-add, on
/// every processor: the image library itself picks other code where it can, with other last bits. Rows are
/// filtered while they are in the cache; all memory is allocated by the constructor and by setTaps(). A copy
/// has memory of its own.
class SymmetricFilter
{
public:
    /// @param size  of the images
    explicit SymmetricFilter(const cv::Size& size);

    /// @param taps  the whole kernel, of odd length, its middle in the middle; of any length against the image
    void setTaps(const std::vector<float>& taps);

    /// @param src  of the size of the construction
    /// @param dst  created at this size; not src
    void run(const cv::Mat_<float>& src, cv::Mat_<float>& dst);
    /// Sums are rounded to the nearest level, halves to the even one.
    void run(const cv::Mat_<unsigned char>& src, cv::Mat_<unsigned char>& dst);

private:
    template <typename Pixel>
    void filter(const cv::Mat_<Pixel>& src, cv::Mat_<Pixel>& dst);
    template <typename Pixel>
    void filterRow(const cv::Mat_<Pixel>& src, int y);
    float* filteredRow(int y)
    {
        return filteredRows_.data() + static_cast<std::ptrdiff_t>(y % ring_) * size_.width;
    }

    cv::Size size_;
    int radius_ = 0;
    std::vector<float> taps_;
    std::vector<float> line_;           // a row of the image with its mirrored margins
    std::vector<int> marginColumns_;    // where the pixels of the left and the right margin come from
    std::vector<const float*> inputs_;  // what each tap multiplies
    int ring_ = 0;                      // rows of the next
    std::vector<float> filteredRows_;   // ring of rows that went through the kernel lengthwise
    std::vector<float> sums_;
};

/// The taps of cv::getGaussianKernel.
///
/// @throws cv::Exception  for a negative radius
std::vector<float> gaussianKernel(int radius, double sigma);

}  // namespace halvor::vx
