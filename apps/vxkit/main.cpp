// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/Program.h"

int main(int argc, char** argv)
{
    return vxapp::runProgram(argc, argv);
}
