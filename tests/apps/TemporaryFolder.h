// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

/// Fixture with an empty folder of its own, also among test programs that run at the same time; removed after
/// the test.
class TemporaryFolder : public testing::Test
{
protected:
    void SetUp() override
    {
        const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
        folder_ =
            std::filesystem::temp_directory_path() / ("vxkit-" + std::string(test.test_suite_name()) + "-" +
                                                      test.name() + "-" + std::to_string(::getpid()));
        std::filesystem::remove_all(folder_);
        std::filesystem::create_directories(folder_);
    }

    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::string at(const std::string& name) const { return (folder_ / name).string(); }

    static void writeText(const std::filesystem::path& path, const std::string& text)
    {
        std::ofstream(path, std::ios::binary) << text;
    }

    static std::string textOf(const std::filesystem::path& path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    /// All files by their names, with what they hold; folders hold "".
    std::map<std::string, std::string> contents() const
    {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_))
            files[entry.path().string()] = entry.is_regular_file() ? textOf(entry.path()) : "";
        return files;
    }

    std::size_t fileCount() const
    {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::recursive_directory_iterator(folder_), {}));
    }

    std::filesystem::path folder_;
};
