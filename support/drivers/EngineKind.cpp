// SPDX-License-Identifier: Apache-2.0
#include "support/drivers/EngineKind.h"

#include <array>
#include <cstddef>

namespace vxsupport {

const std::vector<EngineKind>& allEngineKinds()
{
    static const std::vector<EngineKind> kinds{EngineKind::production, EngineKind::phase,
                                               EngineKind::reference, EngineKind::fixed, EngineKind::fpga};
    return kinds;
}

const std::vector<EngineKind>& floatEngineKinds()
{
    static const std::vector<EngineKind> kinds{EngineKind::production, EngineKind::phase,
                                               EngineKind::reference};
    return kinds;
}

bool isFixedPoint(EngineKind kind)
{
    return kind == EngineKind::fixed || kind == EngineKind::fpga;
}

std::string_view nameOf(EngineKind kind)
{
    constexpr std::array<std::string_view, 5> names{"production", "phase", "reference", "fixed", "fpga"};
    return names.at(static_cast<std::size_t>(kind));
}

}  // namespace vxsupport
