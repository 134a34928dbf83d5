// SPDX-License-Identifier: Apache-2.0
// The engines in fixed point behind "vxkit superres".

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/FrameSamples.h"
#include "apps/ProgramRun.h"
#include "support/Burst.h"
#include "support/FpgaEngine.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

using Counts = cv::Mat_<std::uint16_t>;

const cv::Size frameSize{160, 120};
constexpr int window = 5;

// Hundredths of a degree.
std::vector<Counts> burstOf(int frames)
{
    vxsupport::BurstSettings settings;
    settings.scene.kind = vxsupport::SceneKind::board;
    settings.scene.frame = frameSize;
    settings.frameCount = frames;
    std::vector<Counts> counts;
    for (const cv::Mat_<float>& frame : vxsupport::simulateBurst(settings).frames) {
        counts.emplace_back();
        frame.convertTo(counts.back(), CV_16U, 100.0);
    }
    return counts;
}

// What a host of the class gets of the frames after the last one.
template <typename Engine>
Counts lastImage(const std::vector<Counts>& frames)
{
    Engine engine(frameSize.width, frameSize.height, window, 2.0F);
    engine.setReferenceIndex(1);
    engine.setWeightTV(200.0F);
    cv::Mat_<short> frame;
    cv::Mat_<short> image;
    for (const Counts& counts : frames) {
        counts.convertTo(frame, CV_16S);
        engine.addFrame(frame);
        engine.computeSr(image);
    }
    Counts values;
    image.convertTo(values, CV_16U);
    return values;
}

class FixedEngines : public ProgramFolder
{
protected:
    void write(const std::string& name, const std::vector<Counts>& frames) const
    {
        for (const Counts& frame : frames)
            appendRaw(folder_ / name, frame);
    }

    ProgramRun runEngine(const std::string& line) const
    {
        return run("superres --size 160x120 --force -o a.tif --engine " + line);
    }

    Counts result(const std::string& name) const
    {
        Counts counts;
        image(name).convertTo(counts, CV_16U);
        return counts;
    }
};

}  // namespace

TEST_F(FixedEngines, GiveTheBitsOfTheirClassesHeardOrNot)
{
    const std::vector<Counts> frames = burstOf(6);
    write("six.raw", frames);
    const Counts expected = lastImage<vxsupport::FixedEngine>(frames);
    EXPECT_TRUE(sameBits(lastImage<vxsupport::FpgaEngine>(frames), expected));
    for (const std::string engine : {"fixed", "fpga"}) {
        const std::string line = engine + " six.raw --weight 200 --reference 1";
        const ProgramRun plain = runEngine(line);
        ASSERT_EQ(plain.status, 0) << plain.error;
        EXPECT_THAT(plain.out, AllOf(HasSubstr(engine + " engine"), HasSubstr("works on the counts")));
        EXPECT_TRUE(sameBits(result("a-0005.tif"), expected)) << engine;

        const ProgramRun heard = runEngine(line + " --report --trace trace.txt");
        ASSERT_EQ(heard.status, 0) << heard.error;
        EXPECT_TRUE(sameBits(result("a-0005.tif"), expected)) << engine;
        EXPECT_THAT(heard.out, AllOf(HasSubstr("solver step"), HasSubstr("%  reference")));
        const std::string channel = engine == "fpga" ? "[SrIntFpga] " : "[SrInt] ";
        EXPECT_THAT(textOf(folder_ / "trace.txt"),
                    AllOf(HasSubstr("[SrInt] start addFrame\n"), HasSubstr(channel + "end minimize\n")));
    }
}

TEST_F(FixedEngines, TakeCountsOfSixteenBitsAndGiveDegreesWhereAsked)
{
    std::vector<Counts> frames = burstOf(5);
    write("low.raw", frames);
    runEngine("fixed low.raw");
    const Counts low = result("a.tif");
    for (Counts& frame : frames)
        frame += 32768;
    write("high.raw", frames);
    const ProgramRun high = runEngine("fixed high.raw");
    ASSERT_EQ(high.status, 0) << high.error;
    EXPECT_THAT(high.out, HasSubstr("works on count - 32768"));
    EXPECT_TRUE(sameBits(result("a.tif"), low + 32768));

    ASSERT_EQ(runEngine("fixed high.raw --scale 0.01 --offset -327.68").status, 0);
    EXPECT_NEAR(image("a.tif").at<float>(100, 100), low(100, 100) * 0.01F, 0.001F);
}

// The frame of another range opens a new window, which is full four frames later.
TEST_F(FixedEngines, StartAnewWhereFramesDoNotFollowEachOther)
{
    std::vector<Counts> frames = burstOf(11);
    for (std::size_t i = 5; i < frames.size(); ++i)
        frames[i] += 20000;
    write("jump.raw", frames);
    const ProgramRun jump = runEngine("fixed jump.raw");
    EXPECT_EQ(jump.status, 1);
    EXPECT_THAT(jump.out,
                AllOf(HasSubstr("frame 4: code 0"), HasSubstr("frame 5: code -8, the frame's values"),
                      Not(HasSubstr("frame 8:")), HasSubstr("frame 9: code 0"), HasSubstr("frame 10:")));

    frames = burstOf(7);
    frames[5].setTo(cv::mean(frames[0])[0]);
    write("flat.raw", frames);
    const ProgramRun flat = runEngine("fixed flat.raw");
    EXPECT_EQ(flat.status, 1);
    EXPECT_THAT(flat.out, AllOf(HasSubstr("frame 5: code -998"), HasSubstr("frame 6: code -998")));
}

TEST_F(FixedEngines, RefuseWhatSixteenBitsOrTheFormatDoNotHold)
{
    write("seven.raw", burstOf(7));
    writePfmStream(at("floats.pfm"), std::vector<cv::Mat_<float>>(5, cv::Mat_<float>(48, 64, 1.0F)));
    expectRefusals("superres seven.raw --size 160x120 -o a.tif --engine",
                   {{"fixed --window 7", "--window 7: expected 2 to 6"},
                    {"fpga --relative-residue 1e-5", "--relative-residue 1e-05"},
                    {"fixed --weight 601", "--weight 601"},
                    {"fixed --weight 10", "--weight 10: expected 20 to 600"},
                    {"fixed --iterations 13", "--iterations 13"},
                    {"fixed --reference 5", "--reference 5"},
                    {"fixed --iterations 0", "--iterations 0"}});
    expectRefusals("superres -o a.tif --engine",
                   {{"fpga seven.raw --size 240x80", "--engine fpga: frames of 240x80; expected 160x120"},
                    {"fixed floats.pfm", "floats.pfm, frame 0: holds floats; expected 16-bit counts"}});
}
