// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/arguments/CameraCheck.h"

#include "support/drivers/BurstEngine.h"

namespace vxapp {

CLI::Validator knownCamera()
{
    return CLI::Validator(
        [](std::string& text) {
            return vxsupport::psfSigmaFor(text) ? std::string() : text + vxsupport::unknownCameraText();
        },
        "");
}

}  // namespace vxapp
