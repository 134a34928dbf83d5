// SPDX-License-Identifier: Apache-2.0
#include "core/extensions/cvext.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <string>

#include "core/base/Exception.h"

using namespace halvor::vx;

namespace {

short convertOne(float p, float gain = 1.0F, float offset = 0.0F, bool offsetFirst = false)
{
    const cv::Mat_<float> in(1, 1, p);
    return convertMatFloatToMatInt(in, -1e30F, 1e30F, gain, offset, offsetFirst)(0, 0);
}

template <typename Call>
void expectFailure(Call call, const char* message, const char* function)
{
    testing::internal::CaptureStderr();
    try {
        call();
        ADD_FAILURE() << "nothing thrown";
    } catch (const Exception& e) {
        EXPECT_STREQ(e.what(), message);
        EXPECT_THAT(e.where(),
                    testing::MatchesRegex(std::string("modules/core/extensions/cvext\\.cpp:[0-9]+ : ") +
                                          function + "\\(\\.\\.\\)"));
    }
    testing::internal::GetCapturedStderr();
}

}  // namespace

TEST(Cvext, RoundsHalfAwayFromZeroAndWrapsTo16Bits)
{
    const float beyond32Bits = std::ldexp(16777215.0F, 10);
    for (const auto& [value, rounded] : {std::pair{2.5F, 3},
                                         {-2.5F, -3},
                                         {2.25F, 2},
                                         {-0.25F, 0},
                                         {32768.0F, -32768},
                                         {65536.0F * 65539.0F, 0},
                                         {beyond32Bits, -1024},
                                         {1e25F, 0},
                                         {-1e25F, 0},
                                         {std::nanf(""), 0}})
        EXPECT_EQ(convertOne(value), rounded) << value;
    EXPECT_EQ(convertOne(0.5F, 65536.0F), -32768) << "a tap of one half passes and wraps";
    EXPECT_EQ(convertOne(5.0F, 3.0F, 2.0F, false), 17);
    EXPECT_EQ(convertOne(5.0F, 3.0F, 2.0F, true), 21);
}

TEST(Cvext, RefusesTheFirstPixelOutsideTheLimits)
{
    cv::Mat_<float> in(3, 5, 1.0F);
    const auto convert = [&] { convertMatFloatToMatInt(in, -1.0F, 1.0F, 100.0F, 0.0F, false); };
    convert();
    in(2, 4) = -1.5F;
    const char* const where = "halvor::vx::convertMatFloatToMatInt";
    expectFailure(convert, "convertMatFloatToMatInt: value clamped to min", where);
    in(1, 3) = std::nextafter(1.0F, 2.0F);
    expectFailure(convert, "convertMatFloatToMatInt: value clamped to max", where);
}

TEST(Cvext, IntegersGoBackWithGainAndOffset)
{
    cv::Mat_<short> in(2, 9);
    for (int i = 0; i < 18; ++i)
        in(i / 9, i % 9) = static_cast<short>(i * 3000 - 32768);
    const cv::Mat_<float> out = convertMatIntToMatFloat(in, -32768, 32767, 0.5F, 1.0F);
    for (int i = 0; i < 18; ++i)
        EXPECT_EQ(out(i / 9, i % 9), static_cast<float>(i * 3000 - 32768) * 0.5F + 1.0F);

    const char* const where = "halvor::vx::convertMatIntToMatFloat";
    expectFailure([&] { convertMatIntToMatFloat(in, -32767, 32767, 1.0F, 0.0F); },
                  "convertMatIntToMatFloat: value clamped to min", where);
    expectFailure([&] { convertMatIntToMatFloat(in, -32768, 0, 1.0F, 0.0F); },
                  "convertMatIntToMatFloat: value clamped to max", where);
}

TEST(Cvext, StoresIntoAnImageOfTheRightSizeWithoutANewOne)
{
    const cv::Mat_<float> frame(4, 6, 2.0F);
    cv::Mat_<short> large(8, 12, short{9});
    cv::Mat_<short> part = large(cv::Rect(3, 2, 6, 4));
    convertMatFloatToMatInt(frame, 0.0F, 4.0F, 8.0F, 0.0F, false, part);
    EXPECT_EQ(cv::countNonZero(large == 16), 24);
    EXPECT_EQ(part(3, 5), 16);
    EXPECT_EQ(large(2, 9), 9);
}
