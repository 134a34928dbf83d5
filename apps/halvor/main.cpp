// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <exception>

#include "apps/files/Process.h"
#include "apps/halvor/CommandLine.h"
#include "support/Threads.h"

int main(int argc, char** argv)
{
    vxfiles::takeStandardDescriptors();
    vxsupport::shareMachine(argv);
    const vxfiles::SignalWatch watch("halvor");
    try {
        return vxfiles::statusOfReport(halvorapp::runHalvor(argc, argv), "halvor");
    } catch (const std::exception& error) {
        std::printf("main: %s\n", error.what());
        return 1;
    }
}
