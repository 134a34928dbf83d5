// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace halvor::vx {

/// A place between pixels: the one before it, and how far behind that it lies, 0 to 1.
struct PixelPlace
{
    int pixel;
    float rest;
};

/// The place `way` behind a pixel, kept within first and last. The way is short and the pixel's number is not, so
/// that the two are not added as floats; one that is not a number ends at first.
inline PixelPlace placeBehind(int pixel, float way, int first, int last)
{
    const auto least = static_cast<float>(first - pixel);
    const auto most = static_cast<float>(last - pixel);
    float kept = way > least ? way : least;
    kept = kept < most ? kept : most;
    int whole = static_cast<int>(kept);
    whole -= kept < static_cast<float>(whole) ? 1 : 0;
    return {pixel + whole, kept - static_cast<float>(whole)};
}

}  // namespace halvor::vx
