// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/arguments/ManualPages.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <sstream>
#include <vector>

#include "apps/vxkit/arguments/CommonOptions.h"
#include "apps/vxkit/terminal/Versions.h"

namespace vxapp {

namespace {

// Text that roff takes as it stands.
std::string escaped(const std::string& text)
{
    std::string safe;
    for (const char c : text)
        if (c == '\\')
            safe += "\\e";
        else if (c == '-')
            safe += "\\-";
        else
            safe += c;
    const bool isRequest = !safe.empty() && (safe[0] == '.' || safe[0] == '\'');
    return isRequest ? "\\&" + safe : safe;
}

std::string capitals(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

std::string head(const std::string& name, const std::string& summary, const std::string& synopsis)
{
    const std::string version = versionText();
    return ".TH " + escaped(capitals(name)) + " 1 \"\" \"" + version.substr(0, version.find('\n')) +
           "\" \"VxKit\"\n" + ".SH NAME\n" + escaped(name) + " \\- " + escaped(summary) +
           "\n.SH SYNOPSIS\n.nf\n" + escaped(synopsis) + "\n.fi\n";
}

bool isHeading(const std::string& line)
{
    return line.size() > 1 && line.back() == ':' && line.front() != ' ' &&
           line.find(". ") == std::string::npos;
}

// Tables and examples keep their lines.
bool isLaidOut(const std::vector<std::string>& block)
{
    return std::any_of(block.begin(), block.end(), [](const std::string& line) {
        const std::size_t first = line.find_first_not_of(' ');
        return first >= 4 || line.find("  ", first) != std::string::npos ||
               line.compare(first, 6, "vxkit ") == 0 || line.compare(first, 7, "halvor ") == 0;
    });
}

/// @param isFirst  behind a heading
void writeBlock(std::ostream& page, std::vector<std::string>& block, bool& isFirst)
{
    if (block.empty())
        return;
    const bool keepsLines = isLaidOut(block);
    page << (isFirst ? "" : ".PP\n") << (keepsLines ? ".nf\n" : "");
    isFirst = false;
    for (const std::string& line : block)
        page << escaped(keepsLines ? line : line.substr(line.find_first_not_of(' '))) << '\n';
    page << (keepsLines ? ".fi\n" : "");
    block.clear();
}

std::string bodyOf(const std::string& text)
{
    std::ostringstream page;
    std::istringstream lines(text);
    std::vector<std::string> block;
    bool isFirst = true;
    for (std::string line; std::getline(lines, line);) {
        if (line.find_first_not_of(' ') == std::string::npos) {
            writeBlock(page, block, isFirst);
        } else if (isHeading(line)) {
            writeBlock(page, block, isFirst);
            page << ".SH " << escaped(capitals(line.substr(0, line.size() - 1))) << '\n';
            isFirst = true;
        } else {
            block.push_back(line);
        }
    }
    writeBlock(page, block, isFirst);
    return page.str();
}

// What stands first in an option's entry: "-o, --output OUT".
std::string entryName(const CLI::Option& option)
{
    if (option.get_positional())
        return "\\fI" + escaped(option.get_name()) + "\\fR";
    std::string names;
    for (const std::string& name : option.get_snames())
        names += (names.empty() ? "\\fB\\-" : ", \\fB\\-") + escaped(name) + "\\fR";
    for (const std::string& name : option.get_lnames())
        names += (names.empty() ? "\\fB\\-\\-" : ", \\fB\\-\\-") + escaped(name) + "\\fR";
    return option.get_type_size() == 0 ? names : names + " \\fI" + escaped(valueName(option)) + "\\fR";
}

void writeEntries(std::ostream& page, const std::vector<const CLI::Option*>& options)
{
    for (const CLI::Option* option : options) {
        page << ".TP\n" << entryName(*option) << '\n';
        std::istringstream lines(option->get_description());
        for (std::string line; std::getline(lines, line);)
            page << escaped(line) << '\n';
        if (!option->get_default_str().empty())
            page << escaped("(default: " + option->get_default_str() + ")") << '\n';
    }
}

std::string optionsOf(const CLI::App& command)
{
    std::ostringstream page;
    const auto inGroup = [&command](const std::string& group, bool isPositional) {
        return command.get_options([&](const CLI::Option* option) {
            return option->get_group() == group && option->get_positional() == isPositional;
        });
    };
    const auto positionals = inGroup("Options", true);
    if (!positionals.empty()) {
        page << ".SH ARGUMENTS\n";
        writeEntries(page, positionals);
    }
    page << ".SH OPTIONS\n";
    for (const std::string& group : command.get_groups()) {
        if (group.empty() || inGroup(group, false).empty())
            continue;
        if (group != "Options")
            page << ".SS " << escaped(group) << '\n';
        writeEntries(page, inGroup(group, false));
    }
    if (command.get_parent() != nullptr) {
        page << ".SS " << commonGroup << '\n';
        writeEntries(page, command.get_parent()->get_options(
                               [](const CLI::Option* option) { return option->get_group() == commonGroup; }));
    }
    return page.str();
}

std::string synopsisOf(const CLI::App& command)
{
    if (command.get_parent() == nullptr)
        return command.get_name() + " [OPTIONS] COMMAND ...";
    std::string text = command.get_parent()->get_name() + " " + command.get_name() + " [OPTIONS]";
    for (const CLI::Option* option :
         command.get_options([](const CLI::Option* o) { return o->get_positional(); })) {
        const std::string more = option->get_items_expected_max() > 1 ? "..." : "";
        text +=
            option->get_required() ? " " + option->get_name() + more : " [" + option->get_name() + more + "]";
    }
    return text;
}

std::string commandsOf(const CLI::App& program)
{
    std::ostringstream page;
    page << ".SH COMMANDS\n";
    for (const CLI::App* command : program.get_subcommands({}))
        if (!command->get_group().empty())
            page << ".TP\n\\fB" << escaped(command->get_name()) << "\\fR\n"
                 << escaped(command->get_description()) << '\n';
    return page.str();
}

}  // namespace

std::string manualPage(const CLI::App& command)
{
    const CLI::App* program = command.get_parent();
    const std::string name = (program != nullptr ? program->get_name() + "-" : "") + command.get_name();
    std::string page = head(name, command.get_description(), synopsisOf(command));
    if (program == nullptr)
        page += commandsOf(command);
    page += optionsOf(command);
    const std::string footer = command.get_footer();
    if (!footer.empty() && !isHeading(footer.substr(0, footer.find('\n'))))
        page += ".SH NOTES\n";
    page += bodyOf(footer);
    return page + ".SH SEE ALSO\n" + escaped(program != nullptr ? "vxkit(1)" : "halvor(1)") + "\n";
}

std::string manualPage(const std::string& name, const std::string& summary, const std::string& synopsis,
                       const std::string& text)
{
    return head(name, summary, synopsis) + ".SH DESCRIPTION\n" + bodyOf(text) + ".SH SEE ALSO\nvxkit(1)\n";
}

}  // namespace vxapp
