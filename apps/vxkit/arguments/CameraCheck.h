// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace vxapp {

/// The three digits of each camera model whose point spread is known, with spaces between them.
std::string cameraModels();

/// Accepts a text from which the library takes a camera and a lens; it would take any other for an unknown one.
CLI::Validator knownCamera();

}  // namespace vxapp
