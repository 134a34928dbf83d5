#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "ProgramRun.h"
#include "TemporaryFolder.h"
#include "apps/vxkit/Recording.h"
#include "support/Burst.h"
#include "support/Stream.h"

using namespace vxapp;

namespace {

class SimulateCommand : public TemporaryFolder
{
protected:
    ProgramRun simulate(std::vector<std::string> options) const
    {
        options.insert(options.begin(), {"simulate", target().string(), "--size", "40x30"});
        return runVxkit(options);
    }

    std::filesystem::path target() const { return folder / "burst"; }
    std::string file(const std::string& name) const { return (target() / name).string(); }

    static vxsupport::BurstSettings sameBurst()
    {
        vxsupport::BurstSettings settings;
        settings.scene.frame = {40, 30};
        return settings;
    }
};

double largestDifference(const cv::Mat& a, const cv::Mat& b)
{
    return cv::norm(a, b, cv::NORM_INF);
}

}  // namespace

TEST_F(SimulateCommand, WritesCountsTruthAndShifts)
{
    const ProgramRun run = simulate({});
    ASSERT_EQ(run.status, 0) << run.error;
    EXPECT_EQ(fileCount(), 1U + 5U + 2U);  // the folder itself, frames, truth and note

    const vxsupport::Burst burst = vxsupport::simulateBurst(sameBurst());
    cv::Mat_<float> degrees;
    cv::imread(file("frame-0003.png"), cv::IMREAD_UNCHANGED).convertTo(degrees, CV_32F, 0.01, -273.15);
    EXPECT_LT(largestDifference(degrees, burst.frames[3]), 0.0051);
    EXPECT_EQ(largestDifference(cv::imread(file("truth.tiff"), cv::IMREAD_UNCHANGED), burst.truth), 0.0);

    const std::string note = textOf(target() / "simulation.txt");
    EXPECT_NE(note.find("value = count * 0.01 - 273.15"), std::string::npos);
    std::istringstream lastLine(note.substr(note.rfind("\n4 ") + 1));
    int frame = 0;
    float x = 0.0F;
    float y = 0.0F;
    lastLine >> frame >> x >> y;
    EXPECT_NEAR(x, burst.shifts[4].x, 1e-5F);
    EXPECT_NEAR(y, burst.shifts[4].y, 1e-5F);
}

TEST_F(SimulateCommand, KeepsFloatsAndMarkersBitByBit)
{
    for (const std::string format : {"tiff", "pfm"}) {
        ASSERT_EQ(simulate({"--format", format, "--defects", "4", "--defect-style", "markers"}).status, 0);
        vxsupport::BurstSettings settings = sameBurst();
        settings.defects = {4, vxsupport::DefectStyle::markers};
        const vxsupport::Burst burst = vxsupport::simulateBurst(settings);
        Recording recording({{file("frame-0002." + format)}, "", ""});
        const cv::Mat_<float> frame = recording.values(0);
        for (int r = 0; r < frame.rows; ++r)
            for (int c = 0; c < frame.cols; ++c)
                ASSERT_EQ(std::bit_cast<std::uint32_t>(frame(r, c)),
                          std::bit_cast<std::uint32_t>(burst.frames[2](r, c)));
        std::filesystem::remove_all(target());
    }
}

TEST_F(SimulateCommand, WritesARawRecordingWithItsIdeal)
{
    const ProgramRun run = simulate({"--stream", "--frames", "3", "--format", "raw", "--scale", "0.02",
                                     "--offset", "-100", "--scene", "outdoor", "--shake", "0"});
    ASSERT_EQ(run.status, 0) << run.error;
    vxsupport::StreamSettings settings;
    settings.scene.kind = vxsupport::SceneKind::outdoor;
    settings.scene.frame = {40, 30};
    settings.frameCount = 3;
    settings.columnOffset = 0.0;
    settings.rowOffset = 0.0;
    settings.pixelOffset = 0.0;
    const vxsupport::StreamSimulator stream(settings);
    for (const bool ideal : {false, true}) {
        Recording recording({{file(ideal ? "ideal.raw" : "frame.raw")}, "40x30", ""});
        ASSERT_EQ(recording.frameCount(), 3);
        cv::Mat_<float> degrees;
        recording.counts(2).convertTo(degrees, CV_32F, 0.02, -100.0);
        EXPECT_LT(largestDifference(degrees, ideal ? stream.ideal(2) : stream.frame(2)), 0.0102);
    }
}

TEST_F(SimulateCommand, ReplacesFilesOnlyWhenForced)
{
    std::filesystem::create_directories(target());
    writeText(file("frame-0002.png"), "mine");
    const ProgramRun refused = simulate({});
    EXPECT_EQ(refused.status, 2);
    EXPECT_TRUE(isOneLine(refused.error)) << refused.error;
    EXPECT_NE(refused.error.find("frame-0002.png"), std::string::npos);
    EXPECT_EQ(textOf(file("frame-0002.png")), "mine");
    EXPECT_EQ(fileCount(), 2U);

    EXPECT_EQ(simulate({"--force"}).status, 0);
    EXPECT_FALSE(cv::imread(file("frame-0002.png"), cv::IMREAD_UNCHANGED).empty());
    EXPECT_EQ(fileCount(), 8U);
}

TEST_F(SimulateCommand, RefusesBadInputInOneLineAndWritesNothing)
{
    const std::vector<std::vector<std::string>> cases{
        {"--size", "40"},
        {"--size", "4x30"},
        {"--size", "4000x30"},
        {"--scene", "kitchen"},
        {"--netd", "nan"},
        {"--netd", "-1"},
        {"--psf-sigma", "0"},
        {"--frames", "0"},
        {"--reference", "5"},
        {"--defects", "-1"},
        {"--format", "jpeg"},
        {"--scale", "0"},
        {"--offset", "inf"},
        {"--unknown"},
        {"--zoom", "0"},
        {"--defect-style", "markers", "--defects", "2"},
        {"--stream", "--reference", "1"},
    };
    for (std::vector<std::string> options : cases) {
        const std::string name = options[0] + " " + options.back();
        options.insert(options.begin(), {"simulate", target().string()});
        const ProgramRun run = runVxkit(options);
        EXPECT_EQ(run.status, 2) << name;
        EXPECT_TRUE(isOneLine(run.error)) << name << ": " << run.error;
        EXPECT_NE(run.error.find(options[2]), std::string::npos) << run.error;
        EXPECT_EQ(fileCount(), 0U) << name;
    }
}

TEST_F(SimulateCommand, RefusesAFileInPlaceOfTheFolder)
{
    writeText(target(), "a file");
    const ProgramRun run = simulate({});
    EXPECT_EQ(run.status, 2);
    EXPECT_TRUE(isOneLine(run.error));
    EXPECT_EQ(textOf(target()), "a file");
}
