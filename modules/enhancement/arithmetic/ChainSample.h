#pragma once

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

}  // namespace halvor::vx
