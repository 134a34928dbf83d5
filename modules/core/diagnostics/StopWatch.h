// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

namespace halvor::vx {

/// Elapsed time between start() and stop(), on a clock that never jumps.
class StopWatch
{
public:
    /// Begins to measure; timeElapsed() is 0 until stop().
    void start() { start_ = stop_ = Clock::now(); }
    /// Ends the measurement; may be called again, for a later end.
    void stop() { stop_ = Clock::now(); }

    /// Seconds between the last start() and the last stop(); 0 before the first stop().
    double timeElapsed() const { return std::chrono::duration<double>(stop_ - start_).count(); }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point start_{};
    Clock::time_point stop_{};
};

}  // namespace halvor::vx
