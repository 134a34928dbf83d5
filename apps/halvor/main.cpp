// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <exception>
#include <new>
#include <opencv2/core.hpp>

#include "apps/files/Process.h"
#include "apps/halvor/CommandLine.h"
#include "support/Threads.h"

namespace {

int outOfMemory()
{
    std::fprintf(stderr, "halvor: out of memory; expected smaller frames or more memory\n");
    return 1;
}

int failed(const std::exception& error)
{
    std::printf("main: %s\n", error.what());
    return 1;
}

}  // namespace

int main(int argc, char** argv)
{
    vxfiles::takeStandardDescriptors();
    vxsupport::shareMachine(argv);
    try {
        const vxfiles::SignalWatch watch("halvor");
        return vxfiles::statusOfReport(halvorapp::runHalvor(argc, argv), "halvor");
    } catch (const std::bad_alloc&) {
        return outOfMemory();
    } catch (const cv::Exception& error) {
        return error.code == cv::Error::StsNoMem ? outOfMemory() : failed(error);
    } catch (const std::exception& error) {
        return failed(error);
    }
}
