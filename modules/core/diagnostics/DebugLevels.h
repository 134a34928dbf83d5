// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace halvor::vx {

/// Levels of the engines' debug lines.
struct DebugLevel
{
    static constexpr int step = 11;    ///< beginnings and ends of steps, and what came of them
    static constexpr int detail = 12;  ///< what happens inside a step
};

}  // namespace halvor::vx
