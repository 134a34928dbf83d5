// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace vxtest {

/// Counts what the program and the library take by operator new.
class AllocationCounter
{
public:
    /// All allocations from now on.
    AllocationCounter();

    /// Those of this many bytes and more that OpenCV does not make itself: its temporaries are its own affair.
    explicit AllocationCounter(std::size_t smallest);
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;
    ~AllocationCounter();

    /// Allocations since construction, in all threads.
    std::size_t count() const;

private:
    std::size_t start_;
};

}  // namespace vxtest
