// SPDX-License-Identifier: Apache-2.0
#include "apps/files/OutputFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <thread>

#include "apps/TemporaryFolder.h"
#include "apps/files/Failure.h"
#include "apps/files/OutputNames.h"
#include "apps/files/ScratchFile.h"
#include "apps/files/SequenceList.h"

using namespace vxfiles;
namespace fs = std::filesystem;

namespace {

class OutputFileTest : public TemporaryFolder
{
protected:
    static unsigned modeOf(const fs::path& path)
    {
        struct stat facts
        {};
        return ::stat(path.c_str(), &facts) == 0 ? facts.st_mode & 07777U : 0U;
    }
};

}  // namespace

TEST_F(OutputFileTest, ShowsTheFileOnlyAfterCommitAndNothingWithoutIt)
{
    const fs::path path = folder_ / "a.png";
    for (const bool isWhole : {false, true}) {
        OutputFile file(path, false);
        EXPECT_EQ(file.temporaryPath().filename(), "a.png");
        EXPECT_EQ(modeOf(file.temporaryPath().parent_path()), 0700U) << "nobody may plant a link in it";
        file.append("ne");
        file.append("w");
        EXPECT_FALSE(fs::exists(path));
        if (isWhole)
            file.commit();
    }
    EXPECT_EQ(textOf(path), "new");
    EXPECT_EQ(fileCount(), 1U) << "of what was not committed nothing is left";
}

TEST_F(OutputFileTest, ReplacesAnExistingFileOnlyWhenForced)
{
    const fs::path path = folder_ / "a.txt";
    OutputFile late(path, false);
    late.append("late");
    writeText(path, "old");
    EXPECT_THROW(late.commit(), UsageError) << "one that appeared meanwhile";
    EXPECT_THROW(writeFile(path, "new", false), UsageError);
    EXPECT_EQ(textOf(path), "old");
    writeFile(path, "new", true);
    EXPECT_EQ(textOf(path), "new");
}

TEST_F(OutputFileTest, KeepsTheModeOfWhatItReplacesAndTheUmaskElsewhere)
{
    const ::mode_t before = ::umask(027);
    writeFile(folder_ / "new", "", true);
    EXPECT_EQ(modeOf(folder_ / "new"), 0640U);
    ::chmod(at("new").c_str(), 0604);
    writeFile(folder_ / "new", "other", true);
    ::umask(before);
    EXPECT_EQ(modeOf(folder_ / "new"), 0604U);
}

TEST_F(OutputFileTest, ReplacesTheFileBehindALinkAndKeepsTheLink)
{
    fs::create_directory(folder_ / "far");
    writeText(folder_ / "far" / "there", "old");
    fs::create_symlink("far/there", folder_ / "link");
    fs::create_symlink("far/absent", folder_ / "dangling");
    fs::create_symlink("circle", folder_ / "circle");
    EXPECT_THROW(writeFile(folder_ / "dangling", "new", false), UsageError);
    writeFile(folder_ / "link", "new", true);
    writeFile(folder_ / "dangling", "made", true);
    EXPECT_TRUE(fs::is_symlink(folder_ / "link"));
    EXPECT_EQ(textOf(folder_ / "far" / "there"), "new");
    EXPECT_TRUE(fs::is_symlink(folder_ / "dangling"));
    EXPECT_EQ(textOf(folder_ / "far" / "absent"), "made");
    EXPECT_THROW(writeFile(folder_ / "circle", "new", true), UsageError);
    EXPECT_EQ(fileCount(), 6U);
}

TEST_F(OutputFileTest, WritesPipesAndDevicesThroughAndReplacesNoOtherKind)
{
    const std::string pipe = at("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    std::string read;
    std::thread reader([&] { read = textOf(pipe); });
    writeFile(pipe, "through", true);
    reader.join();
    EXPECT_EQ(read, "through");
    EXPECT_TRUE(fs::is_fifo(pipe));
    EXPECT_THROW(writeFile("/dev/full", "x", true), WriteError);
    EXPECT_THROW(requireWritable(folder_, true), UsageError);
    EXPECT_THROW(requireWritable(folder_ / "missing" / "a.txt", true), UsageError);
    EXPECT_THROW(requireWritable("", false), UsageError);
}

TEST_F(OutputFileTest, TakesNamesAsLongAsTheSystem)
{
    const std::string longest = std::string(251, 'n') + ".tif";
    writeFile(folder_ / longest, "whole", false);
    EXPECT_EQ(textOf(folder_ / longest), "whole");
    EXPECT_THROW(requireWritable(folder_ / ("n" + longest), false), UsageError) << "ahead of the work";
}

TEST_F(OutputFileTest, LeavesAnEarlierFileWhereThereIsNoRoom)
{
    const fs::path path = folder_ / "a.raw";
    writeText(path, "old");
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit usual
    {};
    ::getrlimit(RLIMIT_FSIZE, &usual);
    const struct rlimit small
    {
        4096, usual.rlim_max
    };
    ::setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_THROW(writeFile(path, std::string(5000, 'x'), true), WriteError);
    ScratchFile scratch(path);
    EXPECT_THROW(scratch.append(std::string(5000, 'x')), WriteError);
    ::setrlimit(RLIMIT_FSIZE, &usual);
    std::signal(SIGXFSZ, before);
    EXPECT_EQ(textOf(path), "old");
    EXPECT_EQ(fileCount(), 1U);
}

TEST_F(OutputFileTest, ListsASequenceOnlyWhileAllItsFilesAreThere)
{
    const fs::path name = folder_ / "f.raw";
    const fs::path list = folder_ / "f.raw.sha256";
    writeText(folder_ / "f-0.raw", "earlier");
    writeText(list, "earlier");
    SequenceList sums(name, true);
    OutputFile first(folder_ / "f-0.raw", true);
    OutputFile second(folder_ / "f\n1.raw", false, first.folder());
    EXPECT_EQ(first.folder(), second.folder()) << "one for the whole sequence";
    first.append("abc");
    second.append("");
    for (OutputFile* file : {&first, &second}) {
        file->close();
        sums.add(file->path(), file->temporaryPath());
    }
    writeText(folder_ / "f\n1.raw", "in the way");
    EXPECT_THROW(putInPlace({&first, &second}, &sums.file()), UsageError);
    EXPECT_FALSE(fs::exists(list)) << "frames of both are there";
    fs::remove(folder_ / "f\n1.raw");
    second.commit();
    sums.file().commit();
    EXPECT_EQ(textOf(list),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad  f-0.raw\n"
              "\\e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855  f\\n1.raw\n");
}

TEST_F(OutputFileTest, SetsBytesAsideWithoutALeftover)
{
    ScratchFile scratch(folder_ / "video.avi");
    scratch.append("0123456789");
    std::string middle(3, ' ');
    scratch.read(4, middle);
    EXPECT_EQ(middle, "456");
    EXPECT_THROW(scratch.read(9, middle), WriteError);
    EXPECT_EQ(fileCount(), 0U);
}
