// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "apps/FrameSamples.h"
#include "apps/ProgramRun.h"
#include "apps/vxkit/input/Recording.h"
#include "support/Burst.h"
#include "support/Stream.h"

using namespace vxapp;

namespace {

class SimulateCommand : public ProgramFolder
{
protected:
    ProgramRun simulate(const std::string& options) const
    {
        return run("simulate burst. --size 40x30 " + options);
    }

    std::filesystem::path target() const { return folder_ / "burst."; }
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
    const ProgramRun done = simulate("");
    ASSERT_EQ(done.status, 0) << done.error;
    EXPECT_EQ(fileCount(), 1U + 5U + 3U);  // the folder itself, frames, their list, truth and note

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
        ASSERT_EQ(simulate("--defects 4 --defect-style markers --format " + format).status, 0);
        vxsupport::BurstSettings settings = sameBurst();
        settings.defects = {4, vxsupport::DefectStyle::markers};
        const vxsupport::Burst burst = vxsupport::simulateBurst(settings);
        Recording recording({{file("frame-0002." + format)}, "", ""});
        EXPECT_TRUE(sameBits(recording.values(0), burst.frames[2])) << format;
        std::filesystem::remove_all(target());
    }
}

TEST_F(SimulateCommand, WritesARawRecordingWithItsIdeal)
{
    const ProgramRun done =
        simulate("--stream --frames 3 --format raw --scale 0.02 --offset -100 --scene outdoor --shake 0");
    ASSERT_EQ(done.status, 0) << done.error;
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
    expectRefusals("simulate burst.", {{"", "frame-0002.png"}});
    EXPECT_EQ(simulate("--force").status, 0);
    EXPECT_FALSE(cv::imread(file("frame-0002.png"), cv::IMREAD_UNCHANGED).empty());
    EXPECT_EQ(fileCount(), 9U);
}

TEST_F(SimulateCommand, RefusesBadInputInOneLineAndWritesNothing)
{
    writeText(at("file.txt"), "a file");
    expectRefusals("simulate", {{"file.txt", "file.txt"}});
    expectRefusals("simulate new.", {{"--size 40", "--size"},
                                     {"--size 4x30", "--size"},
                                     {"--size 4000x30", "--size"},
                                     {"--scene kitchen", "--scene"},
                                     {"--netd nan", "--netd"},
                                     {"--netd -1", "--netd"},
                                     {"--psf-sigma 0", "--psf-sigma"},
                                     {"--frames 0", "--frames"},
                                     {"--reference 5", "--reference"},
                                     {"--defects -1", "--defects"},
                                     {"--format jpeg", "--format"},
                                     {"--scale 0", "--scale"},
                                     {"--offset inf", "--offset"},
                                     {"--unknown", "--unknown"},
                                     {"--zoom 0", "--zoom"},
                                     {"--defect-style markers --defects 2", "--defect-style"},
                                     {"--stream --reference 1", "--stream"}});
}
