// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/arguments/ChainArguments.h"

#include <CLI/CLI.hpp>
#include <span>

#include "apps/vxkit/stream/Look.h"
#include "apps/vxkit/terminal/Failure.h"
#include "support/drivers/ChainTable.h"

namespace vxapp {

namespace {

using namespace vxsupport;

// Modes by their names or numbers; the number is what stays.
CLI::Validator modeCheck()
{
    return CLI::Validator(
        [](std::string& text) {
            const std::span<const char* const> names = histogramModeNames();
            std::string expected;
            for (std::size_t mode = 0; mode < names.size(); ++mode) {
                if (text == names[mode])
                    text = std::to_string(mode);
                if (text == std::to_string(mode))
                    return std::string();
                expected += std::string(mode > 0 ? ", " : "") + names[mode];
            }
            return text + ": expected one of " + expected;
        },
        "");
}

void addSetting(CLI::App& command, const ChainSetting& setting, std::optional<int>& value)
{
    std::string help = setting.help;
    if (!setting.isRank())
        help += " (device: " + valueText(setting, ChainSettings{}.*setting.field) + ")";
    CLI::Option* option = command.add_option("--" + vxsupport::nameOf(setting), value, help);
    if (setting.isMode())
        option->transform(modeCheck());
    else
        option->check(CLI::Range(setting.low, setting.high).description(""));
    option->type_name(setting.isMode() ? "MODE"
                                       : std::to_string(setting.low) + ".." + std::to_string(setting.high));
    option->group(chainBlocks()[setting.block].name);
}

void addBlock(CLI::App& command, const ChainBlock& block, std::optional<bool>& isOn)
{
    const std::string name = block.prefix;
    const auto set = [&isOn, name](bool value) {
        if (isOn == !value)
            throw UsageError("--" + name + " and --no-" + name + ": expected one of them");
        isOn = value;
    };
    command
        .add_flag_callback(
            "--no-" + name, [set] { set(false); }, "Bypass the block")
        ->group(block.name);
    command
        .add_flag_callback(
            "--" + name, [set] { set(true); }, "Run the block even if the settings file bypasses it")
        ->group(block.name);
}

}  // namespace

void addChainOptions(CLI::App& command, ChainOptions& options)
{
    const std::span<const vxsupport::ChainBlock> blocks = vxsupport::chainBlocks();
    const std::span<const vxsupport::ChainSetting> settings = vxsupport::chainTable();
    options.values.resize(settings.size());
    options.blocks.resize(blocks.size());
    std::string help = "How the picture is to look; each option of a block wins over it (default: " +
                       std::string(looks().front().name) + ")";
    for (const Look& look : looks())
        help += std::string("\n") + look.name + ": " + look.help;
    command.add_option("--look", options.look, help)->type_name("LOOK");
    command
        .add_option("--settings", options.file,
                    "Settings file of the stream processor, in place of a look; options on the command "
                    "line\nwin over it")
        ->type_name("FILE");
    for (std::size_t block = 0; block < blocks.size(); ++block) {
        addBlock(command, blocks[block], options.blocks[block]);
        for (std::size_t i = 0; i < settings.size(); ++i)
            if (settings[i].block == block)
                addSetting(command, settings[i], options.values[i]);
    }
}

}  // namespace vxapp
