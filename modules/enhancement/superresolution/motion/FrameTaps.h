// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <vector>

namespace halvor::vx {

/// Size of the picture that is solved for, with its border.
cv::Size borderedPicture(const cv::Size& frame);

/// Weights of the seven picture pixels along one axis that a frame's pixel is made of, as cubics of where it lies
/// between picture pixels: the shares of a Gaussian point spread in four cells, spread by Keys' cubic convolution
/// (1981). They sum to 1.
struct TapTable
{
    static constexpr int taps = 7;

    /// @param sigma  deviation of the point spread in picture pixels
    explicit TapTable(double sigma);

    /// By power, from the constant to the cube; the eighth of each is 0.
    std::array<std::array<float, taps + 1>, 4> coefficients{};
};

/// A frame's pixel as the solver sees it.
struct PixelTaps
{
    std::int32_t row;  ///< first of the seven rows and columns of the picture
    std::int32_t column;
    float down;  ///< where the pixel lies behind them, 0 to 1
    float across;
    float weight;  ///< above 0
    float value;
};

/// A frame's imaging model: which pixels of the picture each of its pixels is made of, and how much that pixel
/// counts. All memory is allocated by the constructor.
class FrameTaps
{
public:
    explicit FrameTaps(const cv::Size& frame);

    /// Sets a row's pixels. Those whose weight is 0, or whose taps leave the picture, do not take part.
    ///
    /// @param dx, dy  motion of the row's pixels: pixel q lies at q - d of the reference
    void setRow(int y, const float* dx, const float* dy, const float* weight, const float* value);

    struct Row
    {
        const PixelTaps* pixels;
        int count;
        int first;  ///< rows of the picture that they touch: first to end - 1
        int end;
    };
    const Row& row(int y) const { return rows_[static_cast<std::size_t>(y)]; }
    int rows() const { return size_.height; }

private:
    cv::Size size_;
    cv::Size picture_;
    std::vector<PixelTaps> pixels_;
    std::vector<Row> rows_;
};

/// out[x] = what a row of a frame's pixels would see of the picture, 0 where it cannot.
///
/// @param picture  with its border, of the size of the next; its rows go on behind that
/// @param dx, dy   motion of the row's pixels
void predictRow(const TapTable& table, const cv::Mat_<float>& picture, const cv::Size& size, int y,
                const float* dx, const float* dy, int n, float* out);

// The following add to an image like the picture, whose rows go on by 8 columns at least: kernels look and add
// zeros there.

/// A stretch of picture rows, those that a thread adds to.
struct RowRange
{
    int first;
    int end;
};

/// Adds A^T W A image to the rows of a range, A the frame's model and W its weights.
void addNormal(const TapTable& table, const FrameTaps& frame, const cv::Mat_<float>& image,
               const RowRange& range, cv::Mat_<float>& out);
/// Adds A^T W (frame - A image).
void addResidual(const TapTable& table, const FrameTaps& frame, const cv::Mat_<float>& image,
                 const RowRange& range, cv::Mat_<float>& out);
/// Adds A^T W 1: how much of the frame a picture pixel takes part in.
void addCoverage(const TapTable& table, const FrameTaps& frame, const RowRange& range, cv::Mat_<float>& out);

}  // namespace halvor::vx
