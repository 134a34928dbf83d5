// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <exception>

#include "apps/halvor/CommandLine.h"
#include "support/Threads.h"

int main(int argc, char** argv)
{
    vxsupport::shareMachine(argv);
    try {
        return halvorapp::runHalvor(argc, argv);
    } catch (const std::exception& error) {
        std::printf("main: %s\n", error.what());
        return 1;
    }
}
