// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "enhancement/superresolution/SrInt.h"
#include "enhancement/superresolution/SrIntFpgaMinimization.h"
#include "enhancement/superresolution/SrIntMinimization.h"
#include "enhancement/superresolution/SrIntRegistration.h"

namespace vxsupport {

/// The engine in fixed point, as the library has it.
using FixedEngine = halvor::vx::SrInt<halvor::vx::SrIntRegistration, halvor::vx::SrIntMinimization>;

/// The same driver and registration with the solver in the shape of an FPGA's dataflow: the library has the solver as
/// a model and leaves its host open. Frames of 160x120.
using FpgaEngine = halvor::vx::SrInt<halvor::vx::SrIntRegistration, halvor::vx::SrIntFpgaMinimization>;

}  // namespace vxsupport

namespace halvor::vx {

extern template class SrInt<SrIntRegistration, SrIntFpgaMinimization>;

}  // namespace halvor::vx
