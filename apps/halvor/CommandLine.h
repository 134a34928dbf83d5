// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace halvorapp {

/// Path of the settings that belong to a program: "Marlo-Works/Halvor.ini" beside it.
///
/// @param program  as the command line names it; its folder ends at the last backslash, or if there is none
///                 at the last slash
std::string defaultSettingsPath(const std::string& program);

/// Runs the program "halvor": processes the stream of the settings, or each stream of the command line.
///
/// @return exit status: 0, or 1 when a stream failed or an argument is missing
int runHalvor(int argc, const char* const* argv);

}  // namespace halvorapp
