// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <vector>

#include "bindings/c/vxkit.h"

// Settings by name: the table of a kind, and an object's values.
namespace vxc {

inline constexpr double dependsOnSize = std::numeric_limits<double>::quiet_NaN();

struct Setting
{
    std::string name;
    vxkit_setting_type type = VXKIT_INTEGER;
    double low = 0.0;
    double high = 0.0;
    double standard = 0.0;
    std::string unit;
    std::string help;
    bool atOnce = false;
    std::vector<std::string> choices{};
    std::string standardText{};
    std::string joinedChoices{};
};

using SettingsTable = std::vector<Setting>;

Setting integerSetting(std::string name, double low, double high, double standard, std::string unit,
                       std::string help);
Setting numberSetting(std::string name, double low, double high, double standard, std::string unit,
                      std::string help);
Setting switchSetting(std::string name, bool standard, std::string help);
Setting choiceSetting(std::string name, std::vector<std::string> choices, std::size_t standard,
                      std::string help);
Setting textSetting(std::string name, std::string standard, std::string help);
/// The same, to be changed at any time.
Setting atOnce(Setting setting);

vxkit_setting_info infoOf(const Setting& setting);

/// @throws Failure  for a name that the table has not
std::size_t indexOf(const SettingsTable& table, const std::string& name);

/// @return the value
/// @throws Failure  for a value out of range, or of no whole number where one is asked for
double checkedNumber(const Setting& setting, double value);
/// What a text means for a setting that is not a TEXT.
/// @throws Failure  as checkedNumber(), and for a text that is no number and none of the names
double numberFromText(const Setting& setting, const std::string& text);
/// The shortest text that numberFromText() takes back to the value.
std::string textOfNumber(const Setting& setting, double value);

/// A float as people write it: 0.683, not 0.68300002813.
double asWritten(float value);

/// The values of one object, and which of them were chosen.
class SettingValues
{
public:
    explicit SettingValues(const SettingsTable& table);

    double number(std::size_t index) const { return numbers_[index]; }
    const std::string& text(std::size_t index) const { return texts_[index]; }
    bool isChosen(std::size_t index) const { return chosen_[index]; }
    void choose(std::size_t index, double number);
    void choose(std::size_t index, std::string text);
    /// Changes a value that nobody chose.
    void presume(std::size_t index, double number) { numbers_[index] = number; }

    // By name, for what opens an engine; the names are the table's.
    double number(const char* name) const;
    int integer(const char* name) const { return static_cast<int>(number(name)); }
    const std::string& text(const char* name) const;
    bool isChosen(const char* name) const;

private:
    std::size_t at(const char* name) const;

    const SettingsTable* table_;
    std::vector<double> numbers_;
    std::vector<std::string> texts_;
    std::vector<bool> chosen_;
};

}  // namespace vxc
