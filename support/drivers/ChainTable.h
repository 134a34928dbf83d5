// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>

#include "support/drivers/ChainSettings.h"

// The settings of the chain as a table, from which options, the reader of settings files and texts are made.
namespace vxsupport {

using ChainField = int ChainSettings::*;

/// A block of the chain: how options, files and people call it.
struct ChainBlock
{
    const char* prefix;
    const char* section;
    const char* name;
    ChainField enabled;  ///< 0 when the block is bypassed
};

struct ChainSetting
{
    std::size_t block;
    const char* option;  ///< behind the block's prefix
    const char* key;     ///< of a settings file; empty where files have none
    ChainField field;
    int low;
    int high;
    const char* unit;  ///< empty for plain numbers
    const char* help;

    bool isMode() const { return field == &ChainSettings::histMode; }
    /// Its default depends on the number of pixels.
    bool isRank() const
    {
        return field == &ChainSettings::histGainLow || field == &ChainSettings::histGainHigh;
    }
};

std::span<const ChainBlock> chainBlocks();
/// In the order of the blocks.
std::span<const ChainSetting> chainTable();
/// Names of the equaliser's modes, by number.
std::span<const char* const> histogramModeNames();

/// "tnr-alpha"
std::string nameOf(const ChainSetting& setting);
/// A value as people read it: modes by their names.
std::string valueText(const ChainSetting& setting, int value);

}  // namespace vxsupport
