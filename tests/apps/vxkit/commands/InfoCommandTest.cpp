// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/InfoCommand.h"

#include <nlohmann/json.hpp>
#include <random>

#include "apps/FrameSamples.h"
#include "apps/ProgramRun.h"

using testing::HasSubstr;

namespace {

constexpr double noise = 3.0;

class InfoCommand : public ProgramFolder
{
protected:
    // A slope with noise, a hot pixel and a cold one.
    void SetUp() override
    {
        ProgramFolder::SetUp();
        std::mt19937 random(3);  // NOLINT(cert-msc51-cpp): the same frames in every run
        std::normal_distribution<double> normal(3000.0, noise);
        for (int i = 0; i < 12; ++i) {
            cv::Mat_<std::uint16_t> frame(40, 60);
            for (int y = 0; y < frame.rows; ++y)
                for (int x = 0; x < frame.cols; ++x)
                    frame(y, x) = static_cast<std::uint16_t>(std::lround(normal(random) + 2 * x));
            frame(7, 11) = 3900;
            frame(20, 31) = 2000;
            appendRaw(folder_ / "in.raw", frame);
        }
    }

    nlohmann::json fileOf(const std::string& line) const
    {
        return nlohmann::json::parse(run(line + " --json").out)["files"][0];
    }
};

}  // namespace

TEST_F(InfoCommand, TellsSizeRangeNoiseBadPixelsAndByteOrder)
{
    const auto file = fileOf("info in.raw --size 60x40");
    EXPECT_EQ(file["width"], 60);
    EXPECT_EQ(file["frames"], 12);
    EXPECT_EQ(file["type"], "u16");
    EXPECT_EQ(file["low"], 2000.0);
    EXPECT_EQ(file["high"], 3900.0);
    EXPECT_NEAR(file["noise_between_frames"].get<double>(), noise, 0.15);
    EXPECT_NEAR(file["noise_within_frame"].get<double>(), noise, 0.15);
    EXPECT_EQ(file["byte_order"], "right as read");
    ASSERT_EQ(file["bad_pixels"].size(), 2U);
    EXPECT_EQ(file["bad_pixels"][0], (nlohmann::json{{"row", 7}, {"column", 11}, {"hot", true}}));
    EXPECT_EQ(file["bad_pixels"][1]["hot"], false);
    EXPECT_THAT(run("info in.raw --size 60x40").out,
                HasSubstr("2 in 12 frames: hot (row 7, column 11), cold (row 20"));
}

TEST_F(InfoCommand, WarnsOfSwappedBytes)
{
    const auto read = run("info in.raw --size 60x40 --endian big");
    EXPECT_EQ(read.status, 0);
    EXPECT_THAT(read.error, HasSubstr("in.raw, frame 0: the bytes of the samples look swapped"));
    EXPECT_THAT(read.out, HasSubstr("looks swapped"));
    EXPECT_EQ(run("info in.raw --size 60x40").error, "");
}

TEST_F(InfoCommand, KeepsTheUnitsOfFloatsAndCountsWhatIsNoNumber)
{
    ASSERT_EQ(run("convert in.raw --size 60x40 --scale 0.01 -o degrees.npy").status, 0);
    EXPECT_NEAR(fileOf("info degrees.npy")["noise_between_frames"].get<double>(), noise * 0.01, 0.0015);
    writePfmStream(at("holes.pfm"), {(cv::Mat_<float>(1, 4) << NAN, 20.5F, -INFINITY, 21.25F)});
    EXPECT_THAT(run("info holes.pfm").out,
                HasSubstr("20.5 to 21.25, mean 20.875; 1 are no numbers; 1 are infinite"));
    writePfmStream(at("none.pfm"), {cv::Mat_<float>(2, 2, NAN)});
    EXPECT_THAT(run("info none.pfm in.raw").out, HasSubstr("no finite value"));
    EXPECT_EQ(run("info none.pfm in.raw").status, 2) << "the second needs its size";
}
