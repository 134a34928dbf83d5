// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "apps/ProgramRun.h"
#include "apps/vxkit/output/Output.h"
#include "support/PictureMeasures.h"
#include "support/Sensor.h"
#include "support/scenes/Scenes.h"

using namespace vxapp;
using namespace vxsupport;

namespace {

class CompareCommand : public ProgramFolder
{
protected:
    void save(const std::string& name, const cv::Mat_<float>& picture) const
    {
        saveFloats(folder_ / name, picture, true);
    }

    cv::Size size_{80, 60};
    FineScene scene_ = makeScene({.kind = SceneKind::outdoor, .frame = size_}, 8);
    cv::Mat_<float> reference_ = sampleFrame(scene_, size_, {0.0F, 0.0F}, 1.5);
};

// The number behind a label in the command's table.
double valueOf(const std::string& text, const std::string& label)
{
    const std::size_t place = text.find(label);
    double value = std::numeric_limits<double>::quiet_NaN();
    if (place != std::string::npos)
        std::istringstream(text.substr(place + label.size())) >> value;
    return value;
}

}  // namespace

TEST_F(CompareCommand, PrintsTheThreeMeasures)
{
    cv::Mat_<float> blurred;
    cv::GaussianBlur(reference_, blurred, {5, 5}, 1.0);
    save("a.tiff", blurred);
    save("b.pfm", reference_);
    const ProgramRun done = run("compare a.tiff b.pfm --margin 3");
    ASSERT_EQ(done.status, 0) << done.error;
    EXPECT_NEAR(valueOf(done.out, "PSNR"), psnr(blurred, reference_, 3), 0.006);
    EXPECT_NEAR(valueOf(done.out, "SSIM"), ssim(blurred, reference_, 3), 0.00006);
    EXPECT_NEAR(valueOf(done.out, "largest difference"), largestDifference(blurred, reference_, 3), 0.0006);
    EXPECT_EQ(done.out.find("shift"), std::string::npos);
}

TEST_F(CompareCommand, RemovesAGlobalShift)
{
    save("a.tiff", sampleFrame(scene_, size_, {0.7F, -0.3F}, 1.5));
    save("b.tiff", reference_);
    const ProgramRun aligned = run("compare a.tiff b.tiff --align");
    ASSERT_EQ(aligned.status, 0) << aligned.error;
    EXPECT_NEAR(valueOf(aligned.out, "global shift of ("), 0.7, 0.02);
    EXPECT_GT(valueOf(aligned.out, "PSNR"), valueOf(run("compare a.tiff b.tiff").out, "PSNR") + 15.0);
}

TEST_F(CompareCommand, ReadsCountsThroughTheirScale)
{
    saveCounts(folder_ / "counts.png", reference_, {0.01, -273.15}, false);
    save("b.tiff", reference_);
    const ProgramRun done = run("compare counts.png b.tiff --scale 0.01 --offset -273.15");
    ASSERT_EQ(done.status, 0) << done.error;
    EXPECT_LE(valueOf(done.out, "largest difference"), 0.0055);
}

TEST_F(CompareCommand, ScoresARegionAlone)
{
    cv::Mat_<float> spoiled = reference_.clone();
    spoiled.colRange(0, 40) += 1.0F;
    save("a.tiff", spoiled);
    save("b.tiff", reference_);
    EXPECT_THAT(run("compare a.tiff b.tiff --region 40,0,40x60").out, testing::HasSubstr("PSNR inf dB"));
    const cv::Rect part(10, 5, 30, 20);
    const ProgramRun done = run("compare a.tiff b.tiff --region 10,3,30,22 --margin 5");
    EXPECT_NEAR(valueOf(done.out, "PSNR"), psnr(spoiled(part), reference_(part)), 0.006);
    EXPECT_NEAR(valueOf(done.out, "SSIM"), ssim(spoiled(part), reference_(part)), 0.00006);
}

TEST_F(CompareCommand, JudgesTheBicubicEnlargementBesideTheImage)
{
    const cv::Mat_<float> truth = sampleTruth(scene_, size_);
    save("frame.tiff", reference_);
    save("b.tiff", truth);
    const ProgramRun done = run("compare b.tiff b.tiff --bicubic frame.tiff");
    ASSERT_EQ(done.status, 0) << done.error;
    cv::Mat_<float> enlarged;
    cv::resize(reference_, enlarged, truth.size(), 0.0, 0.0, cv::INTER_CUBIC);
    EXPECT_NEAR(valueOf(done.out, "PSNR"), psnr(enlarged, truth), 0.006);
    EXPECT_THAT(done.out, testing::HasSubstr("PSNR inf dB, SSIM 1.0000, largest difference 0.000"));
}

TEST_F(CompareCommand, WritesAPictureOfAllImages)
{
    save("a.tiff", reference_);
    const std::string line = "compare a.tiff a.tiff --picture picture.png --region 8,8,40,30";
    ASSERT_EQ(run(line).status, 0);
    EXPECT_GT(image("picture.png").cols, 2 * 40);
    expectRefusals(line, {{"", "picture.png exists already"}});
}

TEST_F(CompareCommand, RefusesBadInputInOneLine)
{
    save("good.tiff", reference_);
    save("small.tiff", reference_(cv::Rect(0, 0, 40, 30)));
    cv::Mat_<float> broken = reference_.clone();
    broken(3, 4) = std::numeric_limits<float>::quiet_NaN();
    save("holes.tiff", broken);
    saveCounts(folder_ / "counts.png", reference_, {0.25, 0.0}, false);
    writeText(at("text.png"), "no picture");
    std::filesystem::create_directory(at("folder.png"));
    cv::imwrite(at("eight.png"), cv::Mat::zeros(size_, CV_8U));
    expectRefusals("compare", {{"missing.tiff good.tiff", "missing.tiff"},
                               {"good.tiff folder.png", "folder.png"},
                               {"text.png good.tiff", "text.png"},
                               {"eight.png good.tiff", "eight.png"},
                               {"holes.tiff good.tiff", "holes.tiff"},
                               {"small.tiff good.tiff", "40x30"},
                               {"counts.png good.tiff", "counts.png: holds counts, while"},
                               {"good.tiff counts.png", "counts.png holds counts"},
                               {"good.tiff good.tiff --bicubic counts.png", "counts.png: holds counts"},
                               {"good.tiff", "REFERENCE is required"}});
    EXPECT_EQ(run("compare counts.png good.tiff --scale 1").status, 0);
    expectRefusals("compare good.tiff good.tiff", {{"--margin -1", "--margin"},
                                                   {"--picture p.jpg", "p.jpg"},
                                                   {"--picture good.tiff", "good.tiff"},
                                                   {"--region 60,0,40x20", "--region"},
                                                   {"--region 2,2,40", "--region"},
                                                   {"--region 0,0,2147483647x9", "--region"},
                                                   {"--margin 25", "fewer than 11 rows or columns"},
                                                   {"--margin 25 --bicubic small.tiff", "fewer than 11"},
                                                   {"--region 0,0,40x10", "fewer than 11 rows or columns"},
                                                   {"--scale nan", "--scale"},
                                                   {"--unknown", "--unknown"}});
    EXPECT_LT(run("compare good.tiff good.tiff --margin -1").error.size(), 120U);
}
