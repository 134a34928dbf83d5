// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/HelpCommand.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "apps/vxkit/arguments/KnownWords.h"
#include "apps/vxkit/terminal/Failure.h"
#include "apps/vxkit/terminal/Verbosity.h"

namespace vxapp {

namespace {

void help(const CLI::App& program, const std::string& name)
{
    const CLI::App* command = name.empty() ? &program : findCommand(program, name);
    if (command == nullptr)
        throw UsageError(name + ": no such command" + suggestion(name, commandNames(program)) +
                         " (vxkit --help lists them)");
    // Made by hand, since CLI::App::help tells of the command that was parsed.
    const std::string title = (name.empty() ? "" : program.get_name() + " ") + command->get_name();
    resultStream() << command->get_formatter()->make_help(command, title, CLI::AppFormatMode::Normal)
                   << std::flush;
}

}  // namespace

void addHelpCommand(CLI::App& program)
{
    CLI::App& command = *program.add_subcommand("help", "Tells what a command does and all of its options");
    auto name = std::make_shared<std::string>();
    command.add_option("COMMAND", *name, "Its name (default: all commands, one line each)");
    command.callback([&program, name] { help(program, *name); });
}

}  // namespace vxapp
