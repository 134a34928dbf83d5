// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <limits>
#include <mutex>
#include <utility>

#include "core/diagnostics/OutputSink.h"

namespace halvor::vx {

/// Carries an exception out of a parallel loop, whose body must not let one escape.
///
/// Each iteration runs inside run(); rethrow(), behind the loop, raises the exception of the lowest index,
/// whatever the order in which threads met theirs.
class ParallelExceptions
{
public:
    template <typename Body>
    void run(int index, Body&& body) noexcept
    {
        // What an exception says belongs to whoever called, not to the thread where it arose.
        const SinkInForce listener(sink_);
        try {
            std::forward<Body>(body)();
        } catch (...) {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (!first_ || index < firstIndex_) {
                first_ = std::current_exception();
                firstIndex_ = index;
            }
        }
    }

    void rethrow() const
    {
        if (first_)
            std::rethrow_exception(first_);
    }

private:
    OutputSink* sink_ = OutputSink::current();
    std::mutex mutex_;
    std::exception_ptr first_;
    int firstIndex_ = std::numeric_limits<int>::max();
};

}  // namespace halvor::vx
