// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/input/RegularFile.h"

#include <sys/stat.h>

#include "apps/FrameSamples.h"
#include "apps/ProgramRun.h"

using testing::HasSubstr;

namespace {

class FilesBesideRecordings : public ProgramFolder
{
protected:
    void SetUp() override
    {
        ProgramFolder::SetUp();
        for (int i = 0; i < 5; ++i)
            appendRaw(at("a.raw"), sampleCounts({32, 24}, i));
        ASSERT_EQ(::mkfifo(at("pipe.x").c_str(), 0600), 0);
    }
};

}  // namespace

TEST_F(FilesBesideRecordings, NamesWhatIsNoFile)
{
    EXPECT_EQ(vxapp::irregularKindOf(at("pipe.x")), "a pipe");
    EXPECT_EQ(vxapp::irregularKindOf(folder_), "a folder");
    EXPECT_EQ(vxapp::irregularKindOf("/dev/zero"), "a device");
    EXPECT_EQ(vxapp::irregularKindOf(at("a.raw")), "");
    EXPECT_EQ(vxapp::irregularKindOf(at("missing")), "");
}

// Each of these waited for the other end of the pipe, or read without end.
TEST_F(FilesBesideRecordings, RefusesPipesAndDevicesAtOnce)
{
    writeText(at("pipes.txt"), "counts-a = pipe.x\nradiance-a = 1\ncounts-b = pipe.x\nradiance-b = 2\n");
    std::filesystem::create_directory(at("set.x"));
    ASSERT_EQ(::mkfifo((folder_ / "set.x" / "vectors.txt").c_str(), 0600), 0);
    const std::string size = " --size 32x24";
    for (const std::string file : {"pipe.x", "/dev/zero"})
        expectRefusals(
            "",
            {{"info a.raw --config " + file + size, "; expected a settings file"},
             {"enhance a.raw -o o.tif --settings " + file + size, "; expected a settings file"},
             {"enhance a.raw -o o.tif --bad-pixels " + file + size, "; expected a map of bad pixels"},
             {"superres a.raw -o o.tif --radiance " + file + size, "; expected a calibration file"},
             {"filter a.raw -o o.tif --cluster --std-dev a.raw --mean " + file + size, "; expected an image"},
             {"superres a.raw -o o.tif --radiance pipes.txt" + size,
              "pipe.x: is a pipe; expected an image"}});
    expectRefusals("", {{"vectors --check set.x", "vectors.txt: is a pipe"}});
}
