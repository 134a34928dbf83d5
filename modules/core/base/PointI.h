// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

/// Whole-pixel displacement or position.
struct PointI
{
    std::int32_t x;  ///< pixels to the right
    std::int32_t y;  ///< pixels downwards
};
