// SPDX-License-Identifier: Apache-2.0
#include "bindings/c/Settings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include "bindings/c/Failure.h"

namespace vxc {

namespace {

std::string plainText(double value)
{
    std::array<char, 64> digits{};
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    return {digits.data(), end};
}

Setting setting(std::string name, vxkit_setting_type type, double low, double high, double standard,
                std::string unit, std::string help)
{
    return {.name = std::move(name),
            .type = type,
            .low = low,
            .high = high,
            .standard = standard,
            .unit = std::move(unit),
            .help = std::move(help)};
}

// The ends of single precision mean that there is none.
std::string rangeText(double low, double high)
{
    constexpr double aboveZero = std::numeric_limits<float>::min();
    constexpr double largest = std::numeric_limits<float>::max();
    if (low == aboveZero)
        return "a number above 0" + (high < largest ? ", at most " + plainText(high) : std::string());
    return plainText(low) + (high < largest ? " to " + plainText(high) : " or more");
}

std::string expected(const Setting& setting)
{
    if (setting.type == VXKIT_CHOICE)
        return "expected one of " + setting.joinedChoices;
    if (setting.type == VXKIT_SWITCH)
        return "expected 0 or 1, off or on";
    if (setting.type == VXKIT_INTEGER)
        return "expected a whole number from " + plainText(setting.low) + " to " + plainText(setting.high);
    return "expected " + rangeText(setting.low, setting.high);
}

[[noreturn]] void refuse(const Setting& setting, const std::string& found)
{
    throw Failure(VXKIT_OUT_OF_RANGE, setting.name + " " + found + ": " + expected(setting));
}

}  // namespace

Setting integerSetting(std::string name, double low, double high, double standard, std::string unit,
                       std::string help)
{
    return setting(std::move(name), VXKIT_INTEGER, low, high, standard, std::move(unit), std::move(help));
}

Setting numberSetting(std::string name, double low, double high, double standard, std::string unit,
                      std::string help)
{
    return setting(std::move(name), VXKIT_NUMBER, low, high, standard, std::move(unit), std::move(help));
}

Setting switchSetting(std::string name, bool standard, std::string help)
{
    return setting(std::move(name), VXKIT_SWITCH, 0.0, 1.0, standard ? 1.0 : 0.0, "", std::move(help));
}

Setting choiceSetting(std::string name, std::vector<std::string> choices, std::size_t standard,
                      std::string help)
{
    Setting result = setting(std::move(name), VXKIT_CHOICE, 0.0, static_cast<double>(choices.size()) - 1.0,
                             static_cast<double>(standard), "", std::move(help));
    for (const std::string& choice : choices)
        result.joinedChoices += (result.joinedChoices.empty() ? "" : "|") + choice;
    result.standardText = choices[standard];
    result.choices = std::move(choices);
    return result;
}

Setting textSetting(std::string name, std::string standard, std::string help)
{
    Setting result = setting(std::move(name), VXKIT_TEXT, 0.0, 0.0, dependsOnSize, "", std::move(help));
    result.standardText = std::move(standard);
    return result;
}

Setting atOnce(Setting setting)
{
    setting.atOnce = true;
    return setting;
}

vxkit_setting_info infoOf(const Setting& setting)
{
    return {.name = setting.name.c_str(),
            .type = setting.type,
            .low = setting.low,
            .high = setting.high,
            .default_number = setting.standard,
            .default_text = setting.standardText.c_str(),
            .choices = setting.joinedChoices.c_str(),
            .unit = setting.unit.c_str(),
            .help = setting.help.c_str(),
            .at_once = setting.atOnce ? 1 : 0};
}

std::size_t indexOf(const SettingsTable& table, const std::string& name)
{
    const auto found =
        std::find_if(table.begin(), table.end(), [&](const Setting& known) { return known.name == name; });
    if (found != table.end())
        return static_cast<std::size_t>(found - table.begin());
    std::string names;
    for (const Setting& known : table)
        names += (names.empty() ? "" : ", ") + known.name;
    throw Failure(VXKIT_UNKNOWN_NAME, "setting \"" + name + "\": expected one of " + names);
}

double checkedNumber(const Setting& setting, double value)
{
    const bool needsWhole = setting.type != VXKIT_NUMBER;
    if (!(value >= setting.low && value <= setting.high) || (needsWhole && value != std::floor(value)))
        refuse(setting, plainText(value));
    return value;
}

double numberFromText(const Setting& setting, const std::string& text)
{
    for (std::size_t i = 0; i < setting.choices.size(); ++i)
        if (setting.choices[i] == text)
            return static_cast<double>(i);
    if (setting.type == VXKIT_SWITCH) {
        if (text == "true" || text == "on")
            return 1.0;
        if (text == "false" || text == "off")
            return 0.0;
    }
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        refuse(setting, "\"" + text + "\"");
    return checkedNumber(setting, value);
}

std::string textOfNumber(const Setting& setting, double value)
{
    if (setting.type == VXKIT_CHOICE)
        return setting.choices.at(static_cast<std::size_t>(value));
    return plainText(value);
}

double asWritten(float value)
{
    std::array<char, 64> digits{};
    const auto written = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    double result = 0.0;
    std::from_chars(digits.data(), written.ptr, result);
    return result;
}

SettingValues::SettingValues(const SettingsTable& table) : table_(&table), chosen_(table.size(), false)
{
    for (const Setting& setting : table) {
        numbers_.push_back(setting.standard);
        texts_.push_back(setting.type == VXKIT_TEXT ? setting.standardText : std::string());
    }
}

void SettingValues::choose(std::size_t index, double number)
{
    numbers_[index] = number;
    chosen_[index] = true;
}

void SettingValues::choose(std::size_t index, std::string text)
{
    texts_[index] = std::move(text);
    chosen_[index] = true;
}

double SettingValues::number(const char* name) const
{
    return numbers_[at(name)];
}

const std::string& SettingValues::text(const char* name) const
{
    return texts_[at(name)];
}

bool SettingValues::isChosen(const char* name) const
{
    return chosen_[at(name)];
}

std::size_t SettingValues::at(const char* name) const
{
    return indexOf(*table_, name);
}

}  // namespace vxc
