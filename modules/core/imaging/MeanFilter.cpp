#include "core/imaging/MeanFilter.h"

#include <algorithm>
#include <cstddef>

#include "core/base/Kernel.h"

namespace halvor::vx {

namespace {

// A running sum is a chain of dependent additions; several rows at once keep the adders busy.
constexpr int rowsAtOnce = 8;
constexpr int columnsAtOnce = 256;

template <int Rows>
inline void filterRows(const float* in, std::ptrdiff_t inStep, float* out, std::ptrdiff_t outStep, int n,
                       int radius)
{
    const float inv = 1.0F / (static_cast<float>(radius) * 2.0F + 1.0F);
    float sum[Rows] = {};
    for (int i = 0; i < radius; ++i)
        for (int r = 0; r < Rows; ++r)
            sum[r] += in[r * inStep + i];
    int count = radius + 1;
    for (int i = 0; i < radius; ++i, ++count)
        for (int r = 0; r < Rows; ++r) {
            sum[r] += in[r * inStep + i + radius];
            out[r * outStep + i] = sum[r] / static_cast<float>(count);
        }
    for (int i = radius; i < n - radius; ++i)
        for (int r = 0; r < Rows; ++r) {
            sum[r] += in[r * inStep + i + radius];
            out[r * outStep + i] = sum[r] * inv;
            sum[r] -= in[r * inStep + i - radius];
        }
    for (int i = n - radius; i < n; ++i) {
        --count;
        for (int r = 0; r < Rows; ++r) {
            out[r * outStep + i] = sum[r] / static_cast<float>(count);
            sum[r] -= in[r * inStep + i - radius];
        }
    }
}

// The same steps down the columns, row by row, with one running sum for each of n columns.
VX_KERNEL void filterColumns(const float* VX_RESTRICT in, std::ptrdiff_t inStep, float* VX_RESTRICT out,
                             std::ptrdiff_t outStep, int rows, int n, int radius)
{
    const float inv = 1.0F / (static_cast<float>(radius) * 2.0F + 1.0F);
    float sum[columnsAtOnce] = {};
    for (int i = 0; i < radius; ++i)
        for (int c = 0; c < n; ++c)
            sum[c] += in[i * inStep + c];
    int count = radius + 1;
    for (int i = 0; i < radius; ++i, ++count) {
        const auto divisor = static_cast<float>(count);
        for (int c = 0; c < n; ++c) {
            sum[c] += in[(i + radius) * inStep + c];
            out[i * outStep + c] = sum[c] / divisor;
        }
    }
    for (int i = radius; i < rows - radius; ++i)
        for (int c = 0; c < n; ++c) {
            sum[c] += in[(i + radius) * inStep + c];
            out[i * outStep + c] = sum[c] * inv;
            sum[c] -= in[(i - radius) * inStep + c];
        }
    for (int i = rows - radius; i < rows; ++i) {
        --count;
        const auto divisor = static_cast<float>(count);
        for (int c = 0; c < n; ++c) {
            out[i * outStep + c] = sum[c] / divisor;
            sum[c] -= in[(i - radius) * inStep + c];
        }
    }
}

std::ptrdiff_t stepOf(const cv::Mat_<float>& image)
{
    return static_cast<std::ptrdiff_t>(image.step1());
}

}  // namespace

void meanFilter(const cv::Mat_<float>& src, int radius, cv::Mat_<float>& scratch, cv::Mat_<float>& dst)
{
    scratch.create(src.size());
    int row = 0;
    for (; row + rowsAtOnce <= src.rows; row += rowsAtOnce)
        filterRows<rowsAtOnce>(src[row], stepOf(src), scratch[row], stepOf(scratch), src.cols, radius);
    for (; row < src.rows; ++row)
        filterRows<1>(src[row], stepOf(src), scratch[row], stepOf(scratch), src.cols, radius);

    dst.create(src.size());
    for (int column = 0; column < src.cols; column += columnsAtOnce)
        filterColumns(scratch.ptr<float>() + column, stepOf(scratch), dst.ptr<float>() + column, stepOf(dst),
                      src.rows, std::min(columnsAtOnce, src.cols - column), radius);
}

}  // namespace halvor::vx
