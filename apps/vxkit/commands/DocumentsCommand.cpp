// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/DocumentsCommand.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <string>

#include "apps/files/OutputFile.h"
#include "apps/halvor/Help.h"
#include "apps/halvor/SettingsTable.h"
#include "apps/vxkit/arguments/CompletionScripts.h"
#include "apps/vxkit/arguments/ManualPages.h"

namespace vxapp {

namespace {

void write(const std::filesystem::path& path, const std::string& text)
{
    std::error_code ignored;  // shows when there is no folder to write to
    std::filesystem::create_directories(path.parent_path(), ignored);
    vxfiles::writeFile(path, text, true);
}

// As they lie below the folder "share" of an installation.
void writeDocuments(const CLI::App& program, const std::filesystem::path& folder)
{
    write(folder / "man1/vxkit.1", manualPage(program));
    for (const CLI::App* command : program.get_subcommands({}))
        if (!command->get_group().empty())
            write(folder / ("man1/vxkit-" + command->get_name() + ".1"), manualPage(*command));
    write(folder / "man1/halvor.1", manualPage("halvor", "the enhancer chain over raw streams, for firmware",
                                               halvorapp::usageLine, halvorapp::helpText()));
    write(folder / "bash/vxkit", bashCompletion(program));
    write(folder / "zsh/_vxkit", zshCompletion(program));
    write(folder / "vxkit/halvor.ini", halvorapp::exampleSettings());
}

}  // namespace

void addDocumentsCommand(CLI::App& program)
{
    CLI::App& command =
        *program.add_subcommand("documents", "Writes manual pages and completion for an installation");
    command.group("");
    auto folder = std::make_shared<std::string>();
    command.add_option("FOLDER", *folder, "Where to; existing files are replaced")->required();
    command.callback([&program, folder] { writeDocuments(program, *folder); });
}

}  // namespace vxapp
