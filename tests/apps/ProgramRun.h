#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "apps/vxkit/Program.h"

/// What a run of the vxkit program left behind.
struct ProgramRun
{
    int status;
    std::string out;
    std::string error;
};

/// Runs the program in this process.
/// @param arguments  without the program's name
inline ProgramRun runVxkit(const std::vector<std::string>& arguments)
{
    std::vector<const char*> argv = {"vxkit"};
    for (const std::string& argument : arguments)
        argv.push_back(argument.c_str());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    ProgramRun run{};
    run.status = vxapp::runProgram(static_cast<int>(argv.size()), argv.data());
    run.out = testing::internal::GetCapturedStdout();
    run.error = testing::internal::GetCapturedStderr();
    return run;
}

/// Whether a text is a single line.
inline bool isOneLine(const std::string& text)
{
    return !text.empty() && text.find('\n') == text.size() - 1;
}
