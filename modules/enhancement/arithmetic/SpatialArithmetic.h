// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "enhancement/arithmetic/FrameView.h"

// What the spatial block and the spatial filter share: the adaptive filter of a row.
namespace halvor::vx::spatial {

/// Filters a frame; the result must not overlap it.
///
/// The detail of a pixel against its 3 x 3 mean is kept by k / 32, where k = 13 + activity / gain, at most
/// 32: a higher gain smooths more, and 0 keeps everything.
void filterFrame(const FrameView<int>& frame, int gain);
void filterFrame(const FrameView<short>& frame, int gain);

/// The same, but marked pixels pass unchanged and the others are bare 16-bit patterns.
void filterMarkedFrame(const FrameView<int>& frame, int gain);

}  // namespace halvor::vx::spatial
