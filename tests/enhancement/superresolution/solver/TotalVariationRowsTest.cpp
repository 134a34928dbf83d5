// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/solver/TotalVariationRows.h"

#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/core.hpp>

#include "enhancement/superresolution/solver/LaneImage.h"
#include "enhancement/superresolution/solver/LineBuffer.h"

using namespace halvor::vx;

namespace {

constexpr EdgePotential potential{-0.05F, 0.1F, 10.0F};

// Weight of the edge between two pixels from its definition; edges of pixel 0 take the differences at pixel 1.
double edgeWeight(const cv::Mat_<float>& image, cv::Point from, cv::Point to)
{
    if (from == cv::Point(0, 0)) {
        from.x += 1;
        to.x += 1;
    }
    const bool isDiagonal = from.x != to.x && from.y != to.y;
    const double difference = std::abs(static_cast<double>(image(from)) - static_cast<double>(image(to)));
    const double m = std::clamp(difference / (isDiagonal ? std::sqrt(2.0) : 1.0), 0.1, 10.0);
    return -0.05 / m * (isDiagonal ? 0.5 : 1.0);
}

// The sum over all edges of a pixel of weight times difference.
cv::Mat_<double> laplacian(const cv::Mat_<float>& weightsFrom, const cv::Mat_<float>& image)
{
    cv::Mat_<double> out(image.size(), 0.0);
    for (int y = 0; y < image.rows; ++y)
        for (int x = 0; x < image.cols; ++x)
            for (const cv::Point step : {cv::Point(1, 0), {0, 1}, {-1, 1}, {1, 1}}) {
                const cv::Point from(x, y);
                const cv::Point to = from + step;
                if (!cv::Rect({0, 0}, image.size()).contains(to))
                    continue;
                const double flow = edgeWeight(weightsFrom, from, to) *
                                    (static_cast<double>(image(to)) - static_cast<double>(image(from)));
                out(from) += flow;
                out(to) -= flow;
            }
    return out;
}

cv::Mat_<float> roughImage(cv::Size size, unsigned seed)
{
    cv::Mat_<float> image(size);
    cv::RNG(seed).fill(image, cv::RNG::UNIFORM, -3.0F, 3.3F);
    cv::exp(image, image);
    return image;
}

// Gives each row with its neighbours, in the order of the solver's loops.
class Rows
{
public:
    Rows(const LaneLayout& layout, const cv::Mat_<float>& image)
        : layout_(layout), image_(image), buffer_(layout), columns_(layout.size())
    {
        load(0);
    }

    RowTriple next()
    {
        load(++y_ + 1);
        return {buffer_.row(y_ - 1), buffer_.row(y_), buffer_.row(y_ + 1)};
    }

private:
    void load(int y)
    {
        if (y >= layout_.height)
            return;
        std::copy_n(image_[y], layout_.width, columns_.data());
        layout_.toLanes(columns_.data(), buffer_.open(y));
        buffer_.close(y);
    }

    const LaneLayout& layout_;
    const cv::Mat_<float>& image_;
    LineBuffer buffer_;
    std::vector<float> columns_;
    int y_ = -1;
};

}  // namespace

TEST(TotalVariationRows, ApplyTheLaplacianOfTheirEdgeWeights)
{
    for (const cv::Size size : {cv::Size(7, 7), {9, 1}, {32, 5}, {33, 8}, {64, 3}, {131, 6}}) {
        const LaneLayout layout(size.width, size.height);
        const cv::Mat_<float> estimate = roughImage(size, 1);
        const cv::Mat_<float> image = roughImage(size, 2);
        const cv::Mat_<double> expected = laplacian(estimate, image);
        LaneImage weights[] = {{layout, 0}, {layout, 1}, {layout, 2}, {layout, 3}};
        const auto weightRow = [&weights](int y) -> WeightRow {
            return {weights[0].row(y), weights[1].row(y), weights[2].row(y), weights[3].row(y)};
        };
        Rows estimateRows(layout, estimate);
        Rows imageRows(layout, image);
        std::vector<float> lanes(static_cast<std::size_t>(layout.size()));
        std::vector<float> columns(lanes.size());
        for (int y = 0; y < size.height; ++y) {
            fillEdgeWeights(layout, potential, y, estimateRows.next(), weightRow(y));
            applyLaplacian(layout, weightRow(y - 1), weightRow(y), imageRows.next(), lanes.data());
            layout.fromLanes(lanes.data(), columns.data());
            for (int x = 0; x < layout.size(); ++x)
                ASSERT_NEAR(columns[x], x < size.width ? expected(y, x) : 0.0, 3e-5)
                    << size << " at " << x << ", " << y;
        }
    }
}
