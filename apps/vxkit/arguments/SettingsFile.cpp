// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/arguments/SettingsFile.h"

#include <istream>

#include "apps/vxkit/arguments/KnownWords.h"
#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

// A section's head comes as an item of its own, and so does its end.
bool isBoundary(const CLI::ConfigItem& item)
{
    return item.name == "++" || item.name == "--";
}

void requireKnown(const CLI::ConfigItem& item, const CLI::App& program, const std::string& file)
{
    const CLI::App* command = &program;
    if (!item.parents.empty()) {
        command = findCommand(program, item.parents.front());
        if (command == nullptr || item.parents.size() > 1)
            throw UsageError(file + ": [" + item.fullname().substr(0, item.fullname().rfind('.')) +
                             "]: no such command" + suggestion(item.parents.front(), commandNames(program)));
    }
    if (isBoundary(item))
        return;
    const CLI::Option* option = command->get_option_no_throw("--" + item.name);
    if (option == nullptr || !option->get_configurable())
        throw UsageError(file + ": " + item.fullname() + ": no such option" +
                         suggestion(item.name, optionNames(*command)));
}

}  // namespace

std::vector<CLI::ConfigItem> SettingsFile::from_config(std::istream& input) const
{
    const auto files = program_.get_config_ptr()->as<std::vector<std::string>>();
    const std::string file = files.empty() ? "--config" : files.front();
    std::vector<CLI::ConfigItem> lines = ConfigBase::from_config(input);
    for (const CLI::ConfigItem& item : lines)
        requireKnown(item, program_, file);
    return lines;
}

}  // namespace vxapp
