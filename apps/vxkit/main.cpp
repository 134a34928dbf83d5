// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <exception>

#include "apps/files/Process.h"
#include "apps/vxkit/commands/Program.h"
#include "support/Threads.h"

int main(int argc, char** argv)
{
    vxfiles::takeStandardDescriptors();
    vxsupport::shareMachine(argv);
    try {
        const vxfiles::SignalWatch watch("vxkit");
        return vxfiles::statusOfReport(vxapp::runProgram(argc, argv), "vxkit");
    } catch (const std::exception& error) {  // neither a thread nor the list of options, for want of memory
        std::fprintf(stderr, "vxkit: can't begin: %s\n", error.what());
        return 1;
    }
}
