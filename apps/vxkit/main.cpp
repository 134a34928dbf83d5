// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/Program.h"
#include "support/Threads.h"

int main(int argc, char** argv)
{
    vxsupport::shareMachine(argv);
    return vxapp::runProgram(argc, argv);
}
