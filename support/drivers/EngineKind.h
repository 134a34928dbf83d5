// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>
#include <vector>

namespace vxsupport {

/// The super-resolution engines for factor 2. The float ones are to agree with each other, and so are the two
/// in fixed point.
enum class EngineKind
{
    production,  ///< SrFloat with tracked corners, the one behind the flat interface
    phase,       ///< SrFloat with phase correlation
    reference,   ///< SuperResolution, the serial twin of the phase engine
    fixed,       ///< SrInt, in 16 bits
    fpga,        ///< the same with the solver of the shape of an FPGA, for frames of 160x120
};

const std::vector<EngineKind>& allEngineKinds();
const std::vector<EngineKind>& floatEngineKinds();
bool isFixedPoint(EngineKind kind);
std::string_view nameOf(EngineKind kind);

}  // namespace vxsupport
