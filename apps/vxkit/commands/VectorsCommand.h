// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace vxapp {

/// Adds "vectors", which writes test vectors for a firmware bench, or checks a bench's answers.
void addVectorsCommand(CLI::App& program);

}  // namespace vxapp
