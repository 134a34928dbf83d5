// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/formats/FileFormats.h"
#include "apps/vxkit/output/Output.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

#include "apps/FrameSamples.h"
#include "apps/TemporaryFolder.h"
#include "apps/vxkit/terminal/Failure.h"

using namespace vxapp;
using testing::HasSubstr;

namespace {

using OutputTest = TemporaryFolder;

cv::Mat read(const std::filesystem::path& path)
{
    return cv::imread(path.string(), cv::IMREAD_UNCHANGED);
}

const float notANumber = std::numeric_limits<float>::quiet_NaN();

}  // namespace

TEST_F(OutputTest, KeepsFloatsBitByBit)
{
    cv::Mat_<float> image(3, 5, 21.37F);
    image(0, 0) = std::bit_cast<float>(std::uint32_t{0x84});
    image(1, 2) = std::bit_cast<float>(std::uint32_t{0x7FC00321});
    image(2, 4) = -std::numeric_limits<float>::infinity();
    for (const std::string name : {"a.tif", "a.TIFF", "a.pfm", "a.Pfm"}) {
        ASSERT_TRUE(isFloatFile(name));
        saveFloats(folder_ / name, image, false);
        EXPECT_TRUE(sameBits(read(folder_ / name), image)) << name;
    }
    EXPECT_FALSE(isFloatFile("a.png"));
    EXPECT_FALSE(isFloatFile("tif"));
    EXPECT_TRUE(isPngName("a.PNG"));
}

TEST_F(OutputTest, ChoosesAScaleThatHoldsTheImage)
{
    const auto scale = [](float low, float high, Unit unit) {
        return scaleText(scaleFor((cv::Mat_<float>(1, 3) << low, notANumber, high), unit));
    };
    EXPECT_EQ(scale(-20.0F, 380.0F, Unit::degrees), "value = count * 0.01 - 273.15");
    EXPECT_EQ(scale(-20.0F, 390.0F, Unit::degrees), "value = count * 0.1 - 273.15");
    EXPECT_EQ(scale(2000.0F, 16383.0F, Unit::counts), "value = count * 0.25");
    EXPECT_EQ(scale(2000.0F, 16384.0F, Unit::counts), "value = count * 1");
    EXPECT_EQ(scale(-65535.0F, 65535.0F, Unit::counts), "value = count * 2 - 65535");
    EXPECT_EQ(scale(-7.0F, -7.0F, Unit::counts), "value = count * 1 - 7");
    EXPECT_EQ(scale(notANumber, notANumber, Unit::degrees), "value = count * 1");
}

TEST_F(OutputTest, WritesCountsThatGiveTheValuesBackAndTellTheirScale)
{
    const cv::Mat_<float> image = (cv::Mat_<float>(1, 5) << 20.004F, 20.006F, -300.0F, 1e9F, notANumber);
    saveCounts(folder_ / "a.png", image, {0.01, -273.15}, false);
    const cv::Mat png = read(folder_ / "a.png");
    const cv::Mat_<std::uint16_t> wanted = (cv::Mat_<std::uint16_t>(1, 5) << 29315, 29316, 0, 65535, 0);
    EXPECT_TRUE(sameBits(png, wanted));

    // With the length in front and the checksum behind.
    EXPECT_THAT(textOf(folder_ / "a.png"),
                HasSubstr(std::string("\0\0\0%tEXtComment\0value = count * 0.01 - 273.15G*\x93\x85", 49)));
}

TEST_F(OutputTest, PreviewSpansTheValuesWithoutTheOutermost)
{
    cv::Mat_<float> image(20, 20);
    for (int i = 0; i < 400; ++i)
        image(i / 20, i % 20) = static_cast<float>(i);
    image(0, 0) = -1e9F;
    image(19, 19) = 1e9F;
    image(5, 5) = notANumber;
    const ValueRange range = vxsupport::visibleRange(image);
    EXPECT_EQ(range.low, 1.0F);
    EXPECT_EQ(range.high, 398.0F);

    savePreview(folder_ / "gray.png", image, range, "gray", false);
    const cv::Mat gray = read(folder_ / "gray.png");
    ASSERT_EQ(gray.type(), CV_8UC1);
    EXPECT_EQ(gray.at<std::uint8_t>(0, 0), 0);
    EXPECT_EQ(gray.at<std::uint8_t>(5, 5), 0);
    EXPECT_EQ(gray.at<std::uint8_t>(19, 19), 255);
    EXPECT_NEAR(gray.at<std::uint8_t>(10, 0), 128, 1);
    EXPECT_LT(vxsupport::visibleRange(cv::Mat_<float>(2, 2, notANumber)).low, 1.0F);

    for (const std::string& map : vxsupport::colourMapNames())
        savePreview(folder_ / (map + ".png"), image, range, map, true);
    EXPECT_EQ(read(folder_ / "inferno.png").type(), CV_8UC3);
    EXPECT_THROW(savePreview(folder_ / "x.png", image, range, "no such map", false), UsageError);
}

TEST_F(OutputTest, ReplacesFilesOnlyWhenForced)
{
    const cv::Mat_<float> image(2, 2, 1.0F);
    for (const std::string name : {"a.tif", "a.pfm", "a.png", "b.png"}) {
        writeText(folder_ / name, "old");
        const auto save = [&](bool force) {
            if (name == "a.png")
                saveCounts(folder_ / name, image, {1.0, 0.0}, force);
            else if (name == "b.png")
                savePreview(folder_ / name, image, {0.0F, 1.0F}, "gray", force);
            else
                saveFloats(folder_ / name, image, force);
        };
        EXPECT_THROW(save(false), UsageError);
        EXPECT_EQ(textOf(folder_ / name), "old");
        save(true);
        EXPECT_FALSE(read(folder_ / name).empty()) << name;
    }
    EXPECT_EQ(fileCount(), 4U);
}
