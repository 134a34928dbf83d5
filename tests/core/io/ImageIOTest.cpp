// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "apps/TemporaryFolder.h"
#include "core/GroupedDigits.h"
#include "core/base/Exception.h"
#include "core/io/ImageIO.h"

using namespace halvor::vx;

namespace {

using ImageIOTest = TemporaryFolder;

cv::Mat_<float> ramp(int rows, int cols)
{
    cv::Mat_<float> image(rows, cols);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x)
            image(y, x) = 20.0F + 0.25F * static_cast<float>(y * cols + x);
    return image;
}

std::vector<char> bytesOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

TEST_F(ImageIOTest, SavesWhatAnotherReaderOpensInAnyLocaleOfTheHost)
{
    const auto path = folder_ / "one.pfm";
    const cv::Mat_<float> image = ramp(3, 1200);
    const vxtest::GroupedDigits locale;
    ASSERT_TRUE(ImageIO::save(path.string(), image, 2));
    const cv::Mat read = cv::imread(path.string(), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(read.size(), image.size());
    ASSERT_EQ(read.type(), CV_32FC1);
    EXPECT_EQ(cv::norm(read, image, cv::NORM_INF), 0.0);
}

TEST_F(ImageIOTest, KeepsMarkerPatternsBitByBit)
{
    const auto path = folder_ / "marker.pfm";
    cv::Mat_<float> image = ramp(1, 2);
    image(0, 1) = std::bit_cast<float>(std::uint32_t{0x84});
    ASSERT_TRUE(ImageIO::save(path.string(), image, 2));
    const std::vector<char> bytes = bytesOf(path);
    const std::string tail(bytes.end() - 4, bytes.end());
    EXPECT_EQ(tail, std::string("\x84\0\0\0", 4));
}

TEST_F(ImageIOTest, StreamsFramesOneBehindTheOtherAndCopiesShareTheStream)
{
    const auto path = folder_ / "stream.pfm";
    ImageIO stream(2);
    EXPECT_FALSE(stream.isOpen());
    stream << ramp(2, 2);
    ASSERT_TRUE(stream.open(path.string()));
    ImageIO copy = stream;
    stream << ramp(2, 3);
    const std::size_t one = bytesOf(path).size();
    copy << ramp(2, 3);
    EXPECT_EQ(bytesOf(path).size(), 2 * one);
    stream.close();
    EXPECT_FALSE(stream.isOpen());
    EXPECT_EQ(cv::imread(path.string(), cv::IMREAD_UNCHANGED).size(), cv::Size(3, 2));
}

TEST_F(ImageIOTest, RefusesWhatItCantWrite)
{
    ImageIO stream(2);
    EXPECT_FALSE(stream.open((folder_ / "missing" / "a.pfm").string()));
    EXPECT_FALSE(stream.isOpen());
    EXPECT_FALSE(ImageIO::save((folder_ / "missing" / "a.pfm").string(), ramp(2, 2), 2));
    testing::internal::CaptureStderr();
    EXPECT_THROW(ImageIO(7), Exception);
    testing::internal::GetCapturedStderr();
}
