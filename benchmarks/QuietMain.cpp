// SPDX-License-Identifier: Apache-2.0
#include <benchmark/benchmark.h>
#include <omp.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <opencv2/core/utility.hpp>
#include <string>

// The chain prints a line per frame on the standard output: it goes nowhere, and the report to where it was.
int main(int argc, char** argv)
{
    const int console = dup(STDOUT_FILENO);
    std::ofstream report("/dev/fd/" + std::to_string(console));
    // The stream that is reopened is the C library's own.
    if (console < 0 || !report ||
        std::freopen("/dev/null", "w", stdout) == nullptr)  // NOLINT(cppcoreguidelines-owning-memory)
        return 1;
    std::streambuf* const standard = std::cout.rdbuf(report.rdbuf());
    cv::setNumThreads(omp_get_max_threads());  // the peers get as many as we do
    benchmark::Initialize(&argc, argv);
    const bool understood = !benchmark::ReportUnrecognizedArguments(argc, argv);
    if (understood)
        benchmark::RunSpecifiedBenchmarks();
    report.flush();
    std::cout.rdbuf(standard);
    return understood ? 0 : 1;
}
