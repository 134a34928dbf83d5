// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <iterator>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "apps/TemporaryFolder.h"
#include "apps/vxkit/commands/Program.h"

/// What a run of the vxkit program left behind.
struct ProgramRun
{
    int status;
    std::string out;
    std::string error;
};

/// Runs the program in this process.
/// @param arguments  without the program's name
inline ProgramRun runVxkit(const std::vector<std::string>& arguments)
{
    std::vector<const char*> argv = {"vxkit"};
    for (const std::string& argument : arguments)
        argv.push_back(argument.c_str());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    ProgramRun run{};
    run.status = vxapp::runProgram(static_cast<int>(argv.size()), argv.data());
    run.out = testing::internal::GetCapturedStdout();
    run.error = testing::internal::GetCapturedStderr();
    return run;
}

/// Whether a text is a single line.
inline bool isOneLine(const std::string& text)
{
    return !text.empty() && text.find('\n') == text.size() - 1;
}

/// Fixture that runs command lines on the files of its folder.
class ProgramFolder : public TemporaryFolder
{
protected:
    struct BadLine
    {
        std::string line;
        std::string told;
    };

    /// @param line  words; those that begin with a letter and have a dot name files in the folder
    ProgramRun run(const std::string& line) const
    {
        std::istringstream text(line);
        std::vector<std::string> words{std::istream_iterator<std::string>(text), {}};
        for (std::string& word : words)
            if (std::isalpha(static_cast<unsigned char>(word.front())) != 0 && word.find('.') < word.size())
                word = at(word);
        return runVxkit(words);
    }

    cv::Mat image(const std::string& name) const { return cv::imread(at(name), cv::IMREAD_UNCHANGED); }

    /// Expects one line that tells what is wrong, and a folder as it was.
    /// @param command, options  what stands in front of each line and behind it
    void expectRefusals(const std::string& command, const std::vector<BadLine>& cases,
                        const std::string& options = "") const
    {
        const auto before = contents();
        for (const BadLine& bad : cases) {
            const ProgramRun refused =
                run(std::string(command).append(" ").append(bad.line).append(" ").append(options));
            EXPECT_EQ(refused.status, 2) << bad.line;
            EXPECT_EQ(refused.out, "") << bad.line;
            EXPECT_THAT(refused.error,
                        testing::AllOf(testing::StartsWith("vxkit: "), testing::HasSubstr(bad.told)));
            EXPECT_TRUE(isOneLine(refused.error)) << refused.error;
            EXPECT_EQ(contents(), before) << bad.line;
        }
    }
};
