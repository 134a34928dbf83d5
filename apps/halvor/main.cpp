// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <exception>
#include <new>

#include "apps/files/Process.h"
#include "apps/halvor/CommandLine.h"
#include "support/Threads.h"

int main(int argc, char** argv)
{
    vxfiles::takeStandardDescriptors();
    vxsupport::shareMachine(argv);
    try {
        const vxfiles::SignalWatch watch("halvor");
        return vxfiles::statusOfReport(halvorapp::runHalvor(argc, argv), "halvor");
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "halvor: out of memory; expected smaller frames or more memory\n");
        return 1;
    } catch (const std::exception& error) {
        std::printf("main: %s\n", error.what());
        return 1;
    }
}
