// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace halvor::vx::temporal {

/// Filter weights of the temporal noise reduction by difference index; 32768 stands for 1.0.
extern const int alphaTable[1024];

}  // namespace halvor::vx::temporal
