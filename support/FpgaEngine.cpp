// SPDX-License-Identifier: Apache-2.0
#include "support/FpgaEngine.h"

namespace halvor::vx {

template class SrInt<SrIntRegistration, SrIntFpgaMinimization>;

}  // namespace halvor::vx
