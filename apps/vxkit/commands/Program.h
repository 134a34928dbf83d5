// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vxapp {

/// The vxkit program: reads the command line, runs the command and turns every failure into one line on the
/// standard error stream and an exit status (see ExitStatus).
int runProgram(int argc, const char* const* argv);

}  // namespace vxapp
