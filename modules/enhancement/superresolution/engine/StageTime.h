// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>

#include "core/diagnostics/StopWatch.h"

namespace halvor::vx {

/// The time between start and stop of a watch, as the engines tell it behind the label of a stage.
struct StageTime
{
    /// Outlives this object.
    const StopWatch& watch;

    /// Writes milliseconds and "[ms]".
    friend std::ostream& operator<<(std::ostream& out, const StageTime& time)
    {
        return out << time.watch.timeElapsed() * 1000.0 << "[ms]";
    }
};

}  // namespace halvor::vx
