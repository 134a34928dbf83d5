// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/arguments/CommonOptions.h"

#include <CLI/CLI.hpp>
#include <regex>
#include <sstream>

#include "apps/vxkit/arguments/SettingsFile.h"
#include "apps/vxkit/input/RegularFile.h"
#include "apps/vxkit/terminal/Versions.h"

namespace vxapp {

namespace {

/// Shows the common options behind a command's own, and types of values as people would name them.
class HelpFormatter : public CLI::Formatter
{
public:
    // What a command has in this place: none has commands of its own.
    std::string make_subcommands(const CLI::App* app, CLI::AppFormatMode mode) const override
    {
        if (app->get_parent() == nullptr)
            return CLI::Formatter::make_subcommands(app, mode);
        return make_group(commonGroup, false, app->get_parent()->get_options([](const CLI::Option* option) {
            return option->get_group() == commonGroup;
        }));
    }

    std::string make_option_opts(const CLI::Option* option) const override
    {
        std::string text;
        const std::string type = option->get_type_size() != 0 ? valueName(*option) : "";
        if (!type.empty() && type != option->get_name())
            text += ' ' + type;
        if (!option->get_default_str().empty())
            text += '=' + option->get_default_str();
        if (option->get_positional() && option->get_expected_max() == CLI::detail::expected_max_vector_size)
            text += " ...";
        return text;
    }
};

}  // namespace

std::string valueName(const CLI::Option& option)
{
    const std::string type = option.get_type_name();
    const std::size_t choices = type.find('{');
    if (choices != std::string::npos)
        return type.substr(choices);
    // Behind the name stand the checks of the value, each behind a colon.
    static const std::regex checks(":(NONNEGATIVE|POSITIVE|NUMBER|[A-Z]+ in .*)");
    std::string name = std::regex_replace(type, checks, "");
    if (name != "TEXT")
        return name;
    return option.get_positional() ? option.get_name() : "VALUE";
}

void addCommonOptions(CLI::App& program, CommonOptions& options)
{
    CLI::Option* quiet = program.add_flag("-q,--quiet", options.quiet,
                                          "Print no remarks and no progress; warnings and errors remain");
    CLI::Option* verbose = program.add_flag(
        "-v,--verbose", options.verbose,
        "Also tell versions, settings in force, time and memory (on the standard error\nstream)");
    CLI::Option* config =
        program.set_config("--config", "",
                           "Take options that the command line does not give from this file:\n"
                           "lines OPTION=VALUE without dashes, below a line [COMMAND]");
    config->type_name("FILE")->check(CLI::Validator(
        [](const std::string& path) {
            const std::string kind = irregularKindOf(path);
            return kind.empty() ? "" : path + ": is " + kind + "; expected a settings file";
        },
        ""));
    for (CLI::Option* option : {quiet, verbose, config})
        option->group(commonGroup);
    program.config_formatter(std::make_shared<SettingsFile>(program));
    program.formatter(std::make_shared<HelpFormatter>());
    for (CLI::App* command : program.get_subcommands({})) {
        command->fallthrough();
        command->formatter(program.get_formatter());
    }
}

std::string invocationText(const CLI::App& command)
{
    std::ostringstream text;
    text << versionText() << "\n" << command.get_name() << '\n';
    for (const CLI::Option* option : command.get_options()) {
        if (option->count() == 0)
            continue;
        text << "  " << option->get_name() << ':';
        for (const std::string& value : option->results())
            text << ' ' << value;
        text << '\n';
    }
    return text.str();
}

}  // namespace vxapp
