// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>

namespace vxapp {

/// Accepts a text from which the library takes a camera and a lens; it would take any other for an unknown one.
CLI::Validator knownCamera();

}  // namespace vxapp
