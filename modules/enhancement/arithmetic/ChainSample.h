// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include "core/base/Kernel.h"

// How the blocks of the enhancer chain read a pixel: the low 16 bits are a two's complement sample, and in
// the marked-pixel mode bit 31 is a mark.
namespace halvor::vx {

/// Modes of a hardware-block model; any value other than these two filters and honours marks.
enum BlockMode : int
{
    filterAll = 0,
    copyAll = 1
};

/// The sample as an unsigned number, 0 to 65535.
constexpr int offsetBinary(int pixel)
{
    return (pixel & 0xFFFF) ^ 0x8000;
}

/// The low 16 bits of an offset binary number as a two's complement pattern without sign extension.
constexpr int maskedPattern(int offset)
{
    return (offset & 0xFFFF) ^ 0x8000;
}

constexpr bool isMarked(int pixel)
{
    return pixel < 0;
}

/// In place of a store kernel: a block's plain results are signed, so they are computed in their place.
constexpr std::nullptr_t storeInPlace = nullptr;

/// Body of a kernel that stores n signed results as a block in the marked-pixel mode gives them: marked pixels
/// pass unchanged, the others are bare 16-bit patterns.
VX_KERNEL_BODY void storeUnmarked(const int* in, const int* result, int* out, int n)
{
    for (int i = 0; i < n; ++i)
        out[i] = isMarked(in[i]) ? in[i] : result[i] & 0xFFFF;
}

}  // namespace halvor::vx
