// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <exception>

#include "apps/halvor/CommandLine.h"

int main(int argc, char** argv)
{
    try {
        return halvorapp::runHalvor(argc, argv);
    } catch (const std::exception& error) {
        std::printf("main: %s\n", error.what());
        return 1;
    }
}
