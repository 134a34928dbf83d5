// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>

namespace vxapp {

/// Exit statuses of the vxkit program.
enum ExitStatus
{
    exitSuccess = 0,
    exitEngine = 1,  ///< an engine answered with a failure code
    exitUsage = 2,   ///< bad input or options
};

/// Bad input: the message names the input and says what was expected. Ends the program with exitUsage.
class UsageError : public std::runtime_error
{
public:
    explicit UsageError(const std::string& message);
};

/// Failure of an engine, with its stored message. Ends the program with exitEngine.
class EngineError : public std::runtime_error
{
public:
    explicit EngineError(const std::string& message);
};

}  // namespace vxapp
