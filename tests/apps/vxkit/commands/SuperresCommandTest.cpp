// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <limits>
#include <random>
#include <regex>

#include "apps/FrameSamples.h"
#include "apps/ProgramRun.h"
#include "enhancement/superresolution/SrLocalMotion.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "support/Burst.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

const cv::Size frameSize{96, 72};
const cv::Size resultSize{192, 144};

vxsupport::Burst burstOf(int frames, int markers = 0)
{
    vxsupport::BurstSettings settings;
    settings.scene.frame = frameSize;
    settings.frameCount = frames;
    settings.defects.count = markers;
    settings.defects.style = vxsupport::DefectStyle::markers;
    return vxsupport::simulateBurst(settings);
}

cv::Mat_<std::uint16_t> centikelvin(const cv::Mat_<float>& degrees)
{
    cv::Mat_<std::uint16_t> counts;
    degrees.convertTo(counts, CV_16U, 100.0, 27315.0);
    return counts;
}

// The flat interface without the command.
cv::Mat_<float> flatResult(const std::vector<cv::Mat_<float>>& frames, const std::string& camera,
                           int reference)
{
    const int context = SuperResolution_init(frames[0].cols, frames[0].rows);
    SuperResolution_setCameraAndLensType(context, camera.c_str());
    SuperResolution_setReferenceFrame(context, reference);
    for (const cv::Mat_<float>& frame : frames)
        SuperResolution_addImage(context, frame.ptr<float>());
    cv::Mat_<float> image(2 * frames[0].rows, 2 * frames[0].cols);
    SuperResolution_getSuperresolutionImage(context, image.ptr<float>());
    SuperResolution_release(context);
    return image;
}

class SuperresCommand : public ProgramFolder
{
protected:
    void writeRaw(const std::string& name, const std::vector<cv::Mat_<float>>& frames) const
    {
        for (const cv::Mat_<float>& frame : frames)
            appendRaw(at(name), centikelvin(frame));
    }
};

}  // namespace

TEST_F(SuperresCommand, WritesWhatTheFlatInterfaceComputes)
{
    const vxsupport::Burst burst = burstOf(5, 6);
    writePfmStream(at("burst.pfm"), burst.frames);
    const ProgramRun done = runVxkit({"superres", at("burst.pfm"), "--camera", "k325 FOV25", "--reference",
                                      "2", "-o", at("a.pfm"), "--preview", at("a.png")});
    ASSERT_EQ(done.status, 0) << done.error;
    EXPECT_EQ(done.error, "");
    EXPECT_THAT(done.out, AllOf(HasSubstr("5 frames of 96x72"), HasSubstr("frame 4: code 0, success"),
                                HasSubstr(at("a.pfm")), HasSubstr(at("a.png"))));
    EXPECT_TRUE(sameBits(image("a.pfm"), flatResult(burst.frames, "k325 FOV25", 2)));
    EXPECT_EQ(image("a.png").size(), resultSize);
    EXPECT_EQ(fileCount(), 3U);
}

TEST_F(SuperresCommand, EngineClassGivesTheBitsOfTheFlatInterfaceAndTellsTheShifts)
{
    const vxsupport::Burst burst = burstOf(5);
    writePfmStream(at("burst.pfm"), burst.frames);
    ASSERT_EQ(run("superres burst.pfm -o flat.tif").status, 0);
    const ProgramRun report = run("superres burst.pfm -o class.tif --report");
    ASSERT_EQ(report.status, 0) << report.error;
    EXPECT_TRUE(sameBits(image("flat.tif"), image("class.tif")));

    EXPECT_THAT(report.out, HasSubstr("achieved factor"));
    const std::regex row(R"((\d) +(-?\d\.\d+) +(-?\d\.\d+) +(\d+\.\d) %(  reference)?\n)");
    int rows = 0;
    for (std::sregex_iterator match(report.out.begin(), report.out.end(), row), end; match != end;
         ++match, ++rows) {
        const PointF& shift = burst.shifts[std::stoul((*match)[1])];
        EXPECT_NEAR(std::stof((*match)[2]), shift.x, 0.06F);
        EXPECT_NEAR(std::stof((*match)[3]), shift.y, 0.06F);
        EXPECT_GT(std::stof((*match)[4]), 50.0F);
        EXPECT_EQ((*match)[5].matched, rows == 1);
    }
    EXPECT_EQ(rows, 5) << report.out;
}

TEST_F(SuperresCommand, OptionsOfTheEngineClassChangeTheResult)
{
    writePfmStream(at("burst.pfm"), burstOf(6).frames);
    ASSERT_EQ(run("superres burst.pfm --frames 0:5 -o plain.tif").status, 0);
    for (const std::string option : {"--relative-residue 0.05", "--iterations 1", "--weight 40",
                                     "--registration-error 0.00001", "--psf-sigma 0.4", "--window 4"}) {
        ASSERT_EQ(run("superres burst.pfm --frames 0:5 --last -o other.tif --force " + option).status, 0);
        EXPECT_FALSE(sameBits(image("plain.tif"), image("other.tif"))) << option;
    }
    EXPECT_EQ(run("superres burst.pfm --window 6 -o six.tif").status, 0);
    EXPECT_EQ(image("six.tif").size(), resultSize);
}

TEST_F(SuperresCommand, SlidesOverALongerRecording)
{
    writeRaw("long.raw", burstOf(8).frames);
    const std::string input = "superres long.raw --size 96x72 --frames 1:7 ";
    ASSERT_EQ(run(input + "-o each.tif --preview look.png").status, 0);
    for (const std::string number : {"0005", "0006", "0007"}) {
        EXPECT_EQ(image("each-" + number + ".tif").size(), resultSize);
        EXPECT_EQ(image("look-" + number + ".png").type(), CV_8UC3);
    }
    EXPECT_THAT(textOf(at("each.tif.sha256")),
                AllOf(HasSubstr("  each-0005.tif\n"), HasSubstr("  each-0007.tif\n")));
    EXPECT_EQ(fileCount(), 9U);

    const ProgramRun last = run(input + "-o last.tif --last");
    ASSERT_EQ(last.status, 0);
    EXPECT_THAT(last.out, AllOf(HasSubstr("frame 7: code 0"), Not(HasSubstr("frame 6"))));
    EXPECT_EQ(image("last.tif").size(), resultSize);
    EXPECT_EQ(fileCount(), 10U);
}

TEST_F(SuperresCommand, TakesCountsWithAndWithoutTheirCalibration)
{
    const vxsupport::Burst burst = burstOf(5);
    writeRaw("burst.raw", burst.frames);
    std::vector<cv::Mat_<float>> degrees;
    std::vector<cv::Mat_<float>> sixteenths;
    for (const cv::Mat_<float>& frame : burst.frames) {
        cv::Mat_<double> exact;
        centikelvin(frame).convertTo(exact, CV_64F);
        degrees.emplace_back(exact * 0.01 - 273.15);
        sixteenths.emplace_back(exact / 16.0);
    }
    const std::string input = "superres burst.raw --size 96x72 -o ";
    ASSERT_EQ(run(input + "degrees.tif --scale 0.01 --offset -273.15").status, 0);
    EXPECT_TRUE(sameBits(image("degrees.tif"), flatResult(degrees, "", 3)));

    const ProgramRun counts = run(input + "counts.pfm");
    ASSERT_EQ(counts.status, 0);
    EXPECT_THAT(counts.out, HasSubstr("results are counts"));
    cv::Mat_<float> wanted = flatResult(sixteenths, "", 3);
    wanted *= 16.0;
    EXPECT_TRUE(sameBits(image("counts.pfm"), wanted));

    EXPECT_THAT(run(input + "counts.png").out, HasSubstr("value = count * "));
    EXPECT_EQ(image("counts.png").type(), CV_16UC1);
}

TEST_F(SuperresCommand, RefusesBadInputWithStatusTwoAndTouchesNothing)
{
    writePfmStream(at("five.pfm"), burstOf(5).frames);
    writePfmStream(at("four.pfm"), burstOf(4).frames);
    writeRaw("five.raw", burstOf(5).frames);
    cv::imwrite(at("eight.png"), cv::Mat(72, 96, CV_8U, cv::Scalar(7)));
    writeText(at("old.tif"), "old");
    expectRefusals("superres", {{"five.pfm", "-o OUT"},
                                {"-o out.tif", "INPUT"},
                                {"five.pfm -o", "--output"},
                                {"five.pfm -o out.jpg", "out.jpg"},
                                {"five.pfm -o out", "out"},
                                {"five.pfm --preview out.tif", "out.tif"},
                                {"five.pfm -o out.png --preview out.png", "out.png"},
                                {"five.pfm -o old.tif", "old.tif exists already"},
                                {"five.pfm -o five.pfm --force", "is an input"},
                                {"five.pfm -o none/out.tif", "none"}});
    expectRefusals("superres -o out.tif", {{"none.pfm", "none.pfm"},
                                           {"eight.png", "eight.png"},
                                           {"four.pfm", "expected at least 5"},
                                           {"five.raw --size 96x71", "96x71"},
                                           {"five.raw --size 96x72 --scale 1", "--scale"}});
    expectRefusals("superres five.pfm -o out.tif", {{"--unknown", "--unknown"},
                                                    {"--frames 0:4", "expected at least 5"},
                                                    {"--frames 1:5", "--frames 1:5"},
                                                    {"--preview eight.png", "eight.png exists already"},
                                                    {"--scale nan", "--scale nan"},
                                                    {"--scale inf", "--scale inf"},
                                                    {"--scale 0", "--scale 0"},
                                                    {"--scale much", "--scale"},
                                                    {"--offset nan", "--offset nan"},
                                                    {"--scale 1e6", "five.pfm, frame 0"},
                                                    {"--reference 5", "--reference 5"},
                                                    {"--reference -1", "--reference -1"},
                                                    {"--reference 5 --report", "--reference 5"},
                                                    {"--window 1", "--window 1"},
                                                    {"--window 6", "expected at least 6"},
                                                    {"--window 65", "--window 65"},
                                                    {"--weight 0.5", "--weight 0.5"},
                                                    {"--weight nan", "--weight nan"},
                                                    {"--relative-residue 1e-6", "--relative-residue 1e-06"},
                                                    {"--registration-error 1.5", "--registration-error 1.5"},
                                                    {"--registration-error 0", "--registration-error 0"},
                                                    {"--iterations 0", "--iterations 0"},
                                                    {"--iterations 3.5", "--iterations"},
                                                    {"--psf-sigma 0", "--psf-sigma 0"},
                                                    {"--colour-map mauve", "mauve"}});
}

TEST_F(SuperresCommand, ReplacesFilesOnlyWhenForcedAndChecksAllOfThemFirst)
{
    writePfmStream(at("six.pfm"), burstOf(6).frames);
    writeText(at("a-0005.tif"), "old");
    expectRefusals("superres six.pfm", {{"-o a.tif", "a-0005.tif exists already"}});
    EXPECT_EQ(run("superres six.pfm -o a.tif --force").status, 0);
    EXPECT_EQ(image("a-0005.tif").size(), resultSize);
}

TEST_F(SuperresCommand, TellsAnEnginesFailureWithStatusOne)
{
    writePfmStream(at("flat.pfm"), std::vector<cv::Mat_<float>>(5, cv::Mat_<float>(frameSize, 20.0F)));
    const ProgramRun flat = run("superres flat.pfm -o out.tif");
    EXPECT_EQ(flat.status, 1);
    EXPECT_THAT(flat.out, HasSubstr("frame 0: code -4, image has not enough structure"));
    EXPECT_THAT(flat.error,
                AllOf(HasSubstr("flat.pfm, frame 4"), HasSubstr("no corner"), HasSubstr("code -9")));
    EXPECT_EQ(fileCount(), 1U);
}

TEST_F(SuperresCommand, GoesOnAfterAFrameThatTheEngineCannotUse)
{
    std::vector<cv::Mat_<float>> frames = burstOf(6).frames;
    frames[0] = cv::Mat_<float>(frameSize, std::numeric_limits<float>::quiet_NaN());
    writePfmStream(at("six.pfm"), frames);
    frames.erase(frames.begin());
    for (const std::string engine : {"", "--report"}) {
        const ProgramRun done = run("superres six.pfm -o a.tif --force " + engine);
        EXPECT_EQ(done.status, 1);
        EXPECT_THAT(done.error,
                    AllOf(HasSubstr("six.pfm, frame 0: Too many defect pixels. No processing possible."),
                          HasSubstr("code -999"), HasSubstr("1 result")));
        EXPECT_TRUE(sameBits(image("a-0005.tif"), flatResult(frames, "", 3)));
        EXPECT_EQ(fileCount(), 3U) << "no file for the result that failed";
    }
}

TEST_F(SuperresCommand, SurvivesAnyFrames)
{
    std::mt19937 random(11);  // NOLINT(cert-msc51-cpp): the same bytes in every run
    for (int round = 0; round < 40; ++round) {
        const std::size_t width = 1 + random() % 40;
        const std::size_t height = 1 + random() % 40;
        std::string bytes(width * height * 10, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random() & (round % 2 == 0 ? 0xFFU : 0x0FU));
        writeText(at("any.raw"), bytes);
        const std::string size = std::to_string(width) + "x" + std::to_string(height);
        const std::string engine = std::array{"production", "phase", "reference"}[round % 3];
        const ProgramRun done = run("superres any.raw -o out.pfm --force --size " + size + " --engine " +
                                    engine + (round % 4 < 2 ? " --report" : " --last"));
        // Not every engine takes frames of every size.
        EXPECT_LE(done.status, engine == "production" ? 1 : 2) << size << done.error;
        EXPECT_THAT(done.error, Not(HasSubstr("unexpected")));
    }
}

TEST_F(SuperresCommand, HelpTellsUnitsCodesAndExamples)
{
    const ProgramRun help = run("superres --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, AllOf(HasSubstr("Examples:"), HasSubstr("-273.15"), HasSubstr("-999")));
    EXPECT_EQ(help.error, "");
}

TEST_F(SuperresCommand, FollowsMotionAndTellsWhatTheResultRestsOn)
{
    vxsupport::BurstSettings settings;
    settings.scene.kind = vxsupport::SceneKind::board;
    settings.scene.frame = frameSize;
    settings.seed = 4;
    const vxsupport::Burst burst = vxsupport::simulateBurst(settings);
    writePfmStream(at("burst.pfm"), burst.frames);
    writePfmStream(at("one.pfm"), {burst.frames[1]});
    writePfmStream(at("still.pfm"), std::vector<cv::Mat_<float>>(5, burst.frames[1]));
    const std::string spread = " --psf-sigma 0.683 -o ";
    const ProgramRun local =
        run("superres burst.pfm --motion local --report --confidence map.pfm" + spread + "local.pfm");
    ASSERT_EQ(local.status, 0) << local.error;
    EXPECT_THAT(local.out, AllOf(HasSubstr(" K, effective frames 4."), HasSubstr("1 result; codes: 1 x 0"),
                                 HasSubstr("local    weight"), HasSubstr(at("map.pfm"))));
    EXPECT_EQ(image("map.pfm").size(), frameSize);
    halvor::vx::SrLocalMotion engine(frameSize.width, frameSize.height, 5);
    engine.setReferenceIndex(3);
    engine.setPsfSigma(0.683F);
    for (const cv::Mat_<float>& frame : burst.frames)
        engine.addFrame(frame);
    cv::Mat_<float> expected;
    engine.computeSR(expected);
    EXPECT_TRUE(sameBits(image("local.pfm"), expected));

    ASSERT_EQ(run("superres burst.pfm --motion auto" + spread + "auto.pfm").status, 0);
    EXPECT_TRUE(sameBits(image("auto.pfm"), expected));
    ASSERT_EQ(run("superres burst.pfm --motion single" + spread + "single.pfm").status, 0);
    ASSERT_EQ(run("superres one.pfm --motion single" + spread + "alone.pfm").status, 0);
    EXPECT_TRUE(sameBits(image("alone.pfm"), image("single.pfm")));
    const ProgramRun still = run("superres still.pfm --motion auto" + spread + "same.pfm");
    EXPECT_THAT(still.out, HasSubstr("made of the reference frame alone"));
    EXPECT_TRUE(sameBits(image("same.pfm"), image("single.pfm")));

    for (const std::string wrong :
         {"--motion local --engine phase", "--motion single --confidence x.png", "--motion auto --weight 3",
          "--motion auto --reference 5", "--motion local --psf-sigma -1", "--confidence x.png",
          "--motion local --confidence no.pfm"}) {
        EXPECT_EQ(run("superres burst.pfm -o no.pfm " + wrong).status, 2) << wrong;
        EXPECT_FALSE(std::filesystem::exists(at("no.pfm")));
    }
}

TEST_F(SuperresCommand, SumsUpWhichFramesHadNoPartAndFillsGaps)
{
    std::vector<cv::Mat_<float>> frames = burstOf(6).frames;
    vxsupport::BurstSettings elsewhere;
    elsewhere.scene.kind = vxsupport::SceneKind::board;
    elsewhere.scene.frame = frameSize;
    frames[4] = vxsupport::simulateBurst(elsewhere).frames[0];
    writePfmStream(at("six.pfm"), frames);
    for (const std::string motion : {"global", "local"}) {
        const ProgramRun done = run("superres six.pfm --motion " + motion + " -o " + motion + ".pfm");
        EXPECT_EQ(done.status, 0) << done.error;
        EXPECT_THAT(done.out, AllOf(HasSubstr("2 results; codes: "),
                                    HasSubstr("frame 4 had little or no part in 2 windows: "),
                                    Not(HasSubstr("frame 3 had"))));
    }
    frames[2].row(30).setTo(std::numeric_limits<float>::quiet_NaN());
    writePfmStream(at("gap.pfm"), frames);
    const ProgramRun filled = run("superres gap.pfm -o filled.pfm --fill-gaps");
    EXPECT_EQ(filled.status, 1);
    EXPECT_THAT(filled.error, Not(HasSubstr("exception raised")));
    EXPECT_THAT(run("superres gap.pfm -o spoken.pfm --verbose").error, HasSubstr("exception raised"));
    EXPECT_THAT(filled.out, AllOf(HasSubstr("frame 4: gap, filled by plain enlargement of frame 1"),
                                  HasSubstr("2 gaps filled by plain enlargement")));
    EXPECT_EQ(image("filled-0005.pfm").size(), resultSize);
}
