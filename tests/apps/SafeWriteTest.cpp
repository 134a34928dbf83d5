#include "apps/vxkit/SafeWrite.h"

#include <gtest/gtest.h>

#include "TemporaryFolder.h"
#include "apps/vxkit/Failure.h"

using namespace vxapp;

namespace {

class SafeWrite : public TemporaryFolder
{};

}  // namespace

TEST_F(SafeWrite, ShowsTheFileOnlyAfterCommit)
{
    const auto path = folder / "a.png";
    {
        SafeFile file(path, false);
        EXPECT_EQ(file.temporaryPath().parent_path(), folder);
        EXPECT_EQ(file.temporaryPath().extension(), ".png");
        writeText(file.temporaryPath(), "new");
        EXPECT_FALSE(std::filesystem::exists(path));
        file.commit();
    }
    EXPECT_EQ(textOf(path), "new");
    EXPECT_EQ(fileCount(), 1U);
}

TEST_F(SafeWrite, LeavesNothingBehindWithoutCommit)
{
    {
        SafeFile file(folder / "a.png", false);
        writeText(file.temporaryPath(), "half");
    }
    EXPECT_EQ(fileCount(), 0U);
    EXPECT_THROW(writeSafely(folder / "b", false,
                             [](const std::filesystem::path& path) {
                                 writeText(path, "half");
                                 return false;
                             }),
                 UsageError);
    EXPECT_EQ(fileCount(), 0U);
}

TEST_F(SafeWrite, ReplacesAnExistingFileOnlyWhenForced)
{
    const auto path = folder / "a.txt";
    writeText(path, "old");
    const auto writeNew = [](const std::filesystem::path& target) {
        writeText(target, "new");
        return true;
    };
    EXPECT_THROW(writeSafely(path, false, writeNew), UsageError);
    EXPECT_EQ(textOf(path), "old");
    writeSafely(path, true, writeNew);
    EXPECT_EQ(textOf(path), "new");
    EXPECT_EQ(fileCount(), 1U);
}

TEST_F(SafeWrite, RefusesAFileThatAppearedMeanwhile)
{
    const auto path = folder / "a.txt";
    {
        SafeFile file(path, false);
        writeText(file.temporaryPath(), "new");
        writeText(path, "other");
        EXPECT_THROW(file.commit(), UsageError);
    }
    EXPECT_EQ(textOf(path), "other");
    EXPECT_EQ(fileCount(), 1U);
}

TEST_F(SafeWrite, RefusesFoldersAndMissingFolders)
{
    EXPECT_THROW(requireWritable(folder, true), UsageError);
    EXPECT_THROW(requireWritable(folder / "missing" / "a.txt", true), UsageError);
    EXPECT_THROW(requireWritable("", false), UsageError);
}
