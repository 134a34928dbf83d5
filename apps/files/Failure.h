// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace vxfiles {

/// Bad input: the message names the input and says what was expected.
class UsageError : public std::runtime_error
{
public:
    explicit UsageError(const std::string& message);
};

/// A result that could not be written whole, through no fault of the input: a full disk, a closed pipe. The message
/// names the file; an earlier file of that name stands as it was.
class WriteError : public std::runtime_error
{
public:
    explicit WriteError(const std::string& message);
};

/// "FILE can't be written: No space left on device"
/// @param error  of errno; 0 for no reason that is known
WriteError writeFailure(const std::filesystem::path& path, int error);

}  // namespace vxfiles
