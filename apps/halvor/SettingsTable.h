// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>

namespace halvorapp {

/// A key of the settings files, as help, manual page and example tell about it.
struct SettingsKey
{
    const char* section;
    const char* key;
    const char* value;  ///< that holds without the key; in brackets where it is no plain value
    const char* help;   ///< one line

    /// Whether the example can state the value.
    bool hasValue() const { return value[0] != '('; }
    /// A line of a settings file.
    std::string line() const { return std::string(key) + "=" + (hasValue() ? value : ""); }
};

/// All keys, by sections in the order of the chain.
std::span<const SettingsKey> settingsTable();

/// A settings file with every key, its default and what it does.
std::string exampleSettings();

}  // namespace halvorapp
