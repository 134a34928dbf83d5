// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <opencv2/core/mat.hpp>
#include <vector>

namespace halvor::vx {

/// Separable box filter whose window is cut off at the image's edges and divided by the pixels that are left,
/// so that a flat image stays flat.
///
/// Running sums in single precision, first along rows, then along columns: the cost per pixel does not depend
/// on the radius. Rows go through the filter while they are in the cache; all memory is allocated at
/// construction.
class MeanFilter
{
public:
    /// @param size  of the images
    explicit MeanFilter(const cv::Size& size);
    MeanFilter(const MeanFilter&) = delete;
    MeanFilter(MeanFilter&&) = default;
    MeanFilter& operator=(const MeanFilter&) = delete;
    MeanFilter& operator=(MeanFilter&&) = default;
    ~MeanFilter() = default;

    /// @param radius  pixels on each side of the centre; the window is 2 * radius + 1, at most one more than
    ///                the image has rows or columns
    /// @param source  source(y, row) fills row y of the image
    /// @param sink    sink(y, row) takes row y of the result. Rows come in ascending order, each some rows
    ///                behind those that the source has filled
    template <typename Source, typename Sink>
    void run(int radius, Source source, Sink sink);

private:
    static constexpr int stripRows = 8;

    void begin(int radius);
    void filterStrip(int first, int count);
    const float* meanRow(int y);
    float* rowMeans(int y) { return rowMeans_[y % ring_]; }

    int rows_;
    int columns_;
    int radius_ = 0;
    int ring_;                  // rows of rowMeans_ that are in use, whole strips
    cv::Mat_<float> strip_;     // rows of the image
    cv::Mat_<float> rowMeans_;  // what the filter makes of them along rows
    std::vector<float> sums_;   // running sums of the columns
    std::vector<float> means_;
};

/// Filters a whole image.
///
/// @param src  at least 2 * radius rows and columns
/// @param dst  may be src; created at its size
void meanFilter(const cv::Mat_<float>& src, int radius, cv::Mat_<float>& dst);

template <typename Source, typename Sink>
void MeanFilter::run(int radius, Source source, Sink sink)
{
    begin(radius);
    int done = 0;
    for (int first = 0; first < rows_; first += stripRows) {
        const int count = std::min(stripRows, rows_ - first);
        for (int i = 0; i < count; ++i)
            source(first + i, strip_[i]);
        filterStrip(first, count);
        const int filled = first + count;
        for (; done < rows_ && std::min(done + radius, rows_ - 1) < filled; ++done)
            sink(done, meanRow(done));
    }
}

}  // namespace halvor::vx
