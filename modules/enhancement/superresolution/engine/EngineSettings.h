// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include "core/base/Exception.h"

// What the engine drivers accept as sizes and settings.
namespace halvor::vx {

/// @param where  where-text of the exception
/// @throws Exception  if a side is negative, or an int does not count the pixels
inline int pixelCount(int width, int height, const std::string& where)
{
    const std::int64_t count = static_cast<std::int64_t>(width) * height;
    if (width < 0 || height < 0 || count > std::numeric_limits<std::int32_t>::max())
        throw Exception("Invalid image size: " + std::to_string(width) + " x " + std::to_string(height),
                        where);
    return static_cast<int>(count);
}

/// Pixels of an enlarged side, truncated.
///
/// @param smallest  factor that the engine can still work with
/// @param where     where-text of the exception
/// @throws Exception  for a factor outside of what makes sense
inline int enlarged(int length, float factor, float smallest, const std::string& where)
{
    constexpr float largest = 1024.0F;
    const float size = static_cast<float>(length) * factor;
    if (!(factor >= smallest && factor <= largest) ||
        !(size < static_cast<float>(std::numeric_limits<std::int32_t>::max())))
        throw Exception(
            "Invalid enlargement: " + std::to_string(length) + " pixels by " + std::to_string(factor), where);
    return static_cast<int>(size);
}

// A refused setting is thrown as a bare text literal (const char*), which hosts of every engine know.

/// @throws const char*  unless the index is 0 to windowSize - 1
inline void requireReferenceIndex(int index, int windowSize)
{
    if (index < 0 || index >= windowSize)
        throw "Invalid reference index specified.";
}

/// @throws const char*  unless the error is above 0 and at most 1
inline void requireRegError(float error)
{
    if (!(error > 0.0F && error <= 1.0F))
        throw "Invalid maximum registration error specified.";
}

/// @throws const char*  unless sigma is above 0
inline void requirePsfSigma(float sigma)
{
    if (!(sigma > 0.0F))
        throw "Invalid standard deviation of the sensor psf specified.";
}

/// @throws const char*  unless the weight is 1 or more
inline void requireWeightTV(float weight)
{
    if (!(weight >= 1.0F))
        throw "Invalid total-variation term weight specified.";
}

/// @throws const char*  unless the residue is 1e-6 or more
/// @param refusal  hosts of the float engines know the weight's text
inline void requireRelativeResidue(float residue,
                                   const char* refusal = "Invalid total-variation term weight specified.")
{
    // Compared as double, so that the float 1e-6, which lies below it, is refused.
    if (!(static_cast<double>(residue) >= 1e-6))
        throw refusal;
}

/// @throws const char*  unless there is at least one
inline void requireMaxCGIters(int iterations)
{
    if (iterations < 1)
        throw "Invalid maximum number of iterations specified.";
}

}  // namespace halvor::vx
