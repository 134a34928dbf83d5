// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "apps/vxkit/terminal/OutputRedirect.h"

namespace vxapp {

/// How much a command tells beside its results.
enum class Verbosity
{
    quiet,   ///< warnings and errors alone
    normal,  ///< also remarks on the standard output, and progress
    verbose  ///< also what helps to find a fault, on the standard error stream
};

/// That of the command that runs; normal where none does.
Verbosity verbosity();

inline bool isVerbose()
{
    return verbosity() == Verbosity::verbose;
}

/// Says something on the standard error stream that the user should know though the command goes on, also with
/// --quiet.
void warn(const std::string& text);

/// Takes the warnings of the whole process in place of the standard error stream, for hosts that have a log. May be
/// called on any thread. Null: the standard error stream.
using WarningSink = void (*)(const std::string& text);
void setWarningSink(WarningSink sink);

/// The standard output, for results: it speaks even where remarks, which go to std::cout, are silenced.
std::ostream& resultStream();

/// How much is told while it lives. Only one lives at a time.
class VerbosityScope
{
public:
    /// @param hasRemarks  whether std::cout speaks; results go through resultStream() all the same
    VerbosityScope(Verbosity verbosity, bool hasRemarks);
    ~VerbosityScope();
    VerbosityScope(const VerbosityScope&) = delete;
    VerbosityScope& operator=(const VerbosityScope&) = delete;

private:
    std::optional<OutputRedirect> silence_;
};

}  // namespace vxapp
