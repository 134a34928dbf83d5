// SPDX-License-Identifier: Apache-2.0
#include "apps/files/Process.h"
#include "apps/vxkit/commands/Program.h"
#include "support/Threads.h"

int main(int argc, char** argv)
{
    vxfiles::takeStandardDescriptors();
    vxsupport::shareMachine(argv);
    const vxfiles::SignalWatch watch("vxkit");
    return vxfiles::statusOfReport(vxapp::runProgram(argc, argv), "vxkit");
}
