// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>

#include "apps/files/Failure.h"

namespace vxapp {

/// Exit statuses of the vxkit program.
enum ExitStatus
{
    exitSuccess = 0,
    exitEngine = 1,  ///< an engine answered with a failure code, or a result could not be written
    exitUsage = 2,   ///< bad input or options
};

/// Ends the program with exitUsage.
using vxfiles::UsageError;
/// Ends the program with exitEngine.
using vxfiles::WriteError;

/// Failure of an engine, with its stored message. Ends the program with exitEngine.
class EngineError : public std::runtime_error
{
public:
    explicit EngineError(const std::string& message);
};

}  // namespace vxapp
