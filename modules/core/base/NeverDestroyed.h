// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <utility>

namespace halvor::vx {

/// A process-wide object that outlives every static of the host: `static auto& log = neverDestroyed<Log>();`
///
/// It is never destroyed, since a host may call from destructors that run when the library's own statics would
/// be gone already.
template <typename Value, typename... Arguments>
Value& neverDestroyed(Arguments&&... arguments)
{
    return *std::make_unique<Value>(std::forward<Arguments>(arguments)...).release();
}

}  // namespace halvor::vx
