// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vxpy {

/// What the library's classes print within its life goes to the log, as in calls of the C interface.
class Quiet
{
public:
    Quiet() {}
    ~Quiet() {}
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;
};

}  // namespace vxpy
