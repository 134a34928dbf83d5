// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/arguments/CompletionScripts.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>
#include <vector>

#include "apps/vxkit/arguments/CommonOptions.h"
#include "apps/vxkit/arguments/KnownWords.h"

namespace vxapp {

namespace {

std::vector<const CLI::App*> shownCommands(const CLI::App& program)
{
    return program.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
}

std::string joined(const std::vector<std::string>& words, const std::string& prefix = "")
{
    std::string text;
    for (const std::string& word : words)
        text.append(text.empty() ? "" : " ").append(prefix).append(word);
    return text;
}

// The words that a value is one of, with spaces between them; empty for any other value.
std::string choicesOf(const CLI::Option& option)
{
    std::string words = valueName(option);
    if (!words.starts_with('{') || !words.ends_with('}'))
        return "";
    std::replace(words.begin(), words.end(), ',', ' ');
    return words.substr(1, words.size() - 2);
}

/// A command's options that are shown, and those of all commands.
std::vector<const CLI::Option*> shownOptions(const CLI::App& command)
{
    const auto isShown = [](const CLI::Option* option) {
        return !option->get_group().empty() && !option->get_positional();
    };
    std::vector<const CLI::Option*> options = command.get_options(isShown);
    if (command.get_parent() != nullptr)
        for (const CLI::Option* option : command.get_parent()->get_options(isShown))
            if (option->get_group() == commonGroup)
                options.push_back(option);
    return options;
}

std::string bashValues(const CLI::App& command)
{
    std::ostringstream text;
    for (const CLI::Option* option : shownOptions(command)) {
        const std::string choices = choicesOf(*option);
        if (choices.empty())
            continue;
        const char* separator = "    ";
        for (const std::string& name : option->get_lnames()) {
            text << separator << '"' << command.get_name() << " --" << name << '"';
            separator = " | ";
        }
        text << ") words=\"" << choices << "\" ;;\n";
    }
    return text.str();
}

// Text between single quotes, where it is no pattern and no part of a list.
std::string zshText(const std::string& text)
{
    std::string safe;
    for (const char c : text.substr(0, text.find('\n')))
        if (c == '\'')
            safe += "'\\''";
        else if (c == '[' || c == ']' || c == ':' || c == '\\')
            safe += std::string("\\") + c;
        else
            safe += c;
    return safe;
}

std::string zshOption(const CLI::Option& option)
{
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames())
        names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        names.push_back("--" + name);
    const std::string all = joined(names);
    std::replace(names.begin(), names.end(), std::string(" "), std::string());
    std::string list;
    for (const std::string& name : names)
        list += (list.empty() ? "" : ",") + name;
    std::string value;
    if (!valueName(option).empty()) {  // else a flag
        const std::string choices = choicesOf(option);
        value = ":" + (choices.empty() ? zshText(valueName(option)) + ":_files" : "value:(" + choices + ")");
    }
    const std::string described = "'[" + zshText(option.get_description()) + "]" + value + "'";
    return names.size() == 1 ? names.front() + described : "'(" + all + ")'{" + list + "}" + described;
}

}  // namespace

std::string bashCompletion(const CLI::App& program)
{
    const std::string commands = joined(commandNames(program));
    std::string names = commands;
    std::replace(names.begin(), names.end(), ' ', '|');
    std::ostringstream text;
    text << "# bash completion for vxkit\n"
            "_vxkit() {\n"
            "  local word current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]} command= "
            "words=\n"
            "  COMPREPLY=()\n"
            "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
            "    case $word in "
         << names
         << ") command=$word; break ;; esac\n"
            "  done\n"
            "  case \"$command $previous\" in\n"
            "    'help help') words=\""
         << commands << "\" ;;\n";
    for (const CLI::App* command : shownCommands(program))
        text << bashValues(*command);
    text << "    *)\n"
            "      case \"$command $current\" in\n"
            "        ' -'*) words=\""
         << joined(optionNames(program), "--")
         << "\" ;;\n"
            "        ' '*) words=\""
         << commands << "\" ;;\n";
    for (const CLI::App* command : shownCommands(program))
        text << "        '" << command->get_name() << " -'*) words=\"" << joined(optionNames(*command), "--")
             << "\" ;;\n";
    text << "      esac ;;\n"
            "  esac\n"
            "  if [ -n \"$words\" ]; then mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\"); "
            "fi\n"
            "}\n"
            "complete -o default -F _vxkit vxkit\n";
    return text.str();
}

std::string zshCompletion(const CLI::App& program)
{
    std::ostringstream text;
    text << "#compdef vxkit\n"
            "# zsh completion for vxkit\n"
            "_vxkit() {\n"
            "  local -a commands\n"
            "  commands=(\n";
    for (const CLI::App* command : shownCommands(program))
        text << "    '" << command->get_name() << ":" << zshText(command->get_description()) << "'\n";
    text << "  )\n"
            "  if (( CURRENT == 2 )); then\n"
            "    _describe command commands\n"
            "    _arguments";
    for (const CLI::Option* option : shownOptions(program))
        text << " \\\n      " << zshOption(*option);
    text << "\n    return\n"
            "  fi\n"
            "  local command=$words[2]\n"
            "  shift words\n"
            "  (( CURRENT-- ))\n"
            "  case $command in\n";
    for (const CLI::App* command : shownCommands(program)) {
        text << "    " << command->get_name() << ")\n      _arguments";
        for (const CLI::Option* option : shownOptions(*command))
            text << " \\\n        " << zshOption(*option);
        text << (command->get_name() == "help"
                     ? " \\\n        '1:command:(" + joined(commandNames(program)) + ")'"
                     : " \\\n        '*:file:_files'")
             << " ;;\n";
    }
    text << "  esac\n"
            "}\n"
            "_vxkit \"$@\"\n";
    return text.str();
}

}  // namespace vxapp
