// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "apps/vxkit/terminal/Verbosity.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace vxapp {

/// Name of the group of options that every command takes, ahead of the command's name or behind it.
inline constexpr char commonGroup[] = "Common options";

/// What every command lets the user choose.
struct CommonOptions
{
    bool quiet = false;
    bool verbose = false;

    Verbosity verbosity() const
    {
        return quiet ? Verbosity::quiet : verbose ? Verbosity::verbose : Verbosity::normal;
    }
};

/// Adds the common options to the program, for all commands that it has by then, and shows them in their help.
///
/// @param options  must live as long as the program
void addCommonOptions(CLI::App& program, CommonOptions& options);

/// What people call an option's value: the choices in braces if there are some, else a word in capitals.
std::string valueName(const CLI::Option& option);

/// Says what runs, on what, and each option that was given by the line or by a settings file, for --verbose.
std::string invocationText(const CLI::App& command);

}  // namespace vxapp
