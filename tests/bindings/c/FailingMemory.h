// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace vxtest {

/// Blocks of memory and of matrices that the program has at the moment.
long liveBlocks();

/// While one lives, memory is short for operator new and for matrices: an allocation fails, or it and all that follow.
class Shortage
{
public:
    enum class Kind
    {
        once,
        lasting,
    };

    /// @param which  the allocation that fails, from 1
    Shortage(long which, Kind kind);
    ~Shortage() { end(); }
    Shortage(const Shortage&) = delete;
    Shortage& operator=(const Shortage&) = delete;

    /// Whether an allocation has failed.
    bool wasFelt() const;
    void end();
};

}  // namespace vxtest
