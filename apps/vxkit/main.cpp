#include "apps/vxkit/Program.h"

int main(int argc, char** argv)
{
    return vxapp::runProgram(argc, argv);
}
