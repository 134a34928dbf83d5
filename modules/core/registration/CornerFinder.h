// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <opencv2/core/mat.hpp>
#include <vector>

namespace halvor::vx {

/// Finds the corners of an image: local maxima of the smaller eigenvalue of the structure tensor (Shi and
/// Tomasi, 1994), the strongest first.
///
/// The corners are those of cv::goodFeaturesToTrack for blocks of 3 x 3 pixels on a processor without fused
/// multiply-add, on every processor: the image library itself picks other code where it can, and an
/// eigenvalue with other last bits may pick another corner. All pixel memory is allocated at construction; a copy
/// has memory of its own.
class CornerFinder
{
public:
    /// @param size  of the images
    explicit CornerFinder(const cv::Size& size);

    /// @param image        of the size of the construction
    /// @param maxCorners   how many are wanted at most, 1 or more
    /// @param quality      least eigenvalue, as a share of the largest one of the image
    /// @param minDistance  least distance to any stronger corner, in pixels
    /// @param corners      takes the corners in pixels; those at the image's edge are left out
    void find(const cv::Mat_<float>& image, int maxCorners, double quality, double minDistance,
              std::vector<cv::Point2f>& corners);
    void find(const cv::Mat_<unsigned char>& image, int maxCorners, double quality, double minDistance,
              std::vector<cv::Point2f>& corners);

private:
    // One row on its way: what is made of its pixels, and of the products of their gradients.
    struct Differences
    {
        std::vector<float> across;  // of the left and the right neighbour
        std::vector<float> smooth;  // weighted sum of pixel and neighbours
    };
    template <typename T>
    struct Tensor
    {
        explicit Tensor(std::size_t n) : xx(n), xy(n), yy(n) {}

        std::vector<T> xx;
        std::vector<T> xy;
        std::vector<T> yy;
    };

    template <typename Pixel>
    void findIn(const cv::Mat_<Pixel>& image, int maxCorners, double quality, double minDistance,
                std::vector<cv::Point2f>& corners);
    template <typename Pixel>
    void measureEigenvalues(const cv::Mat_<Pixel>& image);
    template <typename Pixel>
    void takeRow(const cv::Mat_<Pixel>& image, int y);
    void multiplyGradients(int y, float scale);
    void finishRow(int y);
    void collectPeaks(float limit);
    void pickDistant(int maxCorners, double minDistance, std::vector<cv::Point2f>& corners) const;

    Differences& differences(int y) { return differences_[static_cast<std::size_t>(y % 3)]; }
    float* eigenvalueRow(int y) { return eigenvalues_.data() + static_cast<std::ptrdiff_t>(y) * size_.width; }
    Tensor<double>& rowSums(int y) { return rowSums_[static_cast<std::size_t>(y % 3)]; }

    cv::Size size_;
    std::vector<float> line_;               // a row of pixels with one mirrored pixel at each end
    std::vector<Differences> differences_;  // ring of three rows
    Tensor<float> products_;                // with mirrored ends, too
    std::vector<Tensor<double>> rowSums_;   // sums of three products, ring of three rows
    Tensor<double> columnSums_;             // running sums of three of them
    Tensor<float> blockSums_;
    std::vector<float> eigenvalues_;  // of the whole image
    std::vector<int> peaks_;          // places in it, the strongest first
};

}  // namespace halvor::vx
