// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "apps/FrameSamples.h"
#include "apps/ProgramRun.h"
#include "apps/vxkit/output/AreaStatistics.h"
#include "apps/vxkit/output/Output.h"
#include "apps/vxkit/output/PictureMarks.h"

using namespace vxapp;
using testing::HasSubstr;

namespace {

const cv::Size frameSize{60, 40};

// A ramp from 1000 at the left to 1590 at the right, ten counts more in each frame, with a peak.
cv::Mat_<std::uint16_t> ramp(int frame)
{
    cv::Mat_<std::uint16_t> counts(frameSize);
    for (int y = 0; y < counts.rows; ++y)
        for (int x = 0; x < counts.cols; ++x)
            counts(y, x) = static_cast<std::uint16_t>(1000 + 10 * (x + frame));
    counts(30, 20) = 3000;
    return counts;
}

class ShowCommand : public ProgramFolder
{
protected:
    void SetUp() override
    {
        ProgramFolder::SetUp();
        for (int i = 0; i < 3; ++i)
            appendRaw(at("in.raw"), ramp(i));
        cv::Mat_<float> degrees;
        ramp(0).convertTo(degrees, CV_32F, 0.01, 5.0);
        cv::resize(degrees, degrees, frameSize * 2, 0.0, 0.0, cv::INTER_NEAREST);
        saveFloats(at("large.tif"), degrees, false);
    }

    cv::Mat picture(const std::string& options)
    {
        const ProgramRun done = run("show in.raw --size 60x40 -o p.png --force " + options);
        EXPECT_EQ(done.status, 0) << done.error;
        out_ = done.out;
        return image("p.png");
    }

    std::string out_;
};

// Where the picture of the frame differs from the one without marks, in pixels of the frame.
cv::Rect changed(const cv::Mat& with, const cv::Mat& without, int zoom)
{
    cv::Mat difference;
    cv::absdiff(with, without, difference);
    cv::extractChannel(difference(cv::Rect({10, 10}, frameSize * zoom)), difference, 0);
    const cv::Rect box = cv::boundingRect(difference);
    return {box.tl() / zoom, box.size() / zoom};
}

}  // namespace

TEST_F(ShowCommand, MarksStandAtTheirPlaces)
{
    const cv::Mat plain = picture("--range 1000:1600 --zoom 12 --colour-map gray");
    ASSERT_GT(plain.cols, frameSize.width * 12 + 30) << "the colour bar";
    EXPECT_NEAR(plain.at<cv::Vec3b>(10 + 6, 10 + 12 * 30)[0], 127, 1) << "1300 of 1000 to 1600";
    const auto place = [&](const std::string& marks) {
        return changed(picture("--range 1000:1600 --zoom 12 --colour-map gray " + marks), plain, 12);
    };
    const cv::Rect region = place("--roi 10,5,20x10");
    EXPECT_LE(std::abs(region.x - 10) + std::abs(region.y - 5) + std::abs(region.width - 20), 2);
    const cv::Rect spot = place("--spot 40,20");
    EXPECT_LE(std::abs(spot.x - 40) + std::abs(spot.y - 19), 2) << spot;
    const cv::Rect isotherm = place("--isotherm 1404");
    EXPECT_LE(std::abs(isotherm.br().x - 40), 1) << isotherm;
    EXPECT_LE(std::abs(isotherm.x - 19), 1) << "around the peak" << isotherm;
    EXPECT_EQ(isotherm.height, frameSize.height) << "from the top to the bottom";
    const cv::Rect extremes = place("--extremes");
    EXPECT_EQ(extremes.x, 0) << "minimum";
    EXPECT_NEAR(extremes.br().y, 31, 1) << "maximum";
}

TEST_F(ShowCommand, RangesAreOwnSharedOrFixed)
{
    picture("--frame 0,2");
    EXPECT_THAT(out_, testing::AllOf(HasSubstr("frame 0: inferno from 1000 to 1590 c"),
                                     HasSubstr("frame 2: inferno from 1020 to 1610 c")));
    picture("--frame 0,2 --range shared");
    EXPECT_THAT(out_, testing::AllOf(HasSubstr("frame 0: inferno from 1000 to 1610 c"),
                                     HasSubstr("frame 2: inferno from 1000 to 1610 c")));
    picture("--range=-2.5:7e3 --scale 0.5 --offset -40");
    EXPECT_THAT(out_, HasSubstr("from -2.5 to 7000 deg C"));
    // Of one size beside each other, whatever the grid.
    const int width = picture("large.tif").cols;
    EXPECT_NEAR(width, 2 * picture("").cols, 40);
    EXPECT_LT(picture("--region 10,10,20x10 --zoom 3").rows, 90);
    expectRefusals("show in.raw --size 60x40 -o q.png",
                   {{"large.tif --range shared", "large.tif: holds values, while"},
                    {"large.tif --isotherm 20", "holds values"},
                    {"--range 5:5", "--range 5:5"},
                    {"--range 5", "--range 5"},
                    {"--frame 3", "--frame 3"},
                    {"--spot 60,0", "--spot 60,0"},
                    {"--roi 50,0,11x5", "--roi 50,0,11x5"},
                    {"--region 5,5", "--region 5,5"},
                    {"--csv in.raw --force", "is an input"},
                    {"--csv q.png", "different names"}});
    expectRefusals("show in.raw --size 60x40", {{"", "nowhere to write to"}, {"-o q.jpg", "q.jpg"}});
}

TEST_F(ShowCommand, TablesHoldEveryFrameRegionAndSpot)
{
    ASSERT_EQ(run("show in.raw --size 60x40 --roi 10,5,4x2 --spot 20,30 --csv t.csv").status, 0);
    std::istringstream table(textOf(at("t.csv")));
    std::vector<std::string> lines;
    for (std::string line; std::getline(table, line);)
        lines.push_back(line.substr(0, line.find('\r')));
    ASSERT_EQ(lines.size(), 1U + 3U * 3U);
    EXPECT_EQ(lines[1 + 3 + 1],
              at("in.raw") + ",1,R1,10,5,4,2,8,1110,1140,1125,11.1803399,1125,10,5,13,5,counts");
    EXPECT_EQ(lines[1 + 6 + 2], at("in.raw") + ",2,S1,20,30,1,1,1,3000,3000,3000,0,3000,20,30,20,30,counts");

    ASSERT_EQ(run("show in.raw large.tif --size 60x40 --frame 2 --roi 10,5,4x2 --csv t.csv --force").status,
              0);
    EXPECT_THAT(textOf(at("t.csv")),
                testing::AllOf(HasSubstr(",2,whole,"), testing::Not(HasSubstr(",1,whole,")),
                               HasSubstr("large.tif,0,R1,20,10,8,4,32,16,16.2999992,16.1499996,0.11")))
        << "the region on the larger image";
}

TEST(AreaStatistics, LeaveOutWhatIsNoValue)
{
    cv::Mat_<float> image = (cv::Mat_<float>(2, 3) << 4.0F, -1.0F, 9.0F, 2.0F, 0.0F, 0.0F);
    image(1, 1) = std::numeric_limits<float>::infinity();
    image(1, 2) = std::bit_cast<float>(0x84U);
    const AreaStatistics found = statisticsOf(image, {0, 0, 3, 2});
    EXPECT_EQ(found.pixels, 4);
    EXPECT_EQ(found.median, 3.0);
    EXPECT_EQ(found.minimumAt, cv::Point(1, 0));
    EXPECT_EQ(found.maximumAt, cv::Point(2, 0));
    EXPECT_EQ(statisticsOf(image, {1, 1, 2, 1}).pixels, 0);
    EXPECT_THAT(areaTable({{"a \"b\", c", 0, "R1", {1, 1, 2, 1}, {}, "x"}}),
                HasSubstr("\r\n\"a \"\"b\"\", c\",0,R1,1,1,2,1,0,,,,,,,,,,x\r\n"));
}

TEST(PictureMarks, NumbersOfTheColourBarAreRound)
{
    EXPECT_EQ(roundNumbers({0.0F, 10.0F}), (std::vector<double>{0, 2, 4, 6, 8, 10}));
    EXPECT_EQ(roundNumbers({-30.0F, 5.0F}), (std::vector<double>{-30, -25, -20, -15, -10, -5, 0, 5}));
    EXPECT_EQ(roundNumbers({2.0F, 2.0F}).size(), 1U);
    EXPECT_EQ(valueText(21.256, {20.0F, 30.0F}), "21.3");
    EXPECT_EQ(valueText(14003.4, {13000.0F, 16000.0F}), "14003");
    EXPECT_EQ(captionNames({"a/x.tif", "b/x.tif", "c/y.tif"}),
              (std::vector<std::string>{"a/x.tif", "b/x.tif", "y.tif"}));
}
