// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "core/base/Export.h"

namespace halvor::vx {

/// A place in the source, for log lines and exceptions. The build maps `file` to a path below the project.
struct CodeLocation
{
    const char* file;  ///< path of the source, a literal that lives as long as the program
    int line;          ///< counted from 1
};

/// Where-text of an Exception: source path, ":", line, " : ", qualified function name and "(..)".
VXKIT_API std::string whereText(const CodeLocation& location, const std::string& function);

}  // namespace halvor::vx

/// The CodeLocation of this line.
#define VX_HERE (halvor::vx::CodeLocation{__FILE__, __LINE__})

/// Where-text of this line in the function whose qualified name is given as a string literal.
#define VX_WHERE(function) (halvor::vx::whereText(VX_HERE, function))
