// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/arguments/CameraCheck.h"

#include "enhancement/superresolution/engine/CameraTable.h"

namespace vxapp {

std::string cameraModels()
{
    return "310 315 316 320 321 322 325 330";
}

CLI::Validator knownCamera()
{
    return CLI::Validator(
        [](std::string& text) {
            std::string model;
            int fieldOfView = 0;
            if (halvor::vx::decodeCameraAndLens(text, model, fieldOfView))
                return std::string();
            return text + ": no known camera and lens; expected one of the models " + cameraModels() +
                   " and FOV with the field of view, as in \"k325 FOV25\" (for another camera measure " +
                   "--psf-sigma with vxkit psf)";
        },
        "");
}

}  // namespace vxapp
