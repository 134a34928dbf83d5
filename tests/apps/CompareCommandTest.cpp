#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "ProgramRun.h"
#include "TemporaryFolder.h"
#include "apps/vxkit/Output.h"
#include "support/PictureMeasures.h"
#include "support/Scenes.h"
#include "support/Sensor.h"

using namespace vxapp;
using namespace vxsupport;

namespace {

class CompareCommand : public TemporaryFolder
{
protected:
    std::string save(const std::string& name, const cv::Mat_<float>& image) const
    {
        saveFloats(folder / name, image, true);
        return (folder / name).string();
    }

    static constexpr int width = 80;
    static constexpr int height = 60;
    cv::Size size{width, height};
    FineScene scene = makeScene({.kind = SceneKind::outdoor, .frame = size}, 8);
    cv::Mat_<float> reference = sampleFrame(scene, size, {0.0F, 0.0F}, 1.5);
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
    cv::Mat_<float> image = reference.clone();
    cv::GaussianBlur(reference, image, {5, 5}, 1.0);
    const ProgramRun run =
        runVxkit({"compare", save("a.tiff", image), save("b.pfm", reference), "--margin", "3"});
    ASSERT_EQ(run.status, 0) << run.error;
    EXPECT_NEAR(valueOf(run.out, "PSNR"), psnr(image, reference, 3), 0.006);
    EXPECT_NEAR(valueOf(run.out, "SSIM"), ssim(image, reference, 3), 0.00006);
    EXPECT_NEAR(valueOf(run.out, "largest difference"), vxsupport::largestDifference(image, reference, 3),
                0.0006);
    EXPECT_EQ(run.out.find("shift"), std::string::npos);
}

TEST_F(CompareCommand, RemovesAGlobalShift)
{
    const cv::Mat_<float> moved = sampleFrame(scene, size, {0.7F, -0.3F}, 1.5);
    const std::string a = save("a.tiff", moved);
    const std::string b = save("b.tiff", reference);
    const ProgramRun plain = runVxkit({"compare", a, b});
    const ProgramRun aligned = runVxkit({"compare", a, b, "--align"});
    ASSERT_EQ(aligned.status, 0) << aligned.error;
    EXPECT_NEAR(valueOf(aligned.out, "global shift of ("), 0.7, 0.02);
    EXPECT_GT(valueOf(aligned.out, "PSNR"), valueOf(plain.out, "PSNR") + 15.0);
}

TEST_F(CompareCommand, ReadsCountsThroughTheirScale)
{
    saveCounts(folder / "counts.png", reference, {0.01, -273.15}, false);
    const ProgramRun run = runVxkit({"compare", (folder / "counts.png").string(), save("b.tiff", reference),
                                     "--scale", "0.01", "--offset", "-273.15"});
    ASSERT_EQ(run.status, 0) << run.error;
    EXPECT_LE(valueOf(run.out, "largest difference"), 0.0055);
}

TEST_F(CompareCommand, JudgesTheBicubicEnlargementBesideTheImage)
{
    const cv::Mat_<float> truth = sampleTruth(scene, size);
    const std::string frame = save("frame.tiff", reference);
    const std::string b = save("b.tiff", truth);
    const ProgramRun run = runVxkit({"compare", b, b, "--bicubic", frame});
    ASSERT_EQ(run.status, 0) << run.error;
    cv::Mat_<float> enlarged;
    cv::resize(reference, enlarged, truth.size(), 0.0, 0.0, cv::INTER_CUBIC);
    EXPECT_NEAR(valueOf(run.out, "PSNR"), psnr(enlarged, truth), 0.006);
    EXPECT_NE(run.out.find("PSNR inf dB, SSIM 1.0000, largest difference 0.000"), std::string::npos)
        << run.out;
}

TEST_F(CompareCommand, WritesAPictureOfAllImages)
{
    const std::string a = save("a.tiff", reference);
    const std::string picture = (folder / "picture.png").string();
    const std::vector<std::string> line{"compare", a, a, "--picture", picture, "--region", "8,8,40,30"};
    ASSERT_EQ(runVxkit(line).status, 0);
    EXPECT_GT(cv::imread(picture).cols, 2 * 40);
    EXPECT_EQ(runVxkit(line).status, 2);
}

TEST_F(CompareCommand, RefusesBadInputInOneLine)
{
    const std::string good = save("good.tiff", reference);
    const std::string small = save("small.tiff", reference(cv::Rect(0, 0, 40, 30)));
    cv::Mat_<float> broken = reference.clone();
    broken(3, 4) = std::numeric_limits<float>::quiet_NaN();
    const std::string holes = save("holes.tiff", broken);
    writeText(folder / "text.png", "no picture");
    cv::imwrite((folder / "eight.png").string(), cv::Mat::zeros(height, width, CV_8U));
    const std::vector<std::vector<std::string>> cases{
        {(folder / "missing.tiff").string(), good},
        {good, folder.string()},
        {(folder / "text.png").string(), good},
        {(folder / "eight.png").string(), good},
        {holes, good},
        {good, good, "--margin", "25"},
        {good, good, "--margin", "-1"},
        {good, good, "--picture", (folder / "p.jpg").string()},
        {good, good, "--picture", good},
        {small, good},
        {good, good, "--picture", (folder / "p.png").string(), "--region", "60,0,40,20"},
        {good, good, "--scale", "nan"},
        {good},
        {good, good, "--unknown"},
    };
    for (std::vector<std::string> arguments : cases) {
        arguments.insert(arguments.begin(), "compare");
        const ProgramRun run = runVxkit(arguments);
        EXPECT_EQ(run.status, 2) << arguments[1];
        EXPECT_TRUE(isOneLine(run.error)) << run.error;
        EXPECT_FALSE(std::filesystem::exists(folder / "p.png"));
    }
}
