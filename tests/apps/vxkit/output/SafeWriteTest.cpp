// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/output/SafeWrite.h"

#include <gtest/gtest.h>

#include "apps/TemporaryFolder.h"
#include "apps/vxkit/terminal/Failure.h"

using namespace vxapp;

namespace {

using SafeWrite = TemporaryFolder;

}  // namespace

TEST_F(SafeWrite, ShowsTheFileOnlyAfterCommitAndNothingWithoutIt)
{
    const auto path = folder_ / "a.png";
    for (const bool isWhole : {false, true}) {
        SafeFile file(path, false);
        EXPECT_EQ(file.temporaryPath().parent_path(), folder_);
        EXPECT_EQ(file.temporaryPath().extension(), ".png");
        writeText(file.temporaryPath(), "new");
        EXPECT_EQ(fileCount(), 1U) << "of what was not committed nothing is left";
        EXPECT_FALSE(std::filesystem::exists(path));
        if (isWhole)
            file.commit();
    }
    EXPECT_EQ(textOf(path), "new");
    EXPECT_EQ(fileCount(), 1U);
}

TEST_F(SafeWrite, ReplacesAnExistingFileOnlyWhenForced)
{
    const auto path = folder_ / "a.txt";
    const auto write = [&](bool force, bool succeeds) {
        writeSafely(path, force, [&](const std::filesystem::path& target) {
            writeText(target, "new");
            return succeeds;
        });
    };
    EXPECT_THROW(write(false, false), UsageError);
    EXPECT_EQ(fileCount(), 0U);
    writeText(path, "old");
    EXPECT_THROW(write(false, true), UsageError);
    EXPECT_EQ(textOf(path), "old");
    write(true, true);
    EXPECT_EQ(textOf(path), "new");
    {
        std::filesystem::remove(path);
        SafeFile file(path, false);
        writeText(file.temporaryPath(), "new");
        writeText(path, "other");
        EXPECT_THROW(file.commit(), UsageError) << "one that appeared meanwhile";
    }
    EXPECT_EQ(textOf(path), "other");
    EXPECT_EQ(fileCount(), 1U);
}

TEST_F(SafeWrite, RefusesFoldersAndMissingFolders)
{
    EXPECT_THROW(requireWritable(folder_, true), UsageError);
    EXPECT_THROW(requireWritable(folder_ / "missing" / "a.txt", true), UsageError);
    EXPECT_THROW(requireWritable("", false), UsageError);
}
