#pragma once

#include <cstddef>

namespace blocktest {

/// Counts what the whole program, the library and OpenCV's matrices included, takes by operator new.
class AllocationCounter
{
public:
    AllocationCounter();

    /// Allocations since construction, in all threads.
    std::size_t count() const;

private:
    std::size_t start_;
};

}  // namespace blocktest
