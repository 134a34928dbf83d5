// SPDX-License-Identifier: Apache-2.0
// The engines of "vxkit superres" and what can be seen of them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <regex>

#include "apps/FrameSamples.h"
#include "apps/ProgramRun.h"
#include "enhancement/superresolution/SrFloat.h"
#include "enhancement/superresolution/SrFloatRegistration1.h"
#include "enhancement/superresolution/SrFloatRegistration2.h"
#include "enhancement/superresolution/reference/SuperResolution.h"
#include "support/Burst.h"
#include "support/CapturedOutput.h"

using namespace halvor::vx;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

const cv::Size frameSize{64, 48};
constexpr int window = 5;

std::vector<cv::Mat_<float>> burstOf(int frames)
{
    vxsupport::BurstSettings settings;
    settings.scene.frame = frameSize;
    settings.frameCount = frames;
    return vxsupport::simulateBurst(settings).frames;
}

// A sensor whose pixels have lines of their own, seen through signed counts; one pixel is stuck.
struct Sensor
{
    static constexpr int stuck = 1;

    static float gain(int x, int y) { return 0.004F + 0.0005F * static_cast<float>((3 * x + 5 * y) % 4); }
    static float offset(int x, int y) { return 20.0F + static_cast<float>((x + 2 * y) % 5); }

    static cv::Mat_<float> counts(const cv::Mat_<float>& degrees)
    {
        cv::Mat_<float> counts(degrees.size());
        for (int y = 0; y < degrees.rows; ++y)
            for (int x = 0; x < degrees.cols; ++x)
                counts(y, x) = std::round((degrees(y, x) - offset(x, y)) / gain(x, y));
        counts(stuck, stuck) = 7.0F;
        return counts;
    }

    static cv::Mat_<short> shorts(const cv::Mat_<float>& counts)
    {
        cv::Mat_<short> values;
        counts.convertTo(values, CV_16S);
        return values;
    }
};

template <typename Engine>
cv::Mat_<float> lastImage(const std::vector<cv::Mat_<float>>& frames)
{
    const vxsupport::CapturedOutput dropped;
    Engine engine(frameSize.width, frameSize.height, window, 2.0F);
    engine.setReferenceIndex(2);
    engine.setWeightTV(40.0F);
    for (const cv::Mat_<float>& frame : frames)
        engine.addFrame(frame.template ptr<float>());
    cv::Mat_<float> image(frameSize * 2);
    engine.computeSR(image.ptr<float>());
    return image;
}

cv::Mat_<float> imageOf(const std::string& engine, const std::vector<cv::Mat_<float>>& frames)
{
    if (engine == "reference")
        return lastImage<SuperResolution>(frames);
    return engine == "phase" ? lastImage<SrFloat<SrFloatRegistration1>>(frames)
                             : lastImage<SrFloat<SrFloatRegistration2>>(frames);
}

class EngineOptions : public ProgramFolder
{
protected:
    // Counts of two flat scenes, the second as a stack of two frames, and the file that names them.
    void writeCalibration(const std::string& name) const
    {
        const cv::Mat_<float> cold = Sensor::counts(cv::Mat_<float>(frameSize, 5.0F));
        const cv::Mat_<float> hot = Sensor::counts(cv::Mat_<float>(frameSize, 45.0F));
        writePfmStream(at("cold.pfm"), {cold});
        cv::Mat_<float> lower;
        cv::Mat_<float> upper;
        cv::subtract(hot, 2.0F, lower);
        cv::add(hot, 2.0F, upper);
        writePfmStream(at("hot side.pfm"), {lower, upper});
        writePfmStream(at("rad.pfm"), {cv::Mat_<float>(frameSize, 45.0F)});
        writeText(folder_ / name,
                  "# two plates\n\ncounts-a=cold.pfm\n radiance-a = 5\ncounts-b = hot side.pfm\n"
                  "radiance-b = rad.pfm\r\n");
    }
};

class EachEngine : public EngineOptions, public testing::WithParamInterface<std::string>
{};

}  // namespace

TEST_P(EachEngine, GivesTheBitsOfItsClassHeardOrNot)
{
    const std::vector<cv::Mat_<float>> frames = burstOf(7);
    writePfmStream(at("seven.pfm"), frames);
    const std::string line =
        "superres seven.pfm --weight 40 --reference 2 --force -o a.tif --engine " + GetParam();
    const cv::Mat_<float> expected = imageOf(GetParam(), frames);
    const ProgramRun plain = run(line);
    ASSERT_EQ(plain.status, 0) << plain.error;
    EXPECT_TRUE(sameBits(image("a-0006.tif"), expected));
    EXPECT_THAT(plain.out, Not(HasSubstr("++++")));

    const ProgramRun heard = run(line + " --report --trace trace.txt");
    ASSERT_EQ(heard.status, 0) << heard.error;
    EXPECT_TRUE(sameBits(image("a-0006.tif"), expected));
    EXPECT_THAT(heard.out, AllOf(HasSubstr("achieved factor 2.00"), HasSubstr("solver steps"),
                                 HasSubstr("%  reference"), Not(HasSubstr("start minimize"))));
    EXPECT_EQ(heard.error, "");
    const bool serial = GetParam() == "reference";
    const std::string trace = textOf(folder_ / "trace.txt");
    for (const std::string told : {serial ? "[DBG] start addFrame\n" : "[SrFloat] start addFrame\n",
                                   "] end minimize\n", "Convolution.fullConvFromSparse\n"})
        EXPECT_NE(trace.find(told), std::string::npos) << told;
    std::smatch steps;
    ASSERT_TRUE(std::regex_search(heard.out, steps, std::regex("(\\d+) solver steps")));
    const std::string total = "] cummulated iterations" + steps[1].str() + "\n";
    EXPECT_NE(trace.find(total), std::string::npos) << total;
    EXPECT_EQ(trace.find("[output] ++++++++++ SuperResolution ++++++++++\n") != std::string::npos, serial);

    const SrFloat<SrFloatRegistration2> next(frameSize.width, frameSize.height, window, 2.0F);
    EXPECT_FALSE(next.isDebugActive(1)) << "nothing stays switched on";
    EXPECT_EQ(next.getDebugDevice(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(All, EachEngine, testing::Values("production", "phase", "reference"),
                         [](const auto& engine) { return engine.param; });

TEST_F(EngineOptions, TraceTellsHowFarAFailedRunCame)
{
    std::vector<cv::Mat_<float>> frames = burstOf(5);
    frames[4] = cv::Mat_<float>(frameSize, std::numeric_limits<float>::quiet_NaN());
    writePfmStream(at("five.pfm"), frames);
    const std::string line = "superres five.pfm --engine phase -o a.tif --trace ";
    EXPECT_EQ(run(line + "trace.txt").status, 1);
    EXPECT_THAT(textOf(at("trace.txt")), HasSubstr("[SrFloat] start addFrame\n"));
    EXPECT_EQ(run(line + "trace.txt").status, 2) << "no file is replaced unasked";
    EXPECT_THAT(run(line + "-").error, HasSubstr("[SrFloat] start addFrame\n"));
}

TEST_F(EngineOptions, RadianceEqualsTheEnginesOwnCalibration)
{
    std::vector<cv::Mat_<float>> counts;
    for (const cv::Mat_<float>& frame : burstOf(6))
        counts.push_back(Sensor::counts(frame));
    writePfmStream(at("raw.pfm"), counts);
    writeCalibration("plates.txt");
    const ProgramRun done = run("superres raw.pfm --radiance plates.txt -o a.tif --quality-map map.tif");
    ASSERT_EQ(done.status, 0) << done.error;
    EXPECT_THAT(done.out, HasSubstr("reference engine"));

    const vxsupport::CapturedOutput dropped;
    SuperResolution engine(frameSize.width, frameSize.height, window, 2.0F);
    engine.setReferenceIndex(3);
    const cv::Mat_<float> cold(frameSize, 5.0F);
    const cv::Mat_<float> hot(frameSize, 45.0F);
    engine.setNucToRad(Sensor::shorts(Sensor::counts(cold)), cold, Sensor::shorts(Sensor::counts(hot)), hot);
    cv::Mat_<float> expected(frameSize * 2);
    for (const cv::Mat_<float>& frame : counts)
        engine.processFrame2(Sensor::shorts(frame).ptr<short>(), expected.ptr<float>());
    EXPECT_TRUE(sameBits(image("a-0005.tif"), expected));
    engine.computeQuality();
    cv::Mat_<float> quality;
    engine.getQuality(quality);
    EXPECT_TRUE(sameBits(image("map-0005.tif"), quality));
}

TEST_F(EngineOptions, RefusesWhatDoesNotFitTogetherAndTouchesNothing)
{
    writePfmStream(at("five.pfm"), burstOf(5));
    writePfmStream(at("odd.pfm"), std::vector<cv::Mat_<float>>(5, cv::Mat_<float>(48, 63, 1.0F)));
    std::vector<cv::Mat_<float>> counts;
    for (const cv::Mat_<float>& frame : burstOf(5))
        counts.push_back(Sensor::counts(frame));
    writePfmStream(at("raw.pfm"), counts);
    counts[4](3, 3) = 32768.0F;
    writePfmStream(at("large.pfm"), counts);
    writeCalibration("good.txt");
    const auto calibrate = [this](const std::string& name, const std::string& countsA,
                                  const std::string& radianceA) {
        writeText(folder_ / name, "counts-a = " + countsA + "\nradiance-a = " + radianceA +
                                      "\ncounts-b = hot side.pfm\nradiance-b = 45\n");
    };
    calibrate("a.txt", "none.pfm", "5");
    calibrate("b.txt", "odd.pfm", "5");
    calibrate("c.txt", "cold.pfm", "6000");
    calibrate("d.txt", "cold.pfm", "nan");
    calibrate("e.txt", "hot side.pfm", "5");
    writeText(at("twice.txt"), "counts-a = cold.pfm\ncounts-a = cold.pfm\n");
    writeText(at("key.txt"), "\ncounts = cold.pfm\n");
    writeText(at("less.txt"), "counts-a = cold.pfm\nradiance-a =\n");
    std::filesystem::create_directory(at("folder.txt"));
    expectRefusals("superres five.pfm",
                   {{"--engine fast", "fast"},
                    {"--engine phase --quality-map m.png", "--quality-map: the engine phase"},
                    {"--quality-map m.jpg", "m.jpg"},
                    {"--quality-map a.tif", "a.tif: expected different names"},
                    {"--engine reference --weight 0.5", "--weight 0.5"},
                    {"--trace five.pfm --force", "is an input"},
                    {"--trace a.tif", "expected different names"},
                    {"--trace good.txt", "good.txt exists already"},
                    {"--trace none/trace.txt", "none"},
                    {"--radiance good.txt", "five.pfm, frame 0: holds the value"}},
                   "-o a.tif");
    expectRefusals("superres -o a.tif --radiance good.txt",
                   {{"large.pfm", "large.pfm, frame 4: holds the value 32768"}});
    for (const std::string engine : {"phase", "reference"}) {
        const ProgramRun odd = run("superres odd.pfm -o a.tif --engine " + engine);
        EXPECT_EQ(odd.status, 2);
        EXPECT_THAT(odd.error, HasSubstr("vxkit: --engine " + engine + ": Frames of 63 x 48"));
        EXPECT_FALSE(std::filesystem::exists(at("a.tif")));
    }
    expectRefusals("superres raw.pfm -o a.tif --radiance",
                   {{"good.txt --engine production", "--radiance: the engine production"},
                    {"good.txt --scale 0.01", "--scale"},
                    {"none.txt", "none.txt"},
                    {"folder.txt", "folder.txt"},
                    {"twice.txt", "twice.txt, line 2"},
                    {"key.txt", "key.txt, line 2"},
                    {"less.txt", "radiance-a is missing"},
                    {"a.txt", "none.pfm"},
                    {"b.txt", "odd.pfm: has 63x48"},
                    {"c.txt", "radiance-a 6000"},
                    {"d.txt", "radiance-a nan"},
                    {"e.txt", "100 % of the pixels"}});
}

TEST_F(EngineOptions, DrawsTheQualityMapAndTellsItInTheReport)
{
    writePfmStream(at("five.pfm"), burstOf(5));
    const ProgramRun done = run("superres five.pfm --quality-map map.png --report -o a.tif");
    ASSERT_EQ(done.status, 0) << done.error;
    EXPECT_THAT(done.out, AllOf(HasSubstr("a.tif, " + at("map.png")), HasSubstr("sub-pixel coverage")));
    EXPECT_EQ(image("map.png").type(), CV_8UC3);
}
