// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace vxapp {

/// Reads the settings files of --config: options by their names, in sections that are named after the commands.
class SettingsFile : public CLI::ConfigBase
{
public:
    explicit SettingsFile(const CLI::App& program) : program_(program) {}

    /// @throws UsageError if the file names a command or an option that is not known, or can't be read
    std::vector<CLI::ConfigItem> from_config(std::istream& input) const override;

private:
    const CLI::App& program_;
};

}  // namespace vxapp
