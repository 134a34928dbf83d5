#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <regex>
#include <sstream>

#include "FrameSamples.h"
#include "ProgramRun.h"
#include "TemporaryFolder.h"
#include "enhancement/superresolution/SuperResolutionCAdapter.h"
#include "support/Burst.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

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

class SuperresCommand : public TemporaryFolder
{
protected:
    std::string at(const std::string& name) const { return (folder / name).string(); }

    ProgramRun run(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), "superres");
        return runVxkit(arguments);
    }

    void writeRaw(const std::string& name, const std::vector<cv::Mat_<float>>& frames) const
    {
        for (const cv::Mat_<float>& frame : frames)
            appendRaw(at(name), centikelvin(frame));
    }

    cv::Mat image(const std::string& name) const { return cv::imread(at(name), cv::IMREAD_UNCHANGED); }

    std::map<std::string, std::string> contents() const
    {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            files[entry.path().filename().string()] = entry.is_regular_file() ? textOf(entry.path()) : "";
        return files;
    }
};

}  // namespace

TEST_F(SuperresCommand, WritesWhatTheFlatInterfaceComputes)
{
    const vxsupport::Burst burst = burstOf(5, 6);
    writePfmStream(at("burst.pfm"), burst.frames);
    const ProgramRun done = run({at("burst.pfm"), "--camera", "k325 FOV25", "--reference", "2", "-o",
                                 at("a.pfm"), "--preview", at("a.png")});
    ASSERT_EQ(done.status, 0) << done.error;
    EXPECT_EQ(done.error, "");
    EXPECT_THAT(done.out, AllOf(HasSubstr("5 frames of 96x72"), HasSubstr("frame 4: code 0, success"),
                                HasSubstr(at("a.pfm")), HasSubstr(at("a.png"))));
    EXPECT_TRUE(sameBits(image("a.pfm"), flatResult(burst.frames, "k325 FOV25", 2)));
    EXPECT_EQ(image("a.png").size(), resultSize);
    EXPECT_EQ(contents().size(), 3U);
}

TEST_F(SuperresCommand, EngineClassGivesTheBitsOfTheFlatInterfaceAndTellsTheShifts)
{
    const vxsupport::Burst burst = burstOf(5);
    writePfmStream(at("burst.pfm"), burst.frames);
    ASSERT_EQ(run({at("burst.pfm"), "-o", at("flat.tif"), "--camera", "k310 FOV25"}).status, 0);
    const ProgramRun report =
        run({at("burst.pfm"), "-o", at("class.tif"), "--camera", "k310 FOV25", "--report"});
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
    ASSERT_EQ(run({at("burst.pfm"), "--frames", "0:5", "-o", at("plain.tif")}).status, 0);
    const std::vector<std::vector<std::string>> options = {
        {"--relative-residue", "0.05"},      {"--iterations", "1"},  {"--weight", "40"},
        {"--registration-error", "0.00001"}, {"--psf-sigma", "0.4"}, {"--window", "4"},
    };
    for (const std::vector<std::string>& option : options) {
        std::vector<std::string> line = {at("burst.pfm"), "--frames", "0:5", "--last", "-o",
                                         at("other.tif"), "--force"};
        line.insert(line.end(), option.begin(), option.end());
        ASSERT_EQ(run(line).status, 0);
        EXPECT_FALSE(sameBits(image("plain.tif"), image("other.tif"))) << option[0];
    }
    EXPECT_EQ(run({at("burst.pfm"), "--window", "6", "-o", at("six.tif")}).status, 0);
    EXPECT_EQ(image("six.tif").size(), resultSize);
}

TEST_F(SuperresCommand, SlidesOverALongerRecording)
{
    const vxsupport::Burst burst = burstOf(8);
    writeRaw("long.raw", burst.frames);
    const std::vector<std::string> input = {at("long.raw"), "--size", "96x72", "--frames", "1:7"};
    const auto with = [&](std::vector<std::string> more) {
        more.insert(more.begin(), input.begin(), input.end());
        return run(more);
    };
    ASSERT_EQ(with({"-o", at("each.tif"), "--preview", at("look.png")}).status, 0);
    for (const std::string number : {"0005", "0006", "0007"}) {
        EXPECT_EQ(image("each-" + number + ".tif").size(), resultSize);
        EXPECT_EQ(image("look-" + number + ".png").type(), CV_8UC3);
    }
    EXPECT_EQ(contents().size(), 7U);

    const ProgramRun last = with({"-o", at("last.tif"), "--last"});
    ASSERT_EQ(last.status, 0);
    EXPECT_THAT(last.out, AllOf(HasSubstr("frame 7: code 0"), Not(HasSubstr("frame 6"))));
    EXPECT_EQ(image("last.tif").size(), resultSize);
    EXPECT_EQ(contents().size(), 8U);
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
    const std::vector<std::string> input = {at("burst.raw"), "--size", "96x72"};

    std::vector<std::string> scaled = input;
    for (const char* more : {"--scale", "0.01", "--offset", "-273.15"})
        scaled.emplace_back(more);
    scaled.insert(scaled.end(), {"-o", at("degrees.tif")});
    ASSERT_EQ(run(scaled).status, 0);
    EXPECT_TRUE(sameBits(image("degrees.tif"), flatResult(degrees, "", 3)));

    std::vector<std::string> plain = input;
    plain.insert(plain.end(), {"-o", at("counts.pfm")});
    const ProgramRun counts = run(plain);
    ASSERT_EQ(counts.status, 0);
    EXPECT_THAT(counts.out, HasSubstr("results are counts"));
    cv::Mat_<float> wanted = flatResult(sixteenths, "", 3);
    wanted *= 16.0;
    EXPECT_TRUE(sameBits(image("counts.pfm"), wanted));

    plain.back() = at("counts.png");
    EXPECT_THAT(run(plain).out, HasSubstr("value = count * "));
    EXPECT_EQ(image("counts.png").type(), CV_16UC1);
}

TEST_F(SuperresCommand, RefusesBadInputWithStatusTwoAndTouchesNothing)
{
    writePfmStream(at("five.pfm"), burstOf(5).frames);
    writePfmStream(at("four.pfm"), burstOf(4).frames);
    writeRaw("five.raw", burstOf(5).frames);
    cv::imwrite(at("eight.png"), cv::Mat(72, 96, CV_8U, cv::Scalar(7)));
    writeText(folder / "old.tif", "old");
    const auto before = contents();

    struct Case
    {
        std::vector<std::string> arguments;
        std::string told;
    };
    const std::string five = at("five.pfm");
    const std::string out = at("out.tif");
    const std::vector<Case> cases = {
        {{five}, "-o OUT"},
        {{"-o", out}, "INPUT"},
        {{five, "-o"}, "--output"},
        {{five, "-o", out, "--unknown"}, "--unknown"},
        {{at("none.pfm"), "-o", out}, "none.pfm"},
        {{at("eight.png"), "-o", out}, "eight.png"},
        {{at("four.pfm"), "-o", out}, "expected at least 5"},
        {{five, "--frames", "0:4", "-o", out}, "expected at least 5"},
        {{five, "--frames", "1:5", "-o", out}, "--frames 1:5"},
        {{at("five.raw"), "--size", "96x71", "-o", out}, "96x71"},
        {{at("five.raw"), "--size", "96x72", "--scale", "1", "-o", out}, "--scale"},
        {{five, "-o", at("out.jpg")}, "out.jpg"},
        {{five, "-o", at("out")}, "out"},
        {{five, "--preview", at("out.tif")}, "out.tif"},
        {{five, "-o", at("out.png"), "--preview", at("out.png")}, "out.png"},
        {{five, "-o", at("old.tif")}, "old.tif exists already"},
        {{five, "-o", out, "--preview", at("eight.png")}, "eight.png exists already"},
        {{five, "-o", five, "--force"}, "is an input"},
        {{five, "-o", at("none/out.tif")}, "none"},
        {{five, "-o", out, "--scale", "nan"}, "--scale nan"},
        {{five, "-o", out, "--scale", "inf"}, "--scale inf"},
        {{five, "-o", out, "--scale", "0"}, "--scale 0"},
        {{five, "-o", out, "--scale", "much"}, "--scale"},
        {{five, "-o", out, "--offset", "nan"}, "--offset nan"},
        {{five, "-o", out, "--scale", "1e6"}, "five.pfm, frame 0"},
        {{five, "-o", out, "--reference", "5"}, "--reference 5"},
        {{five, "-o", out, "--reference", "-1"}, "--reference -1"},
        {{five, "-o", out, "--reference", "5", "--report"}, "--reference 5"},
        {{five, "-o", out, "--window", "1"}, "--window 1"},
        {{five, "-o", out, "--window", "6"}, "expected at least 6"},
        {{five, "-o", out, "--window", "65"}, "--window 65"},
        {{five, "-o", out, "--weight", "0.5"}, "--weight 0.5"},
        {{five, "-o", out, "--weight", "nan"}, "--weight nan"},
        {{five, "-o", out, "--relative-residue", "1e-6"}, "--relative-residue 1e-06"},
        {{five, "-o", out, "--registration-error", "1.5"}, "--registration-error 1.5"},
        {{five, "-o", out, "--registration-error", "0"}, "--registration-error 0"},
        {{five, "-o", out, "--iterations", "0"}, "--iterations 0"},
        {{five, "-o", out, "--iterations", "3.5"}, "--iterations"},
        {{five, "-o", out, "--psf-sigma", "0"}, "--psf-sigma 0"},
        {{five, "-o", out, "--colour-map", "mauve"}, "mauve"},
    };
    for (const Case& c : cases) {
        const ProgramRun refused = run(c.arguments);
        EXPECT_EQ(refused.status, 2) << c.told;
        EXPECT_EQ(refused.out, "") << c.told;
        EXPECT_THAT(refused.error, AllOf(StartsWith("vxkit: "), HasSubstr(c.told)));
        EXPECT_EQ(std::count(refused.error.begin(), refused.error.end(), '\n'), 1) << refused.error;
        EXPECT_EQ(contents(), before) << c.told;
    }
}

TEST_F(SuperresCommand, ReplacesFilesOnlyWhenForcedAndChecksAllOfThemFirst)
{
    writePfmStream(at("six.pfm"), burstOf(6).frames);
    writeText(folder / "a-0005.tif", "old");
    EXPECT_EQ(run({at("six.pfm"), "-o", at("a.tif")}).status, 2);
    EXPECT_EQ(textOf(folder / "a-0005.tif"), "old");
    EXPECT_EQ(contents().size(), 2U) << "nothing is written before all names are known to be free";
    EXPECT_EQ(run({at("six.pfm"), "-o", at("a.tif"), "--force"}).status, 0);
    EXPECT_EQ(image("a-0005.tif").size(), resultSize);
}

TEST_F(SuperresCommand, TellsAnEnginesFailureWithStatusOne)
{
    writePfmStream(at("flat.pfm"), std::vector<cv::Mat_<float>>(5, cv::Mat_<float>(frameSize, 20.0F)));
    const ProgramRun flat = run({at("flat.pfm"), "-o", at("out.tif")});
    EXPECT_EQ(flat.status, 1);
    EXPECT_THAT(flat.out, HasSubstr("frame 0: code -4, image has not enough structure"));
    EXPECT_THAT(flat.error,
                AllOf(HasSubstr("flat.pfm, frame 4"), HasSubstr("no corner"), HasSubstr("code -9")));
    EXPECT_EQ(contents().size(), 1U);
}

TEST_F(SuperresCommand, GoesOnAfterAFrameThatTheEngineCannotUse)
{
    std::vector<cv::Mat_<float>> frames = burstOf(6).frames;
    frames[0] = cv::Mat_<float>(frameSize, std::numeric_limits<float>::quiet_NaN());
    writePfmStream(at("six.pfm"), frames);
    const std::vector<cv::Mat_<float>> good(frames.begin() + 1, frames.end());
    const std::vector<std::vector<std::string>> engines = {{}, {"--report"}};
    for (const std::vector<std::string>& engine : engines) {
        std::vector<std::string> line = {at("six.pfm"), "-o", at("a.tif"), "--force"};
        line.insert(line.end(), engine.begin(), engine.end());
        const ProgramRun done = run(line);
        EXPECT_EQ(done.status, 1);
        EXPECT_THAT(done.error,
                    AllOf(HasSubstr("six.pfm, frame 0: Too many defect pixels. No processing possible."),
                          HasSubstr("code -999"), HasSubstr("1 result")));
        EXPECT_TRUE(sameBits(image("a-0005.tif"), flatResult(good, "", 3)));
        EXPECT_EQ(contents().size(), 2U) << "no file for the result that failed";
    }
}

TEST_F(SuperresCommand, SurvivesAnyFrames)
{
    std::mt19937 random(11);  // NOLINT(cert-msc51-cpp): the same bytes in every run
    for (int round = 0; round < 40; ++round) {
        const int width = 1 + static_cast<int>(random() % 40);
        const int height = 1 + static_cast<int>(random() % 40);
        std::string bytes(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 10, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random() & (round % 2 == 0 ? 0xFFU : 0x0FU));
        writeText(folder / "any.raw", bytes);
        const std::string size = std::to_string(width) + "x" + std::to_string(height);
        const std::string engine = std::array{"production", "phase", "reference"}[round % 3];
        const ProgramRun done = run({at("any.raw"), "--size", size, "-o", at("out.pfm"), "--force",
                                     round % 4 < 2 ? "--report" : "--last", "--engine", engine});
        // Not every engine takes frames of every size.
        EXPECT_LE(done.status, engine == "production" ? 1 : 2) << size << done.error;
        EXPECT_THAT(done.error, Not(HasSubstr("unexpected")));
    }
}

TEST_F(SuperresCommand, HelpTellsUnitsCodesAndExamples)
{
    const ProgramRun help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, AllOf(HasSubstr("Examples:"), HasSubstr("-273.15"), HasSubstr("-999")));
    EXPECT_EQ(help.error, "");
}
