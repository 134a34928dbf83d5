// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "core/base/Export.h"

namespace halvor::vx {

/// Finds a camera model and a lens's field of view in a free-form text such as "k325 FOV25".
///
/// @param text         holds the three digits of a model anywhere, and "FOV" with an integer behind it
/// @param model        takes the model's code, "k" and the digits; of several, the one listed first
/// @param fieldOfView  takes the integer; -1 if none can be read as a 32-bit number
/// @return whether both were found; -1 counts as no field of view
VXKIT_API bool decodeCameraAndLens(const std::string& text, std::string& model, int& fieldOfView);

/// Standard deviation of the point spread of a camera and lens, in pixels of the large image.
///
/// @param model        as decodeCameraAndLens gives it; for any other text the unknown camera's value
/// @param fieldOfView  as decodeCameraAndLens gives it
VXKIT_API float psfSigmaOf(const std::string& model, int fieldOfView);

}  // namespace halvor::vx
