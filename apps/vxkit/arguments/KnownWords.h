// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace vxapp {

/// Least number of letters that are put in, left out, replaced or swapped with their neighbour to make one word
/// of the other, where no letter is touched twice ("optimal string alignment").
int editDistance(std::string_view a, std::string_view b);

/// "; did you mean NAME?" with the name that is nearest to a word, or nothing if none is near.
std::string suggestion(const std::string& word, const std::vector<std::string>& names);

/// The command of a name, also one that is not shown to users; null if there is none.
const CLI::App* findCommand(const CLI::App& program, const std::string& name);

/// Names of the commands that are shown to users.
std::vector<std::string> commandNames(const CLI::App& program);
/// Long names of a command's options that are shown to users, without dashes, and those of all commands.
std::vector<std::string> optionNames(const CLI::App& command);

/// Looks for commands and options that nobody knows, before any value is taken, so that the misspelt word is
/// told and not what comes of it.
///
/// @param words  of the command line, without the program's name
/// @throws UsageError that names the first one, and what may have been meant
void requireKnownWords(const CLI::App& program, std::span<const char* const> words);

}  // namespace vxapp
