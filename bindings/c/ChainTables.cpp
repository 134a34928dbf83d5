// SPDX-License-Identifier: Apache-2.0
// The settings of the chain and its blocks, made from the table that the options of `vxkit enhance` come from.

#include "bindings/c/ChainObject.h"
#include "support/drivers/ChainTable.h"

namespace vxc {

namespace {

using vxsupport::ChainSetting;
using vxsupport::ChainSettings;

Setting settingOf(const ChainSetting& setting, const std::string& name)
{
    const int standard = ChainSettings{}.*setting.field;
    if (setting.isMode()) {
        const auto names = vxsupport::histogramModeNames();
        return atOnce(choiceSetting(name, {names.begin(), names.end()}, static_cast<std::size_t>(standard),
                                    setting.help));
    }
    Setting result = integerSetting(name, setting.low, setting.high,
                                    setting.isRank() ? dependsOnSize : static_cast<double>(standard),
                                    setting.unit, setting.help);
    // A pipeline of another length is another block.
    return setting.field == &ChainSettings::sprDelay ? result : atOnce(result);
}

SettingsTable blockTable(std::size_t block)
{
    SettingsTable table;
    for (const ChainSetting& setting : vxsupport::chainTable())
        if (setting.block == block)
            table.push_back(settingOf(setting, setting.option));
    return table;
}

SettingsTable wholeTable()
{
    SettingsTable table;
    for (std::size_t block = 0; block < vxsupport::chainBlocks().size(); ++block) {
        const vxsupport::ChainBlock& owner = vxsupport::chainBlocks()[block];
        table.push_back(atOnce(switchSetting(owner.prefix, true, std::string(owner.name) + " is on")));
        for (const ChainSetting& setting : vxsupport::chainTable())
            if (setting.block == block)
                table.push_back(settingOf(setting, nameOf(setting)));
    }
    return table;
}

template <std::size_t block>
const SettingsTable& sharedBlockTable()
{
    static const SettingsTable table = blockTable(block);
    return table;
}

}  // namespace

const SettingsTable& chainSettings()
{
    static const SettingsTable table = wholeTable();
    return table;
}

const SettingsTable& temporalBlockSettings()
{
    return sharedBlockTable<0>();
}

const SettingsTable& patternBlockSettings()
{
    return sharedBlockTable<1>();
}

const SettingsTable& spatialBlockSettings()
{
    return sharedBlockTable<2>();
}

const SettingsTable& histogramBlockSettings()
{
    return sharedBlockTable<3>();
}

const SettingsTable& peakingBlockSettings()
{
    return sharedBlockTable<4>();
}

}  // namespace vxc
