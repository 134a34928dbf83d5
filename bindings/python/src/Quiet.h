// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>

#include "bindings/c/vxkit.h"

namespace vxpy {

/// Runs work with the library's classes as the calls of its C interface run: what they print goes to the log.
template <typename Work>
void quietly(Work work)
{
    struct Call
    {
        Work& work;
        std::exception_ptr failure{};
    } call{work};
    const auto run = [](void* user) {
        auto& made = *static_cast<Call*>(user);
        try {
            made.work();
        } catch (...) {
            made.failure = std::current_exception();
        }
    };
    vxkit_run(run, &call);
    if (call.failure)
        std::rethrow_exception(call.failure);
}

}  // namespace vxpy
