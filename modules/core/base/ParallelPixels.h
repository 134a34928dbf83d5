// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace halvor::vx {

/// Pixels from which a frame is worth sharing among threads: below, waking them costs more than they save,
/// and beside a busy neighbour each wait for them costs a time slice. Passes that do little per pixel take a
/// multiple.
constexpr std::size_t parallelPixels = std::size_t{1} << 16;

/// The same for a pass of few nanoseconds a pixel, as a frame of a live stream takes several of. Such a frame
/// gains little from a second thread, and waits for it as long as its neighbours keep it from running.
constexpr std::size_t lightPassPixels = 16 * parallelPixels;

}  // namespace halvor::vx
