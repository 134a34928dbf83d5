// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "core/base/Export.h"

namespace halvor::vx {

/// Two-dimensional Fourier transform of real frames on all processors, and Gaussian smoothing with it.
///
/// A frame is `height` rows of `width` floats without gaps. A half spectrum is `height` rows of
/// `width` / 2 + 1 complex values, real part first; the missing columns are the conjugates of those that are
/// there. Results are the same, bit for bit, for any number of threads.
///
/// All memory is taken by the constructor; only a size with a prime factor above 100, which is slow anyway,
/// lets the transforms take small temporaries. One call at a time on one object, but for the forms with a
/// worker: they run on the calling thread alone, and different workers may run at the same time.
class VXKIT_API SrFloatFft2d
{
public:
    /// @param width   even, 2 or more
    /// @param height  1 or more
    /// @throws Exception  for any other size
    SrFloatFft2d(int width, int height);
    SrFloatFft2d(const SrFloatFft2d&) = delete;
    SrFloatFft2d(SrFloatFft2d&&) = delete;
    SrFloatFft2d& operator=(const SrFloatFft2d&) = delete;
    SrFloatFft2d& operator=(SrFloatFft2d&&) = delete;
    ~SrFloatFft2d();

    /// Number of workers, counted from 0: the number of threads at construction.
    int workers() const { return threads_; }

    /// Half spectrum of a frame, kernel exp(-2 pi i ...), not scaled.
    void forward(const float* image, float (*spectrum)[2]);

    /// Frame of a half spectrum, not scaled: forward() and backward() multiply by width * height. The
    /// imaginary parts that a real frame's spectrum cannot have are ignored.
    void backward(const float (*spectrum)[2], float* image);
    void backward(int worker, const float (*spectrum)[2], float* image);

    /// Gaussian kernel, as taps and as the half spectrum by which a frame's is multiplied. The spectrum
    /// carries the scale 1 / (width * height), so that forward(), the product and backward() keep a flat
    /// frame as it is.
    ///
    /// @param radius  taps on each side; width and height are above 2 * radius
    /// @param sigma   standard deviation in pixels, above 0
    /// @param kernel  takes radius + 1 taps, the middle one first; each is the Gaussian's integral over the
    ///                pixel, and the whole kernel sums to 1
    /// @throws Exception  if the frame is too small for the kernel
    void gaussFft(int radius, float sigma, float (*spectrum)[2], float* kernel);

    /// Turns a blur that wraps around the frame's edges into one that stops there: each pixel becomes the
    /// kernel's sum over the pixels inside the frame, divided by the part of the kernel that lies inside.
    ///
    /// @param source   frame before the blur
    /// @param blurred  the same frame, blurred by a product of spectra; repaired in place
    /// @param kernel   radius + 1 taps, from gaussFft()
    /// @throws Exception  if the frame is too small for the kernel
    void repairGaussBlur(const float* source, float* blurred, int radius, const float* kernel);
    void repairGaussBlur(int worker, const float* source, float* blurred, int radius, const float* kernel);

private:
    struct ThreadContext;

    int teamSize() const;
    int tileCount() const;
    void forwardRow(ThreadContext& context, int y, const float* image, float (*spectrum)[2]) const;
    void forwardTile(ThreadContext& context, int tile, float (*spectrum)[2]) const;
    void backwardTile(ThreadContext& context, int tile, const float (*spectrum)[2], float* image) const;
    void backwardRow(ThreadContext& context, int y, float* image) const;
    void unwrapRows(ThreadContext& context, const float* source, float* blurred, int radius,
                    const float* kernel) const;
    void unwrapColumns(ThreadContext& context, const float* source, float* blurred, int radius,
                       const float* kernel) const;
    void scaleBorder(float* blurred, int radius, const float* kernel) const;

    std::int32_t width_;
    std::int32_t height_;
    std::int32_t threads_;

    std::vector<ThreadContext> contexts_;
};

}  // namespace halvor::vx
