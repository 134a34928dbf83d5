// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace vxapp {

/// A manual page in the macros of man(7), made of the same descriptions as a command's help.
///
/// @param command  the program itself or one of its commands
std::string manualPage(const CLI::App& command);

/// A manual page of a text as a help prints it: paragraphs, headings that end in a colon, and tables.
///
/// @param name      of the program
/// @param summary   one line
/// @param synopsis  how it is called
std::string manualPage(const std::string& name, const std::string& summary, const std::string& synopsis,
                       const std::string& text);

}  // namespace vxapp
