// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/terminal/Verbosity.h"

#include <atomic>
#include <iostream>

namespace vxapp {

namespace {

// One for the whole process, as its output streams are.
Verbosity current = Verbosity::normal;
std::streambuf* silenced = nullptr;  // of the standard output, while remarks are
std::atomic<WarningSink> warningSink = nullptr;

}  // namespace

Verbosity verbosity()
{
    return current;
}

void warn(const std::string& text)
{
    if (const WarningSink sink = warningSink)
        sink(text);
    else
        std::cerr << "vxkit: warning: " << text << std::endl;
}

void setWarningSink(WarningSink sink)
{
    warningSink = sink;
}

std::ostream& resultStream()
{
    static std::ostream stream(nullptr);
    if (silenced == nullptr)
        return std::cout;
    stream.rdbuf(silenced);
    return stream;
}

VerbosityScope::VerbosityScope(Verbosity verbosity, bool hasRemarks)
{
    current = verbosity;
    if (hasRemarks)
        return;
    silenced = std::cout.rdbuf();
    silence_.emplace(nullptr);
}

VerbosityScope::~VerbosityScope()
{
    silence_.reset();
    silenced = nullptr;
    current = Verbosity::normal;
}

}  // namespace vxapp
