#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "FrameSamples.h"
#include "ProgramRun.h"
#include "TemporaryFolder.h"
#include "apps/vxkit/Output.h"
#include "support/Burst.h"

using testing::AllOf;
using testing::HasSubstr;

namespace {

class SimulateCompare : public TemporaryFolder
{
protected:
    std::string at(const std::string& name) const { return (folder / name).string(); }
    cv::Mat read(const std::string& name) const { return cv::imread(at(name), cv::IMREAD_UNCHANGED); }

    ProgramRun simulate(std::vector<std::string> options) const
    {
        options.insert(options.begin(), {"simulate", "--size", "48x36", "-o", at("burst")});
        return runVxkit(options);
    }
};

}  // namespace

TEST_F(SimulateCompare, WritesTheSimulatorsBitsWithTruthAndShifts)
{
    const ProgramRun run = simulate({"--scene", "board", "--frames", "6", "--seed", "9"});
    ASSERT_EQ(run.status, 0) << run.error;
    vxsupport::BurstSettings settings;
    settings.scene.kind = vxsupport::SceneKind::board;
    settings.scene.frame = {48, 36};
    settings.frameCount = 6;
    settings.seed = 9;
    const vxsupport::Burst burst = vxsupport::simulateBurst(settings);
    EXPECT_TRUE(sameBits(read("burst/frame-0005.tif"), burst.frames[5]));
    EXPECT_TRUE(sameBits(read("burst/truth.tif"), burst.truth));
    std::istringstream shifts(textOf(folder / "burst" / "shifts.txt"));
    std::string head;
    std::getline(shifts, head);
    for (const PointF& shift : burst.shifts) {
        float x = 9.0F;
        float y = 9.0F;
        ASSERT_TRUE(shifts >> x >> y);
        EXPECT_EQ(x, shift.x);
        EXPECT_EQ(y, shift.y);
    }
}

TEST_F(SimulateCompare, WritesCountsThatTheToldScaleTurnsBackIntoDegrees)
{
    ASSERT_EQ(simulate({}).status, 0);
    const ProgramRun raw = simulate({"--format", "raw", "--frames", "7", "--force"});
    ASSERT_EQ(raw.status, 0) << raw.error;
    EXPECT_THAT(raw.out, HasSubstr("count * 0.01 + -273.15"));
    const std::string bytes = textOf(folder / "burst" / "frames.raw");
    ASSERT_EQ(bytes.size(), std::size_t{7 * 48 * 36 * 2});
    const int count = static_cast<unsigned char>(bytes[0]) + 256 * static_cast<unsigned char>(bytes[1]);
    vxsupport::BurstSettings settings;
    settings.scene.frame = {48, 36};
    settings.frameCount = 7;
    EXPECT_NEAR(count * 0.01 - 273.15, vxsupport::simulateBurst(settings).frames[0](0, 0), 0.0051);
}

TEST_F(SimulateCompare, SimulateRefusesBadInputAndKeepsWhatIsThere)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--size", "48"}, "--size 48"},
        {{"--scene", "moon"}, "moon"},
        {{"--frames", "0"}, "--frames"},
        {{"--scale", "inf"}, "--scale"},
        {{"--psf-sigma", "-1"}, ""},
        {{"--reference", "5"}, ""},
        {{"--format", "raw", "--defects", "3", "--defect-style", "markers"}, "markers"},
        {{"--no-such-option"}, "--no-such-option"},
    };
    for (const auto& [options, named] : cases) {
        std::vector<std::string> line = {"simulate", "-o", at("none")};
        line.insert(line.end(), options.begin(), options.end());
        const ProgramRun run = runVxkit(line);
        EXPECT_EQ(run.status, 2) << testing::PrintToString(options);
        EXPECT_THAT(run.error, HasSubstr(named));
        EXPECT_FALSE(std::filesystem::exists(folder / "none" / "truth.tif"));
    }
    ASSERT_EQ(simulate({}).status, 0);
    const std::string before = textOf(folder / "burst" / "frame-0000.tif");
    const ProgramRun again = simulate({"--seed", "2"});
    EXPECT_EQ(again.status, 2);
    EXPECT_THAT(again.error, HasSubstr("--force"));
    EXPECT_EQ(textOf(folder / "burst" / "frame-0000.tif"), before);
}

TEST_F(SimulateCompare, CompareMeasuresAgainstTheReferenceAndRemovesAShiftWhenAsked)
{
    ASSERT_EQ(simulate({"--netd", "0", "--frames", "2"}).status, 0);
    const std::string truth = at("burst/truth.tif");
    const ProgramRun same = runVxkit({"compare", truth, truth});
    ASSERT_EQ(same.status, 0) << same.error;
    EXPECT_THAT(same.out,
                AllOf(HasSubstr("PSNR inf dB"), HasSubstr("SSIM 1.0000"), HasSubstr("difference 0.000")));

    const ProgramRun framed = runVxkit({"compare", truth, truth, "--bicubic", at("burst/frame-0001.tif"),
                                        "--picture", at("p.png"), "--region", "8,8,40,30"});
    ASSERT_EQ(framed.status, 0) << framed.error;
    EXPECT_THAT(framed.out, HasSubstr("bicubic enlargement"));
    EXPECT_GT(read("p.png").cols, 3 * 40);

    const auto largest = [&](const std::vector<std::string>& options) {
        std::vector<std::string> line = {"compare", at("burst/frame-0000.tif"), at("burst/frame-0001.tif"),
                                         "--margin", "4"};
        line.insert(line.end(), options.begin(), options.end());
        const std::string out = runVxkit(line).out;
        return std::stod(out.substr(out.find("PSNR ") + 5));
    };
    EXPECT_GT(largest({"--align"}), largest({}) + 3.0);
}

TEST_F(SimulateCompare, CompareRefusesWhatItCantCompare)
{
    ASSERT_EQ(simulate({}).status, 0);
    const std::string truth = at("burst/truth.tif");
    const std::string frame = at("burst/frame-0000.tif");
    EXPECT_THAT(runVxkit({"compare", frame, truth}).error, AllOf(HasSubstr(frame), HasSubstr("96x72")));
    const std::vector<std::vector<std::string>> lines = {
        {frame, truth},
        {at("missing.tif"), truth},
        {truth, truth, "--margin", "40"},
        {truth, truth, "--margin", "-1"},
        {truth, truth, "--scale", "nan"},
        {truth, truth, "--picture", at("p.jpg")},
        {truth, truth, "--picture", at("p.png"), "--region", "90,0,20,20"},
        {truth, truth, "--picture", truth},
    };
    for (std::vector<std::string> line : lines) {
        line.insert(line.begin(), "compare");
        EXPECT_EQ(runVxkit(line).status, 2) << testing::PrintToString(line);
    }
    EXPECT_FALSE(std::filesystem::exists(at("p.png")));
}
