// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/arguments/KnownWords.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstddef>

#include "apps/vxkit/terminal/Failure.h"

namespace vxapp {

namespace {

bool isOption(const std::string& word)
{
    const bool isLong = word.size() > 2 && word.starts_with("--");
    const bool isShort =
        word.size() > 1 && word[0] == '-' && std::isalpha(static_cast<unsigned char>(word[1])) != 0;
    return isLong || isShort;
}

// "--name" of "--name=value", "-o" of "-ovalue"
std::string nameOf(const std::string& word)
{
    return word.starts_with("--") ? word.substr(0, word.find('=')) : word.substr(0, 2);
}

/// Goes over a command line as the parser does.
class WordCheck
{
public:
    WordCheck(const CLI::App& program, std::span<const char* const> words) : program_(program), words_(words)
    {}

    void run()
    {
        for (; next_ < words_.size() && std::string(words_[next_]) != "--"; ++next_) {
            const std::string word = words_[next_];
            if (isOption(word))
                checkOption(word);
            else if (command_ == nullptr)
                enterCommand(word);
        }
    }

private:
    void enterCommand(const std::string& word)
    {
        command_ = findCommand(program_, word);
        if (command_ == nullptr)
            throw UsageError(word + ": no such command" + suggestion(word, commandNames(program_)) +
                             " (vxkit --help lists them)");
    }

    void checkOption(const std::string& word)
    {
        const std::string name = nameOf(word);
        const CLI::App& command = command_ != nullptr ? *command_ : program_;
        const CLI::Option* option = command.get_option_no_throw(name);
        if (option == nullptr)
            option = program_.get_option_no_throw(name);
        if (option == nullptr)
            refuse(name, command);
        // The word that an option must have is its own, whatever it looks like.
        if (name == word)
            next_ += static_cast<std::size_t>(
                std::max(0, std::min(option->get_type_size_min(), option->get_items_expected_min())));
    }

    [[noreturn]] void refuse(const std::string& name, const CLI::App& command) const
    {
        std::vector<std::string> names;
        for (const std::string& known : optionNames(command))
            names.push_back("--" + known);
        const std::string where = command_ != nullptr ? "vxkit " + command.get_name() : "vxkit";
        throw UsageError(name + ": no such option of " + where + suggestion(name, names) + " (" + where +
                         " --help lists them)");
    }

    const CLI::App& program_;
    std::span<const char* const> words_;
    const CLI::App* command_ = nullptr;
    std::size_t next_ = 0;
};

}  // namespace

int editDistance(std::string_view a, std::string_view b)
{
    const std::size_t width = b.size() + 1;
    std::vector<int> table((a.size() + 1) * width);
    const auto at = [&](std::size_t i, std::size_t j) -> int& { return table[i * width + j]; };
    for (std::size_t i = 0; i <= a.size(); ++i)
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                at(i, j) = static_cast<int>(i + j);
                continue;
            }
            const bool isSame = a[i - 1] == b[j - 1];
            at(i, j) = std::min({at(i - 1, j) + 1, at(i, j - 1) + 1, at(i - 1, j - 1) + (isSame ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                at(i, j) = std::min(at(i, j), at(i - 2, j - 2) + 1);
        }
    return table.back();
}

std::string suggestion(const std::string& word, const std::vector<std::string>& names)
{
    const std::string letters = word.substr(std::min(word.find_first_not_of('-'), word.size()));
    const int most = std::max(1, static_cast<int>(letters.size()) / 3);
    std::string nearest;
    int least = most + 1;
    for (const std::string& name : names) {
        const int distance = editDistance(word, name);
        if (distance < least) {
            least = distance;
            nearest = name;
        }
    }
    // Who writes the beginning of a name means it.
    for (const std::string& name : names)
        if (nearest.empty() && letters.size() > 1 && name.starts_with(word))
            nearest = name;
    return nearest.empty() ? "" : "; did you mean " + nearest + "?";
}

const CLI::App* findCommand(const CLI::App& program, const std::string& name)
{
    const auto found =
        program.get_subcommands([&name](const CLI::App* command) { return command->check_name(name); });
    return found.empty() ? nullptr : found.front();
}

std::vector<std::string> commandNames(const CLI::App& program)
{
    std::vector<std::string> names;
    for (const CLI::App* command : program.get_subcommands({}))
        if (!command->get_group().empty())
            names.push_back(command->get_name());
    return names;
}

std::vector<std::string> optionNames(const CLI::App& command)
{
    std::vector<std::string> names;
    for (const CLI::App* app = &command; app != nullptr; app = app->get_parent())
        for (const CLI::Option* option : app->get_options())
            if (!option->get_group().empty())
                names.insert(names.end(), option->get_lnames().begin(), option->get_lnames().end());
    return names;
}

void requireKnownWords(const CLI::App& program, std::span<const char* const> words)
{
    WordCheck(program, words).run();
}

}  // namespace vxapp
