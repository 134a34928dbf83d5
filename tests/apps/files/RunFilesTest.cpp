// SPDX-License-Identifier: Apache-2.0
#include "apps/files/RunFiles.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "apps/TemporaryFolder.h"
#include "apps/files/Failure.h"

using namespace vxfiles;
namespace fs = std::filesystem;

namespace {

using RunFilesTest = TemporaryFolder;

}  // namespace

TEST_F(RunFilesTest, KnowsInputsHoweverTheirNamesAreSpelled)
{
    writeText(folder_ / "in.tif", "");
    fs::create_hard_link(folder_ / "in.tif", folder_ / "same.tif");
    fs::create_symlink("in.tif", folder_ / "link.tif");
    fs::create_directory(folder_ / "sub");
    RunFiles files;
    for (const std::string name : {"in.tif", "-", "", "/dev/null", "missing.tif"})
        files.reads(name.size() > 3 && name[0] != '/' ? at(name) : name);
    for (const std::string name : {"in.tif", "same.tif", "link.tif", "sub/../in.tif", "./in.tif"})
        EXPECT_THROW(files.writes(at(name), true), UsageError) << name;
    files.writes("/dev/null", true);
    files.writes(at("missing.tif"), true);
    files.writes("", true);

    RunFiles later;
    later.writes(at("same.tif"), true);
    EXPECT_THROW(later.reads(at("in.tif")), UsageError) << "in either order";
}

TEST_F(RunFilesTest, GivesNoFileToTwoOutputs)
{
    fs::create_symlink("b.png", folder_ / "link.png");
    writeText(folder_ / "c.png", "");
    RunFiles files;
    for (const std::string name : {"a.png", "b.png", "c.png"})
        files.writes(at(name), true);
    for (const std::string name : {"a.png", "./a.png", "link.png", "c.png"})
        EXPECT_THROW(files.writes(at(name), true), UsageError) << name;
    files.writes("-", true);
    EXPECT_THROW(files.writes(at("no/such.png"), true), UsageError);
}

// Compared one by one these would take minutes.
TEST_F(RunFilesTest, TakesThousandsOfNames)
{
    constexpr int count = 10000;
    fs::create_directory(folder_ / "in");
    writeText(folder_ / "in" / "frame", "");
    RunFiles files;
    for (int i = 0; i < count; ++i)
        files.reads(folder_ / "in" / "frame");
    for (int i = 0; i < count; ++i)
        files.writes(folder_ / ("out-" + std::to_string(i)), false);
    EXPECT_THROW(files.writes(folder_ / "out-0", false), UsageError);
}
