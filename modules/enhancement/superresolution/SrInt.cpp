// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/SrInt.h"

namespace halvor::vx {

template class SrInt<SrIntRegistration, SrIntMinimization>;

}  // namespace halvor::vx
