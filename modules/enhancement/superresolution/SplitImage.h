#pragma once

#include <algorithm>
#include <cstddef>
#include <opencv2/core/mat.hpp>

namespace halvor::vx {

/// Geometry of a large image whose rows are stored as their even columns followed by their odd ones.
///
/// The operators between the large image and a frame have a stride of 2: on split rows their loops run over
/// neighbouring floats. Each part is padded to whole blocks, so that loops run in whole blocks too. The
/// padding and one row above and below the image are zero: neighbours outside the image add nothing.
struct SplitLayout
{
    static constexpr int block = 16;

    SplitLayout(int imageWidth, int imageHeight)
        : width(imageWidth),
          height(imageHeight),
          evens((imageWidth + 1) / 2),
          odds(imageWidth / 2),
          // At least one place of padding; loops over a frame's row (3 samples less than evens) also read two
          // places beyond their last block.
          half(wholeBlocks(std::max(evens + 1, wholeBlocks(std::max(evens - 3, 0)) + 2)))
    {
        // Rows that lie a whole page apart would compete for the same cache lines.
        constexpr int pageFloats = 1024;
        if (2 * half % pageFloats == 0)
            half += block;
        pitch = 2 * half;
    }

    /// Blocks of a stored row.
    int blocks() const { return pitch / block; }

    static constexpr int wholeBlocks(int count) { return (count + block - 1) / block * block; }

    void clearPadding(float* row) const
    {
        std::fill(row + evens, row + half, 0.0F);
        std::fill(row + half + odds, row + pitch, 0.0F);
    }

    /// Place of a column within a stored row.
    int place(int column) const { return column / 2 + (column % 2) * half; }

    int width;
    int height;
    int evens;
    int odds;
    int half;
    int pitch;
};

/// An image in that layout, zero at first.
class SplitImage
{
public:
    /// @param index  differs between images that are used together, so that they do not share cache sets
    SplitImage(const SplitLayout& layout, int index)
        : pitch_(layout.pitch),
          storage_(1, (layout.height + 2) * layout.pitch + index * stagger, 0.0F),
          origin_(storage_.ptr<float>() + index * stagger + layout.pitch)
    {}
    SplitImage(const SplitImage&) = delete;
    SplitImage(SplitImage&&) = default;
    SplitImage& operator=(const SplitImage&) = delete;
    SplitImage& operator=(SplitImage&&) = default;
    ~SplitImage() = default;

    /// Rows -1 and height are there too, and zero.
    float* row(int y) { return origin_ + static_cast<std::ptrdiff_t>(y) * pitch_; }
    const float* row(int y) const { return origin_ + static_cast<std::ptrdiff_t>(y) * pitch_; }

private:
    static constexpr int stagger = 5 * SplitLayout::block;

    int pitch_;
    cv::Mat_<float> storage_;
    float* origin_;
};

}  // namespace halvor::vx
