// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/Program.h"

#include <nlohmann/json.hpp>

#include "apps/FrameSamples.h"
#include "apps/ProgramRun.h"
#include "apps/vxkit/arguments/KnownWords.h"
#include "support/drivers/BurstEngine.h"

using nlohmann::json;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class Program : public ProgramFolder
{
protected:
    void SetUp() override
    {
        ProgramFolder::SetUp();
        cv::imwrite(at("a.png"), sampleCounts({32, 24}));
        cv::imwrite(at("b.png"), sampleCounts({32, 24}, 1));
    }
};

}  // namespace

TEST_F(Program, NamesTheWordThatNobodyKnowsAndWhatWasMeant)
{
    expectRefusals("",
                   {{"enhnace a.raw --wrong", "enhnace: no such command; did you mean enhance?"},
                    {"qqqq", "qqqq: no such command (vxkit"},
                    {"help comp", "comp: no such command; did you mean compare?"},
                    {"--quite compare", "--quite: no such option of vxkit; did you mean --quiet?"},
                    {"superres --ouput=x.tif", "vxkit superres; did you mean --output?"},
                    {"superres a.png --verbos", "did you mean --verbose?"},
                    {"compare a.png b.png -x", "-x: no such option of vxkit compare (vxkit compare --help"},
                    {"compare a.png b.png -q -v", "--quiet and --verbose: expected one"},
                    {"", "expected a command"}});
    EXPECT_EQ(run("compare a.png b.png --offset -273.15 --scale -1").status, 0) << "values are no options";
    EXPECT_THAT(run("compare a.png b.png --picture --nonsense").error,
                HasSubstr("--nonsense: expected a picture"))
        << "nor is what takes the place of a value";
    EXPECT_EQ(vxapp::editDistance("", "abc"), 3);
    EXPECT_EQ(vxapp::editDistance("enhnace", "enhance"), 1) << "a swap is one mistake";
    EXPECT_EQ(vxapp::editDistance("kitten", "sitting"), 3);
}

TEST_F(Program, HelpsTheSameWhicheverWayItIsAsked)
{
    EXPECT_EQ(run("help").out, run("--help").out);
    EXPECT_EQ(run("help compare").out, run("compare --help").out);
    for (const std::string text : {"IMAGE REFERENCE", "--colour-map", "{inferno,gray", "=inferno",
                                   "Common options", "--quiet", "--config FILE", "Examples:"})
        EXPECT_THAT(run("help compare").out, HasSubstr(text));
    EXPECT_THAT(run("help superres").out,
                testing::AllOf(HasSubstr("--frames FIRST:COUNT "), HasSubstr("INPUT ... ")));
    const ProgramRun version = run("--version");
    EXPECT_EQ(version.status, 0);
    EXPECT_THAT(version.out, StartsWith("vxkit 0."));
    EXPECT_THAT(version.out, HasSubstr("\nOpenCV 4."));
}

TEST_F(Program, PrintsResultsForPeopleOrForProgramsAndNothingElseIfAsked)
{
    const ProgramRun usual = run("compare a.png b.png --picture p.png");
    const ProgramRun quiet = run("compare a.png b.png --picture p.png --force --quiet");
    EXPECT_EQ(usual.out, quiet.out + "picture: " + at("p.png") + "\n") << "the results stay";
    const json object = json::parse(run("compare a.png b.png --json --picture p.png --force").out);
    EXPECT_EQ(object["command"], "compare");
    EXPECT_EQ(object["reference"], at("b.png"));
    const json image = object["images"].at(0);
    EXPECT_EQ(image["name"], at("a.png"));
    EXPECT_EQ(image["largestDifference"], 13.0);
    std::ostringstream psnr;
    psnr << std::fixed << std::setprecision(2) << "PSNR " << image["psnr"].get<double>() << " dB";
    EXPECT_THAT(usual.out, HasSubstr(psnr.str()));
    EXPECT_TRUE(json::parse(run("compare a.png a.png --json").out)["images"][0]["psnr"].is_null())
        << "infinite";
    EXPECT_EQ(run("compare a.png missing.png --json").out, "") << "no object without results";
}

TEST_F(Program, TellsWhatHelpsToFindAFaultOnTheErrorStreamOnly)
{
    const ProgramRun usual = run("compare a.png b.png --margin 2");
    const ProgramRun verbose = run("--verbose compare a.png b.png --margin 2");
    EXPECT_EQ(verbose.out, usual.out);
    EXPECT_EQ(usual.error, "");
    EXPECT_THAT(verbose.error, StartsWith("vxkit 0."));
    EXPECT_THAT(verbose.error, HasSubstr("\ncompare\n"));
    EXPECT_THAT(verbose.error, HasSubstr("--margin: 2\n"));
    EXPECT_THAT(verbose.error, EndsWith(" MiB of memory\n"));
    EXPECT_EQ(run("compare a.png b.png --margin 2").error, "") << "the next run is a usual one";
}

TEST_F(Program, TakesFromASettingsFileWhatTheLineDoesNotGive)
{
    writeText(
        at("s.ini"),
        "# of the laboratory\n[compare]\nmargin=3\nalign=false\nregion=5,5,20,11\n[superres]\ncamera=\"k325 "
        "FOV25\"\n");
    const auto margin = [this](const std::string& line) {
        return json::parse(run("compare a.png b.png --json " + line).out)["images"][0]["margin"].get<int>();
    };
    EXPECT_EQ(margin(""), 0);
    EXPECT_EQ(margin("--config s.ini"), 3);
    EXPECT_EQ(margin("--margin 5 --config s.ini"), 5);
    run("compare a.png b.png --picture p.png --config s.ini");
    EXPECT_EQ(image("p.png").cols / image("p.png").rows, 3) << "of the region";
    for (const auto& [name, text] : {std::pair("a.ini", "[compare]\nmargn=3\n"),
                                     {"b.ini", "[comprae]\nmargin=3\n"},
                                     {"c.ini", "margin=3\n"},
                                     {"d.ini", "[compare]\nmargin=many\n"}})
        writeText(at(name), text);
    expectRefusals("compare a.png b.png --config",
                   {{"a.ini", "a.ini: compare.margn: no such option; did you mean margin?"},
                    {"b.ini", "b.ini: [comprae]: no such command; did you mean compare?"},
                    {"c.ini", "c.ini: margin: no such option"},
                    {"d.ini", "many"},
                    {"missing.ini", "missing.ini"}});
}

TEST_F(Program, KnowsTheCamerasThatItLists)
{
    std::istringstream models(vxsupport::cameraModels());
    int count = 0;
    for (std::string digits; models >> digits; ++count)
        EXPECT_THAT(runVxkit({"superres", at("a.png"), "--camera", "k" + digits + " FOV25"}).error,
                    HasSubstr("nowhere to write to"))
            << "the next fault of the line";
    EXPECT_EQ(count, 8);
    expectRefusals(
        "superres a.png -o x.tif --camera",
        {{"k999", "k999: no known camera and lens; expected one of the models 310 "}, {"k325", "FOV"}});
}
